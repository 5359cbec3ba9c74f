#include "tools/pngkrv/Session.h"

namespace cli {

namespace {

constexpr char kOpenFile[] = "OpenFile(file as folderitem) as boolean";
constexpr char kApplyOptions[] =
    "ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean";
constexpr char kRowBytes[] = "RowBytes as integer";
constexpr char kReadRowMem[] = "ReadRow(mem as memoryblock) as boolean";

// The tool keeps every row of an interlaced image in memory; refuse images beyond this many bytes.
constexpr uint64_t kMaxDecodedBytes = uint64_t{1} << 30;

}  // namespace

// The host runs as an application's does: without the tests' check of cairo's dirty mark, which
// keeps a copy of a Linux desktop picture's whole surface while the plug-in holds it locked.
Session::Session(const emu::Profile& profile, const std::string& pluginPath)
    : host_(emu::Host::Instance()) {
  emu::Profile running = profile;
  running.auditCairoLocks = false;
  host_.Start(running);
  host_.LoadPlugin(pluginPath);
}

Session::~Session() {
  host_.Shutdown();
}

emu::Value Session::NewReader() {
  auto collect = [this](const char* prefix) {
    return [this, prefix](const emu::EventArgs& a) {
      messages_.push_back(prefix + (a.IsNil(0) ? std::string("(no message)") : a.String(0)));
    };
  };
  return host_.New("PNGReaderKRV",
                   {{"Error", collect("error: ")}, {"Warning", collect("warning: ")}});
}

emu::Value Session::Checked(emu::Value result) {
  if (const auto& raised = host_.LastException()) {
    throw Failure{raised->className + ": " + raised->message};
  }
  return result;
}

emu::Value Session::Call(const emu::Value& reader, const char* declaration,
                         std::vector<emu::Arg> args) {
  return Checked(host_.CallDeclaration(reader, declaration, std::move(args)));
}

emu::Value Session::CallNamed(const emu::Value& target, const char* name,
                              std::vector<emu::Arg> args) {
  return Checked(host_.Call(target, name, std::move(args)));
}

emu::Value Session::CallGlobal(const char* name, std::vector<emu::Arg> args) {
  return Checked(host_.CallGlobal(name, std::move(args)));
}

bool Session::CallBool(const emu::Value& reader, const char* declaration,
                       std::vector<emu::Arg> args) {
  return Call(reader, declaration, std::move(args)).AsBoolean();
}

RBInteger Session::Integer(const emu::Value& object, const char* property) {
  return host_.GetProperty(object, property).AsInteger();
}

void Session::OpenAndSetUp(const emu::Value& reader, const std::string& path, double gamma,
                           double screenGamma) {
  if (!CallBool(reader, kOpenFile, {host_.MakeFolderItem(path)})) {
    throw Failure{"cannot open " + path};
  }
  SetUp(reader, path, gamma, screenGamma);
}

void Session::SetUp(const emu::Value& reader, const std::string& what, double gamma,
                    double screenGamma) {
  if (!CallBool(reader, kApplyOptions, {gamma, screenGamma})) {
    throw Failure{what + ": not a readable PNG"};
  }
}

void Session::CheckAudit() {
  const emu::AuditReport report = host_.Audit();
  if (!report.Clean()) throw Failure{"host references were not given back:\n" + report.Format()};
}

void StreamRows(Session& session, const std::string& path, double gamma, double screenGamma,
                const RowSink& sink) {
  emu::Value reader = session.NewReader();
  session.OpenAndSetUp(reader, path, gamma, screenGamma);
  const RBInteger width = session.Integer(reader, "Width");
  const RBInteger height = session.Integer(reader, "Height");
  const RBInteger passes = session.Integer(reader, "Interlacing");
  const RBInteger rowBytes = session.Call(reader, kRowBytes, {}).AsInteger();
  const bool whole = passes > 1;
  if (rowBytes != width * 4 ||
      (whole && uint64_t(rowBytes) * uint64_t(height) > kMaxDecodedBytes)) {
    throw Failure{path + ": image too large to decode into memory"};
  }
  sink.start(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
  std::vector<emu::Value> blocks;
  for (RBInteger y = 0; y < (whole ? height : 1); ++y) {
    blocks.push_back(session.host().NewMemoryBlock(rowBytes));
  }
  for (RBInteger pass = 0; pass < passes; ++pass) {
    for (RBInteger y = 0; y < height; ++y) {
      const emu::Value& block = blocks[whole ? size_t(y) : 0];
      if (!session.CallBool(reader, kReadRowMem, {block})) {
        throw Failure{path + ": row " + std::to_string(y) + " of pass " + std::to_string(pass + 1) +
                      " could not be read"};
      }
      if (!whole) sink.take(session.host().BlockBytes(block));
    }
  }
  for (size_t y = 0; whole && y < blocks.size(); ++y) {
    sink.take(session.host().BlockBytes(blocks[y]));
    blocks[y] = emu::Value();
  }
}

DecodedRows ReadRows(Session& session, const std::string& path, double gamma, double screenGamma) {
  DecodedRows out;
  RowSink sink;
  sink.start = [&out](uint32_t width, uint32_t height) {
    out.width = width;
    out.height = height;
  };
  sink.take = [&out](const std::string& rgba) {
    out.rgba.insert(out.rgba.end(), rgba.begin(), rgba.end());
  };
  StreamRows(session, path, gamma, screenGamma, sink);
  return out;
}

}  // namespace cli
