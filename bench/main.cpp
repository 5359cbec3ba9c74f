// The plug-in against bare libpng, side by side in one run: decode, rows and encode over a corpus
// made at start and real images taken from Debian packages (corpus.list), with ratios plug-in /
// libpng by image and by class of real image, the parallel deflate engine against libpng's
// encoder, and the peak memory of single decodes and encodes measured in processes of their own.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>

#include "bench/Bare.h"
#include "bench/Plugin.h"
#include "writer/ParallelDeflate.h"

extern char** environ;

namespace bench {
namespace {

// Median CPU time of the benchmark's thread and median wall time in milliseconds of every
// benchmark, by name.
class Collector : public benchmark::ConsoleReporter {
 public:
  Collector() : ConsoleReporter(OO_None) {}
  explicit Collector(std::ostream& out) : ConsoleReporter(OO_None) {
    SetOutputStream(&out);
    SetErrorStream(&out);
  }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
        wall[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> medians;
  std::map<std::string, double> wall;
};

void Register(const std::string& name, std::function<size_t()> work) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [work](benchmark::State& state) {
                                 for (auto _ : state) benchmark::DoNotOptimize(work());
                               })
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.3)
      ->Repetitions(3)
      ->ReportAggregatesOnly(true);
}

using Shared = std::shared_ptr<emu::Value>;

// The decodes of one image: bare libpng and both routes of the plug-in. Each makes its image anew,
// as the plug-in makes a new picture.
void RegisterDecodes(const Image& image, Plugin& plugin, const Shared& png) {
  const std::string n = "/" + image.name;
  Register("decode/bare" + n, [&image] {
    Bytes rgba;
    return BareDecode(image.png, rgba);
  });
  Register("decode/string" + n, [&plugin, png] { return plugin.DecodeString(*png); });
  Register("decode/reader" + n, [&plugin, png] { return plugin.ReadPicture(*png); });
}

void RegisterImage(const Image& image, Plugin& plugin) {
  const std::string n = "/" + image.name;
  auto png = std::make_shared<emu::Value>(plugin.String(image.png));
  RegisterDecodes(image, plugin, png);
  Register("decode/spng" + n, [&image] {
    Bytes rgba;
    return SpngDecode(image.png, rgba);
  });
  Register("decode/stb" + n, [&image] { return StbDecode(image.png); });
  if (image.interlaced) return;
  Register("rows/bare" + n, [&image] { return BareRows(image.png); });
  Register("rows/plugin" + n, [&plugin, png] { return plugin.ReadRows(*png); });
  auto pictures = std::make_shared<std::pair<emu::Value, emu::Value>>(plugin.Pictures(image));
  const bool alpha = image.alpha;
  Register("encode/bare" + n, [&image, alpha] { return BareEncode(image, alpha); });
  Register("encode/engine" + n, [&image, alpha] { return EngineEncode(image, alpha, 0); });
  Register("encode/engine1" + n, [&image, alpha] { return EngineEncode(image, alpha, 1); });
  Register("encode/string" + n,
           [&plugin, pictures] { return plugin.EncodeString(pictures->first, pictures->second); });
  Register("encode/writer" + n, [&plugin, pictures] {
    return plugin.EncodeWriter(pictures->first, pictures->second, 1).IsNil() ? 0 : 1;
  });
  Register("encode/threads" + n, [&plugin, pictures] {
    return plugin.EncodeWriter(pictures->first, pictures->second, 0).IsNil() ? 0 : 1;
  });
}

// Every image decoded once through each route before anything is measured, so that every
// measurement meets the heap that the other images left behind.
void WarmUp(const std::vector<Image>& corpus, Plugin& plugin) {
  for (const Image& image : corpus) {
    Bytes rgba;
    BareDecode(image.png, rgba);
    emu::Value png = plugin.String(image.png);
    plugin.DecodeString(png);
    plugin.ReadPicture(png);
  }
}

double Ratio(const std::map<std::string, double>& t, const std::string& a, const std::string& b) {
  auto x = t.find(a), y = t.find(b);
  return x == t.end() || y == t.end() || y->second <= 0 ? 0 : x->second / y->second;
}

double Median(std::vector<double> v) {
  v.erase(std::remove(v.begin(), v.end(), 0.0), v.end());
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

std::string Fixed(double v) {
  if (v == 0) return "-";
  std::ostringstream s;
  s.setf(std::ios::fixed);
  s.precision(3);
  s << v;
  return s.str();
}

using Medians = std::map<std::string, double>;
using Groups = std::map<std::string, std::vector<double>>;

// The group of an image's decode ratios: a made image's by its colour type and interlace, a real
// image's by its class.
std::string KindOf(const Image& image) {
  if (!image.kind.empty()) return "real " + image.kind;
  return image.interlaced       ? "decode interlaced"
         : image.colorType == 6 ? "decode plain RGBA"
         : image.colorType == 2 ? "decode plain RGB"
                                : "decode palette";
}

// The prefix of a real image's other groups, which are kept apart from the made images'.
std::string Prefix(const Image& image) {
  return image.kind.empty() ? "" : "real ";
}

// The ratio table of the run that decoded every image in one process, one line an image.
void PrintWarm(const std::vector<Image>& corpus, const Medians& t, Groups& groups) {
  printf("\nwarm heap: every image decoded in one process after the others\n");
  printf("%-22s %8s %8s %8s %8s %8s %8s %8s %8s %8s\n", "image", "bare ms", "string", "reader",
         "rd/str", "spng", "stb", "rows", "enc str", "enc wrt");
  for (const Image& image : corpus) {
    const std::string n = "/" + image.name;
    const double decodeString = Ratio(t, "decode/string" + n, "decode/bare" + n);
    const double decodeReader = Ratio(t, "decode/reader" + n, "decode/bare" + n);
    const double readerString = Ratio(t, "decode/reader" + n, "decode/string" + n);
    const double rows = Ratio(t, "rows/plugin" + n, "rows/bare" + n);
    const double encodeString = Ratio(t, "encode/string" + n, "encode/bare" + n);
    const double encodeWriter = Ratio(t, "encode/writer" + n, "encode/bare" + n);
    printf("%-22s %8.2f %8s %8s %8s %8s %8s %8s %8s %8s\n", image.name.c_str(),
           t.count("decode/bare" + n) ? t.at("decode/bare" + n) : 0.0, Fixed(decodeString).c_str(),
           Fixed(decodeReader).c_str(), Fixed(readerString).c_str(),
           Fixed(Ratio(t, "decode/spng" + n, "decode/bare" + n)).c_str(),
           Fixed(Ratio(t, "decode/stb" + n, "decode/bare" + n)).c_str(), Fixed(rows).c_str(),
           Fixed(encodeString).c_str(), Fixed(encodeWriter).c_str());
    groups[KindOf(image)].push_back(decodeString);
    groups[KindOf(image)].push_back(decodeReader);
    groups[Prefix(image) + "reader / string"].push_back(readerString);
    groups[Prefix(image) + "rows"].push_back(rows);
    groups[Prefix(image) + "encode"].push_back(encodeString);
    groups[Prefix(image) + "encode"].push_back(encodeWriter);
  }
}

// The ratio table of the decodes made each in a process of its own.
void PrintFresh(const std::vector<Image>& corpus, const Medians& t, Groups& groups) {
  printf("\nfresh heap: each image decoded in a process of its own\n");
  printf("%-22s %8s %8s %8s %8s\n", "image", "bare ms", "string", "reader", "rd/str");
  for (const Image& image : corpus) {
    const std::string n = "/" + image.name;
    if (!t.count("decode/bare" + n)) continue;
    const double readerString = Ratio(t, "decode/reader" + n, "decode/string" + n);
    printf("%-22s %8.2f %8s %8s %8s\n", image.name.c_str(), t.at("decode/bare" + n),
           Fixed(Ratio(t, "decode/string" + n, "decode/bare" + n)).c_str(),
           Fixed(Ratio(t, "decode/reader" + n, "decode/bare" + n)).c_str(),
           Fixed(readerString).c_str());
    groups[KindOf(image)].push_back(Ratio(t, "decode/string" + n, "decode/bare" + n));
    groups[KindOf(image)].push_back(Ratio(t, "decode/reader" + n, "decode/bare" + n));
    groups[Prefix(image) + "reader / string"].push_back(readerString);
  }
}

// The parallel deflate engine against libpng's encoder, image by image: its time on every core
// and on one against libpng's, the speed-up, and its stream's size against libpng's IDAT data;
// then the same for the plug-in's writer with Threads = 0 (from the pictures, as "enc wrt"), its
// PNG's size against libpng's. Wall time, as the work is spread over threads that the CPU time of
// the benchmark's own thread does not see.
void PrintEngine(const std::vector<Image>& corpus, const Medians& t, Plugin& plugin,
                 Groups& groups) {
  printf(
      "\nparallel deflate engine and the writer with Threads = 0 on %d threads against libpng's "
      "encoder, wall time\n",
      pdeflate::ThreadCount(0));
  printf("%-22s %8s %8s %8s %8s %8s %8s %8s %8s\n", "image", "bare ms", "engine", "1 thread",
         "speed-up", "size", "writer", "speed-up", "size");
  for (const Image& image : corpus) {
    const std::string n = "/" + image.name;
    if (!t.count("encode/engine" + n)) continue;
    Bytes stream;
    BareEncode(image, image.alpha, &stream);
    const double size = double(EngineEncode(image, image.alpha, 0)) / IdatBytes(stream);
    const auto pictures = plugin.Pictures(image);
    const double written =
        double(plugin.EncodeWriter(pictures.first, pictures.second, 0).Bytes().size()) /
        stream.size();
    const double engine = Ratio(t, "encode/engine" + n, "encode/bare" + n);
    const double one = Ratio(t, "encode/engine1" + n, "encode/bare" + n);
    const double writer = Ratio(t, "encode/threads" + n, "encode/bare" + n);
    printf("%-22s %8.2f %8s %8s %8s %8s %8s %8s %8s\n", image.name.c_str(), t.at("encode/bare" + n),
           Fixed(engine).c_str(), Fixed(one).c_str(), Fixed(engine > 0 ? 1 / engine : 0).c_str(),
           Fixed(size).c_str(), Fixed(writer).c_str(), Fixed(writer > 0 ? 1 / writer : 0).c_str(),
           Fixed(written).c_str());
    groups[Prefix(image) + "engine / bare"].push_back(engine);
    groups[Prefix(image) + "engine size / libpng"].push_back(size);
    groups[Prefix(image) + "threads / bare"].push_back(writer);
    groups[Prefix(image) + "threads size / libpng"].push_back(written);
  }
}

// The real images by class: for each route the median, over the class's images, of the ratio to
// bare libpng (rd/str: the reader against the one-call route).
void PrintClasses(const std::vector<Image>& corpus, const Medians& t) {
  const struct {
    const char* title;
    const char* measured;
    const char* against;
  } kRoutes[] = {
      {"string", "decode/string", "decode/bare"},   {"reader", "decode/reader", "decode/bare"},
      {"rd/str", "decode/reader", "decode/string"}, {"rows", "rows/plugin", "rows/bare"},
      {"enc str", "encode/string", "encode/bare"},  {"enc wrt", "encode/writer", "encode/bare"}};
  std::map<std::string, std::map<std::string, std::vector<double>>> classes;
  std::map<std::string, int> counts;
  for (const Image& image : corpus) {
    if (image.kind.empty()) continue;
    ++counts[image.kind];
    const std::string n = "/" + image.name;
    for (const auto& route : kRoutes) {
      classes[image.kind][route.title].push_back(Ratio(t, route.measured + n, route.against + n));
    }
  }
  if (classes.empty()) return;
  printf("\nreal images by class, warm heap: median ratio over the class's images\n");
  printf("%-14s %6s", "class", "images");
  for (const auto& route : kRoutes) printf(" %8s", route.title);
  printf("\n");
  for (const auto& [kind, routes] : classes) {
    printf("%-14s %6d", kind.c_str(), counts[kind]);
    for (const auto& route : kRoutes) printf(" %8s", Fixed(Median(routes.at(route.title))).c_str());
    printf("\n");
  }
}

// The median and the worst ratio of each group against its target.
void PrintTargets(const Groups& warm, const Groups& fresh) {
  const std::map<std::string, double> targets = {{"decode plain RGB", 1.00},
                                                 {"decode plain RGBA", 1.15},
                                                 {"decode palette", 1.00},
                                                 {"decode interlaced", 1.10},
                                                 {"rows", 1.02},
                                                 {"encode", 1.00},
                                                 {"reader / string", 1.03},
                                                 {"real photo", 1.00},
                                                 {"real sprites", 1.10},
                                                 {"real palette-trns", 1.00},
                                                 {"real palette", 1.00},
                                                 {"real rows", 1.02},
                                                 {"real encode", 1.02},
                                                 {"real reader / string", 1.03},
                                                 {"real engine / bare", 1 / 1.8},
                                                 {"real engine size / libpng", 1.01},
                                                 {"real threads / bare", 1 / 1.8},
                                                 {"real threads size / libpng", 1.01}};
  printf("\n%-26s %8s %8s %8s %8s\n", "ratio (warm)", "median", "worst", "fresh", "target");
  for (const auto& [kind, values] : warm) {
    auto target = targets.find(kind);
    auto other = fresh.find(kind);
    std::vector<double> measured = values;
    measured.erase(std::remove(measured.begin(), measured.end(), 0.0), measured.end());
    const double worst = measured.empty() ? 0 : *std::max_element(measured.begin(), measured.end());
    printf("%-26s %8s %8s %8s %8s\n", kind.c_str(), Fixed(Median(values)).c_str(),
           Fixed(worst).c_str(), other == fresh.end() ? "-" : Fixed(Median(other->second)).c_str(),
           target == targets.end() ? "-" : Fixed(target->second).c_str());
  }
}

// ---------------------------------------------------------------------------------------------
// Peak memory, one measurement a process
// ---------------------------------------------------------------------------------------------

long StatusKiB(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key, 0) == 0) return std::stol(line.substr(strlen(key)));
  }
  return -1;
}

// In the child: the peak resident size that one operation adds, in bytes. `source` is the
// megapixels of a made RGBA image or the file of a real one; `what` one of "decode" (the one-call
// route), "reader", "rows", "encode" (the one-call route, libpng alone) and "encode-mt" (the writer
// with Threads = 0); "decode-adam7" and "reader-adam7" decode an interlaced made image.
int MeasurePeak(const std::string& what, const std::string& source) {
  const std::string kAdam7 = "-adam7";
  const bool adam7 = what.size() > kAdam7.size() &&
                     what.compare(what.size() - kAdam7.size(), kAdam7.size(), kAdam7) == 0;
  Image image = source.find_first_not_of("0123456789") == std::string::npos
                    ? MakeImage(Recipe{std::stoi(source), 6, adam7})
                    : LoadImage(source, "", source);
  Plugin plugin;
  emu::Value png = plugin.String(image.png);
  auto pictures = plugin.Pictures(image);
  image.rgba = Bytes();
  image.rgba.shrink_to_fit();
  // Memory freed so far goes back to the system, so the operation cannot reuse it unseen.
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
  const long before = StatusKiB("VmRSS:");
  if (what == "encode") {
    plugin.EncodeString(pictures.first, pictures.second);
  } else if (what == "encode-mt") {
    plugin.EncodeWriter(pictures.first, pictures.second, 0);
  } else if (what == "reader" || what == "reader-adam7") {
    plugin.ReadPicture(png);
  } else if (what == "rows") {
    plugin.ReadRows(png);
  } else {
    plugin.DecodeString(png);
  }
  printf("%ld\n", (StatusKiB("VmHWM:") - before) * 1024);
  return 0;
}

// In the child: the decodes of the one image named, whose stream is in the file `path`, in a
// process that has decoded nothing else (nor made the image: that would leave the heap as large
// buffers leave it); prints "benchmark median" lines.
int MeasureFresh(const std::string& name, const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  Image image;
  image.name = name;
  image.png.resize(static_cast<size_t>(file.tellg()));
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(image.png.data()), std::streamsize(image.png.size()))) {
    return 1;
  }
  Plugin plugin;
  RegisterDecodes(image, plugin, std::make_shared<emu::Value>(plugin.String(image.png)));
  Collector collector(std::cerr);
  benchmark::RunSpecifiedBenchmarks(&collector);
  for (const auto& [benchmark, median] : collector.medians) {
    printf("%s %.6f\n", benchmark.c_str(), median);
  }
  return 0;
}

// Runs this program again with `args`; what it printed, or nothing when it failed.
std::string RunChild(const std::vector<std::string>& args) {
  std::vector<char*> argv = {const_cast<char*>("/proc/self/exe")};
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  int fds[2];
  if (pipe(fds) != 0) return "";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  std::string out;
  char buffer[256];
  ssize_t n;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) out.append(buffer, size_t(n));
  close(fds[0]);
  int status = 0;
  if (spawned == 0) waitpid(pid, &status, 0);
  return spawned == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? out : "";
}

// The fresh-heap medians of every image measured in the warm run.
Medians MeasureAllFresh(const std::vector<Image>& corpus, const Medians& warm) {
  Medians fresh;
  for (const Image& image : corpus) {
    if (!warm.count("decode/string/" + image.name)) continue;
    char path[] = "/tmp/pngkrv-bench-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) continue;
    const bool written = write(fd, image.png.data(), image.png.size()) == ssize_t(image.png.size());
    close(fd);
    std::istringstream lines(written ? RunChild({"--fresh", image.name, path}) : "");
    unlink(path);
    std::string benchmark;
    double median = 0;
    while (lines >> benchmark >> median) fresh[benchmark] = median;
  }
  return fresh;
}

// Peak memory of each route for the made RGBA images, plain and interlaced, beyond what the decode
// returns: the host picture and its mask, 4 bytes a pixel each.
void PrintPeaks(const std::vector<int>& sizes) {
  printf("\n%-14s %4s %14s %14s %10s %14s\n", "peak memory", "MP", "peak", "beyond", "% picture",
         "bound");
  for (const char* what :
       {"decode", "reader", "rows", "decode-adam7", "reader-adam7", "encode", "encode-mt"}) {
    const std::string route = what;
    for (int mp : sizes) {
      const double pixels = mp == 1 ? 1e6 : mp == 4 ? 4e6 : 16e6;
      const std::string out = RunChild({"--peak", what, std::to_string(mp)});
      const long peak = out.empty() ? -1 : std::stol(out);
      const bool decode = route != "rows" && route.rfind("encode", 0) != 0;
      const double beyond = peak - (decode ? pixels * 8 : 0);
      // Row routes: a tenth of the picture and 1 MiB; an interlaced image may add one image.
      const bool adam7 = route.find("adam7") != std::string::npos;
      const double bound = (adam7 ? pixels * 4 : 0.1 * pixels * 4) + 1048576.0;
      printf("%-14s %4d %14ld %14.0f %10.1f %14s\n", what, mp, peak, beyond,
             100 * beyond / (pixels * 4),
             route.rfind("encode", 0) == 0 ? "-" : std::to_string(long(bound)).c_str());
    }
  }
  printf(
      "(bytes; beyond: past the picture and mask a decode returns; %% picture: beyond / (4 "
      "bytes a pixel))\n");
}

// Peak memory of each route for each real image, beyond what the decode returns: the host
// picture (4 bytes a pixel) and, for an image with transparency, its mask (as many). The row
// route returns nothing; an encode is measured from pictures that exist already.
void PrintRealPeaks(const std::vector<Image>& corpus, const std::string& dir) {
  bool any = false;
  for (const Image& image : corpus) {
    if (image.kind.empty()) continue;
    if (!any) {
      printf("\n%-18s %-9s %12s %12s %12s %10s %12s\n", "peak memory", "route", "peak", "returned",
             "beyond", "% picture", "bound");
      any = true;
    }
    const double pixels = double(image.width) * image.height;
    const double picture = pixels * 4 * (image.alpha ? 2 : 1);
    for (const char* route : {"decode", "reader", "rows", "encode", "encode-mt"}) {
      const std::string out = RunChild({"--peak", route, dir + "/" + image.name + ".png"});
      const long peak = out.empty() ? -1 : std::stol(out);
      const bool decode = std::string(route) == "decode" || std::string(route) == "reader";
      const double returned = decode ? picture : 0;
      // Row routes hold at most a tenth of the picture and 1 MiB; an interlaced image one image.
      const double bound = image.interlaced ? pixels * 4 + 1048576.0 : 0.1 * pixels * 4 + 1048576.0;
      const std::string limit = std::to_string(static_cast<long>(bound));
      printf("%-18s %-9s %12ld %12.0f %12.0f %10.1f %12s\n", image.name.c_str(), route, peak,
             returned, peak - returned, 100 * (peak - returned) / (pixels * 4),
             std::string(route).rfind("encode", 0) == 0 ? "-" : limit.c_str());
    }
  }
  if (any) printf("(bytes; %% picture: beyond / (4 bytes a pixel))\n");
}

struct Options {
  std::vector<int> sizes = {1, 4, 16};
  std::string corpus;  // the folder of the real images, none when empty
  bool realOnly = false;
};

// Takes this program's own options out of argv, leaving Google Benchmark's.
Options ParseOptions(int& argc, char** argv) {
  Options options;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (strncmp(argv[i], "--sizes=", 8) == 0) {
      options.sizes.clear();
      std::stringstream list(argv[i] + 8);
      std::string item;
      while (std::getline(list, item, ',')) options.sizes.push_back(std::stoi(item));
    } else if (strncmp(argv[i], "--corpus=", 9) == 0) {
      options.corpus = argv[i] + 9;
    } else if (strcmp(argv[i], "--real-only") == 0) {
      options.realOnly = true;
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  return options;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc == 4 && strcmp(argv[1], "--peak") == 0) return bench::MeasurePeak(argv[2], argv[3]);
  if (argc == 4 && strcmp(argv[1], "--fresh") == 0) {
    int none = 1;
    benchmark::Initialize(&none, argv);
    return bench::MeasureFresh(argv[2], argv[3]);
  }
  const bench::Options options = bench::ParseOptions(argc, argv);
  // Every benchmark's repetitions interleaved with the others', in random order, so that a
  // change in the machine's load falls on plug-in and libpng alike; options given win.
  std::vector<char*> args = {argv[0],
                             const_cast<char*>("--benchmark_enable_random_interleaving=true")};
  args.insert(args.end(), argv + 1, argv + argc);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  std::vector<bench::Image> corpus;
  if (!options.realOnly) {
    for (const bench::Recipe& recipe : bench::CorpusRecipes(options.sizes))
      corpus.push_back(MakeImage(recipe));
  }
  if (!options.corpus.empty()) {
    for (const bench::Listed& item : bench::ReadList(PNGKRV_BENCH_LIST)) {
      corpus.push_back(
          bench::LoadImage(item.name, item.kind, options.corpus + "/" + item.name + ".png"));
    }
  }
  bench::Plugin plugin;
  bench::WarmUp(corpus, plugin);
  for (const bench::Image& image : corpus) bench::RegisterImage(image, plugin);
  bench::Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  bench::Groups warm, fresh;
  bench::PrintWarm(corpus, collector.medians, warm);
  bench::PrintFresh(corpus, bench::MeasureAllFresh(corpus, collector.medians), fresh);
  bench::PrintEngine(corpus, collector.wall, plugin, warm);
  bench::PrintClasses(corpus, collector.medians);
  bench::PrintTargets(warm, fresh);
  if (!options.realOnly) bench::PrintPeaks(options.sizes);
  if (!options.corpus.empty()) bench::PrintRealPeaks(corpus, options.corpus);
  return 0;
}
