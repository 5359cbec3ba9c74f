// The commands of pngkrv.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/pngkrv/Session.h"

namespace cli {

struct Options {
  const emu::Profile* profile = nullptr;
  std::string pluginPath;
  std::map<std::string, std::string> values;  // "--name" → value
  std::vector<std::string> positional;

  bool Has(const std::string& name) const { return values.count(name) != 0; }
  double Number(const std::string& name, double fallback) const;
  // The option as an integer (decimal, octal or hexadecimal); a Failure when it is none.
  RBInteger Integer(const std::string& name, RBInteger fallback) const;
  std::string Text(const std::string& name, const std::string& fallback) const;
  // Every value of the option, in the order given (see Command::repeatable); none when absent.
  std::vector<std::string> All(const std::string& name) const;
};

struct Command {
  const char* name;
  size_t arguments;                  // positional arguments
  std::vector<std::string> options;  // "--name VALUE" options it takes
  int (*run)(Session& session, const Options& options);
  // Options among `options` that take other than one value: 0 (a flag, kept as "") or more
  // (kept in Options::values joined by NUL characters).
  std::map<std::string, size_t> valueCounts = {};
  // Takes any number of groups of `arguments` positional arguments, run one after the other in
  // the same session.
  bool repeats = false;
  // Options among `options` that may be given more than once, their values kept in order, joined
  // by NUL characters.
  std::vector<std::string> repeatable = {};
};

const Command* FindCommand(const std::string& name);

// The commands kept in files of their own.
int Decode(Session& session, const Options& options);  // Decode.cpp
int CgBI(Session& session, const Options& options);    // Decode.cpp
int Encode(Session& session, const Options& options);  // Encode.cpp
int Save(Session& session, const Options& options);    // Save.cpp
int Demo(Session& session, const Options& options);    // Demo.cpp

// Runs the command in a new session, once for each group of positional arguments: exit status 0
// on success, 1 on failure with every Error and Warning message on standard error (the groups
// after a failure are not run), 2 for options that do not go together.
int Run(const Command& command, const Options& options);

}  // namespace cli
