// pngkrv: the PNG plug-in run inside the host emulator, as Xojo user code would run it.
#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "tools/pngkrv/Commands.h"

namespace {

constexpr char kUsage[] =
    "usage: pngkrv [--host PROFILE] [--plugin PATH] COMMAND ...\n"
    "  info FILE.png                  header, sRGB intent, ICC profile and text chunks\n"
    "  rows [--gamma G] [--screen-gamma S] FILE.png OUT.pam\n"
    "                                 decode row by row to PAM\n"
    "  decode [--via reader|string|file|combined] [--gamma G] [--allow-damaged] FILE.png OUT.pam\n"
    "                                 decode into a picture and mask, to PAM (default: string)\n"
    "  decode --via alpha-reader [--gamma G] [--allow-damaged] FILE.png OUT.pam\n"
    "  decode --via alpha-string|alpha-file FILE.png OUT.pam\n"
    "                                 decode into a picture with an alpha channel, to PAM\n"
    "  encode [--type rgb|rgba|gray|graya|palette] [--alphas] [--interlace] [--filter F]\n"
    "         [--level L] [--threads N] [--gamma G] [--srgb INTENT] [--icc NAME FILE]\n"
    "         [--dpi N] [--text KEY=VALUE]... [--compressed-text KEY=VALUE]... [--to-string]\n"
    "         IN OUT.png\n"
    "                                 a PAM or PNG file written step by step with PNGWriterKRV;\n"
    "                                 --threads sets its Threads (1: libpng alone, 0: every core)\n"
    "  save [--mask] [--gamma G] [--interlace] [--filter F] [--file] IN OUT.png\n"
    "  save --8bit [--alphas] [--gamma G] [--interlace] [--filter F] IN OUT.png\n"
    "  save --alpha [--gamma G] [--file] IN OUT.png\n"
    "                                 a PAM or PNG file written in one call\n"
    "  cgbi [--gamma G] IN.png OUT.pam  CgBI data opened with OpenSpecialData, to PAM\n"
    "  cgbi --to-png IN.png OUT.png     CgBI data from an iOS app converted with\n"
    "                                 CgBIToPNGStringKRV into a standard PNG file\n"
    "  registry                       every class, module and method the plug-in registered\n"
    "  demo [--examples DIR] [--out DIR]\n"
    "                                 make example PNGs, decode and save each again\n"
    "  --help                         this text and the host profiles\n"
    "rows, decode, encode, save and cgbi take several IN OUT pairs in one run.\n";

int Usage(const std::string& problem) {
  if (!problem.empty()) std::cerr << "pngkrv: " << problem << "\n";
  std::cerr << kUsage;
  return 2;
}

// What a profile keeps its pictures in.
const char* PictureStorage(const emu::Profile& p) {
  if (p.app != emu::AppKind::Desktop) return "gd images";
  switch (p.platform) {
    case emu::Platform::Linux:
      return "cairo image surfaces";
    case emu::Platform::Mac:
      return "bitmap contexts (the macOS stand-in)";
    case emu::Platform::Windows:
      return "premultiplied BGRA pixels";
    case emu::Platform::WindowsGdiplus:
      return "GDI+ bitmaps";
  }
  return "";
}

void PrintHelp() {
  std::cout << kUsage << "\nhost profiles (default " << emu::DesktopProfileName("2019.1")
            << ") and their pictures:\n";
  for (const emu::Profile& p : emu::BuiltInProfiles()) {
    std::cout << "  " << p.name << std::string(34 - std::min<size_t>(p.name.size(), 33), ' ')
              << PictureStorage(p) << "\n";
  }
}

std::optional<double> ParseNumber(const std::string& text) {
  try {
    size_t used = 0;
    const double value = std::stod(text, &used);
    if (used == text.size()) return value;
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

// Takes the options of `command` ("--name VALUE", flags and options of several values) out of
// `args` into `options`.
bool TakeOptions(std::vector<std::string>& args, const cli::Command& command, cli::Options& options,
                 std::string& problem) {
  std::vector<std::string> rest;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    bool known = false;
    for (const std::string& n : command.options) known = known || a == n;
    if (!known) {
      if (a.rfind("--", 0) == 0) {
        problem = "unknown option " + a;
        return false;
      }
      rest.push_back(a);
      continue;
    }
    const auto count = command.valueCounts.find(a);
    const size_t values = count == command.valueCounts.end() ? 1 : count->second;
    if (args.size() - i - 1 < values) {
      problem =
          a + (values == 1 ? " needs a value" : " needs " + std::to_string(values) + " values");
      return false;
    }
    std::string value = values ? args[++i] : "";
    for (size_t v = 1; v < values; ++v) value += '\0' + args[++i];
    const bool again =
        options.Has(a) && std::find(command.repeatable.begin(), command.repeatable.end(), a) !=
                              command.repeatable.end();
    options.values[a] = again ? options.values[a] + '\0' + value : value;
  }
  args = rest;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  cli::Options options;
  options.profile = emu::FindProfile(emu::DesktopProfileName("2019.1"));
  options.pluginPath = PNGKRV_PLUGIN_PATH;
  while (!args.empty() && args[0].rfind("--", 0) == 0) {
    if (args[0] == "--help") {
      PrintHelp();
      return 0;
    }
    if (args.size() < 2) return Usage(args[0] + " needs a value");
    if (args[0] == "--host") {
      options.profile = emu::FindProfile(args[1]);
      if (options.profile == nullptr) return Usage("unknown host profile " + args[1]);
    } else if (args[0] == "--plugin") {
      options.pluginPath = args[1];
    } else {
      return Usage("unknown option " + args[0]);
    }
    args.erase(args.begin(), args.begin() + 2);
  }
  if (args.empty()) return Usage("");
  const cli::Command* command = cli::FindCommand(args[0]);
  if (command == nullptr) return Usage("unknown command " + args[0]);
  args.erase(args.begin());
  std::string problem;
  if (!TakeOptions(args, *command, options, problem)) return Usage(problem);
  for (const char* number : {"--gamma", "--screen-gamma"}) {
    auto it = options.values.find(number);
    if (it != options.values.end() && !ParseNumber(it->second)) {
      return Usage(std::string(number) + " needs a number");
    }
  }
  const size_t n = command->arguments;
  const bool counted = command->repeats ? !args.empty() && args.size() % n == 0 : args.size() == n;
  if (!counted) {
    return Usage(std::string(command->name) + ": wrong number of arguments");
  }
  options.positional = args;
  return cli::Run(*command, options);
}
