#include "tools/pngkrv/Commands.h"

#include <fstream>
#include <iostream>

namespace cli {

namespace {

constexpr char kTextCount[] = "TextCount As Integer";
constexpr char kTextKey[] = "TextKey(index As Integer) As String";
constexpr char kTextValue[] = "TextValue(index As Integer) As String";
constexpr char kReadsRGBTag[] = "ReadsRGBTag(byref file_srgb_intent as integer) as boolean";
constexpr char kReadICCProfile[] =
    "ReadICCProfile(byref name as string, byref compression as integer, byref profile as string) "
    "as boolean";

// Every text chunk of the stream, those after the image data too: every row of every pass is read
// first, through one block, and a stream whose image can't be read lists the chunks before it.
void PrintTexts(Session& session, const emu::Value& reader) {
  const emu::Value block =
      session.host().NewMemoryBlock(session.Call(reader, "RowBytes as integer", {}).AsInteger());
  const RBInteger rows = session.Integer(reader, "Interlacing") * session.Integer(reader, "Height");
  for (RBInteger y = 0; y < rows; ++y) {
    if (!session.CallBool(reader, "ReadRow(mem as memoryblock) as boolean", {block})) break;
  }
  const RBInteger count = session.Call(reader, kTextCount, {}).AsInteger();
  if (count == 0) std::cout << "text: none\n";
  for (RBInteger i = 0; i < count; ++i) {
    std::cout << "text: " << session.Call(reader, kTextKey, {i}).Text() << "="
              << session.Call(reader, kTextValue, {i}).Text() << "\n";
  }
}

int Info(Session& session, const Options& options) {
  const std::string& path = options.positional[0];
  emu::Value reader = session.NewReader();
  session.OpenAndSetUp(reader, path, 0.0, -1.0);
  std::cout << "width: " << session.Integer(reader, "Width") << "\n"
            << "height: " << session.Integer(reader, "Height") << "\n"
            << "bit_depth: " << session.Integer(reader, "BitDepth") << "\n"
            << "color_type: " << session.Integer(reader, "ColorType") << "\n"
            << "interlace_type: " << session.Integer(reader, "InterlaceType") << "\n"
            << "passes: " << session.Integer(reader, "Interlacing") << "\n"
            << "row_bytes: " << session.Call(reader, "RowBytes as integer", {}).AsInteger() << "\n";
  emu::Value intent(RBInteger{0});
  const bool hasIntent = session.CallBool(reader, kReadsRGBTag, {emu::ByRef(intent)});
  std::cout << "srgb_intent: " << (hasIntent ? std::to_string(intent.AsInteger()) : "none") << "\n";
  emu::Value name, compression(RBInteger{0}), profile;
  const bool hasProfile = session.CallBool(
      reader, kReadICCProfile, {emu::ByRef(name), emu::ByRef(compression), emu::ByRef(profile)});
  std::cout << "icc_profile: "
            << (hasProfile ? name.Text() + ", " + std::to_string(profile.Bytes().size()) + " bytes"
                           : "none")
            << "\n";
  PrintTexts(session, reader);
  return 0;
}

int Rows(Session& session, const Options& options) {
  const std::string& path = options.positional[1];
  std::ofstream out(path, std::ios::binary);
  RowSink sink;
  sink.start = [&out](uint32_t width, uint32_t height) {
    const samples::Bytes header = samples::EncodePAM(width, height, {});
    out.write(reinterpret_cast<const char*>(header.data()), std::streamsize(header.size()));
  };
  sink.take = [&out](const std::string& rgba) {
    out.write(rgba.data(), std::streamsize(rgba.size()));
  };
  StreamRows(session, options.positional[0], options.Number("--gamma", 0.0),
             options.Number("--screen-gamma", -1.0), sink);
  if (!out) throw Failure{"cannot write " + path};
  return 0;
}

int Registry(Session& session, const Options&) {
  session.host().DumpRegistry(std::cout);
  return 0;
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"info", 1, {}, Info},
      {"rows", 2, {"--gamma", "--screen-gamma"}, Rows, {}, true},
      {"demo", 0, {"--examples", "--out"}, Demo},
      {"decode",
       2,
       {"--via", "--gamma", "--allow-damaged"},
       Decode,
       {{"--allow-damaged", 0}},
       true},
      {"encode",
       2,
       {"--type", "--alphas", "--interlace", "--filter", "--level", "--threads", "--gamma",
        "--srgb", "--icc", "--dpi", "--to-string", "--text", "--compressed-text"},
       Encode,
       {{"--alphas", 0}, {"--interlace", 0}, {"--to-string", 0}, {"--icc", 2}},
       true,
       {"--text", "--compressed-text"}},
      {"save",
       2,
       {"--mask", "--gamma", "--interlace", "--filter", "--file", "--8bit", "--alphas", "--alpha"},
       Save,
       {{"--mask", 0},
        {"--interlace", 0},
        {"--file", 0},
        {"--8bit", 0},
        {"--alphas", 0},
        {"--alpha", 0}},
       true},
      {"cgbi", 2, {"--gamma", "--to-png"}, CgBI, {{"--to-png", 0}}, true},
      {"registry", 0, {}, Registry},
  };
  return commands;
}

}  // namespace

double Options::Number(const std::string& name, double fallback) const {
  auto it = values.find(name);
  return it == values.end() ? fallback : std::stod(it->second);
}

RBInteger Options::Integer(const std::string& name, RBInteger fallback) const {
  const auto it = values.find(name);
  if (it == values.end()) return fallback;
  try {
    size_t used = 0;
    const long long value = std::stoll(it->second, &used, 0);
    if (used == it->second.size()) return static_cast<RBInteger>(value);
  } catch (const std::exception&) {
  }
  throw Failure{name + " needs an integer"};
}

std::string Options::Text(const std::string& name, const std::string& fallback) const {
  auto it = values.find(name);
  return it == values.end() ? fallback : it->second;
}

std::vector<std::string> Options::All(const std::string& name) const {
  std::vector<std::string> all;
  const auto it = values.find(name);
  if (it == values.end()) return all;
  size_t start = 0;
  for (size_t end; (end = it->second.find('\0', start)) != std::string::npos; start = end + 1) {
    all.push_back(it->second.substr(start, end - start));
  }
  all.push_back(it->second.substr(start));
  return all;
}

namespace {

int RunEachGroup(const Command& command, Session& session, const Options& options) {
  if (command.arguments == 0) return command.run(session, options);
  Options group = options;
  for (size_t at = 0; at < options.positional.size(); at += command.arguments) {
    const auto first = options.positional.begin() + static_cast<std::ptrdiff_t>(at);
    group.positional.assign(first, first + static_cast<std::ptrdiff_t>(command.arguments));
    const int status = command.run(session, group);
    if (status != 0) return status;
  }
  return 0;
}

}  // namespace

const Command* FindCommand(const std::string& name) {
  for (const Command& c : Commands()) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

int Run(const Command& command, const Options& options) {
  try {
    Session session(*options.profile, options.pluginPath);
    int status = 0;
    std::string failure;
    try {
      status = RunEachGroup(command, session, options);
    } catch (const Failure& f) {
      failure = f.message;
      status = 1;
    } catch (const UsageError& e) {
      failure = e.message;
      status = 2;
    }
    for (const std::string& m : session.messages()) std::cerr << m << "\n";
    if (!failure.empty()) std::cerr << "pngkrv: " << failure << "\n";
    session.CheckAudit();
    return status;
  } catch (const Failure& f) {
    std::cerr << "pngkrv: " << f.message << "\n";
  } catch (const std::exception& e) {
    std::cerr << "pngkrv: " << e.what() << "\n";
  }
  return 1;
}

}  // namespace cli
