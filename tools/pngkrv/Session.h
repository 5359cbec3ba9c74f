// A run of the plug-in inside the host emulator, as the command-line tool drives it: one host
// profile, the plug-in loaded, and a PNGReaderKRV whose Error and Warning events are collected.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "emulator/Emulator.h"
#include "tools/samples/Samples.h"

namespace cli {

// A failure that ends the command with exit status 1; its text goes to standard error.
struct Failure {
  std::string message;
};

// Options that do not go together: the command ends with exit status 2.
struct UsageError {
  std::string message;
};

class Session {
 public:
  Session(const emu::Profile& profile, const std::string& pluginPath);
  ~Session();

  emu::Host& host() { return host_; }

  // A new PNGReaderKRV whose events land in messages().
  emu::Value NewReader();
  // Calls a reader method by its exact declaration.
  emu::Value Call(const emu::Value& reader, const char* declaration, std::vector<emu::Arg> args);
  bool CallBool(const emu::Value& reader, const char* declaration, std::vector<emu::Arg> args);
  // Calls a method of `target` (a folder item's extension methods included) or a global method
  // by name, the overload chosen by the arguments.
  emu::Value CallNamed(const emu::Value& target, const char* name, std::vector<emu::Arg> args);
  emu::Value CallGlobal(const char* name, std::vector<emu::Arg> args);
  RBInteger Integer(const emu::Value& object, const char* property);

  // Opens FILE with OpenFile and sets it up with ApplyOptions(gamma, screenGamma).
  void OpenAndSetUp(const emu::Value& reader, const std::string& path, double gamma,
                    double screenGamma);
  // Sets up an opened reader with ApplyOptions(gamma, screenGamma); `what` names the source.
  void SetUp(const emu::Value& reader, const std::string& what, double gamma, double screenGamma);

  // Every Error and Warning message so far, each prefixed with "error: " or "warning: ".
  const std::vector<std::string>& messages() const { return messages_; }
  // Throws a Failure unless every host reference was given back.
  void CheckAudit();

 private:
  // The result of the last call, or a Failure when the plug-in raised an exception in it.
  emu::Value Checked(emu::Value result);

  emu::Host& host_;
  std::vector<std::string> messages_;
};

// The rows of a PNG file as user code reads them: OpenFile, ApplyOptions, and "ReadRow(mem as
// memoryblock) as boolean" passes × height times. A plain image is read into one block, each row
// handed to `take` as it comes; an interlaced one into a block per image row, handed over once
// its last pass is read. `start` gets the size first.
struct RowSink {
  std::function<void(uint32_t width, uint32_t height)> start;
  std::function<void(const std::string& rgba)> take;
};
void StreamRows(Session& session, const std::string& path, double gamma, double screenGamma,
                const RowSink& sink);

// The same rows gathered in memory.
struct DecodedRows {
  uint32_t width = 0;
  uint32_t height = 0;
  samples::Bytes rgba;
};
DecodedRows ReadRows(Session& session, const std::string& path, double gamma, double screenGamma);

}  // namespace cli
