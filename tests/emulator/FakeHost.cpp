#include "tests/emulator/FakeHost.h"

#include <unistd.h>

#include <filesystem>

namespace emutest {

void StartWithPlugin(const emu::Profile& profile) {
  static int copies = 0;
  emu::Host& host = emu::Host::Instance();
  host.Shutdown();
  host.Start(profile);
  namespace fs = std::filesystem;
  fs::path copy = fs::temp_directory_path() /
                  ("emu-fake-" + std::to_string(getpid()) + "-" + std::to_string(++copies) + ".so");
  fs::copy_file(FAKE_PLUGIN_PATH, copy, fs::copy_options::overwrite_existing);
  host.LoadPlugin(copy.string());
  fs::remove(copy);
}

void HostTest::SetUp() {
  host.Shutdown();
  host.Start(*emu::FindProfile("desktop-2019.1"));
}

void HostTest::TearDown() {
  emu::AuditReport report = host.Audit();
  EXPECT_TRUE(report.Clean()) << report.Format();
}

}  // namespace emutest
