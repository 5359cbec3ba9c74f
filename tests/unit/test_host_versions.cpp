// Version thresholds that the emulated hosts do not tell apart by their answers (their hosts
// serve both routes): on each side of one, the plug-in takes the other route, seen in what it
// asks of the host.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "host/Files.h"
#include "host/Text.h"
#include "tests/unit/HostResolver.h"

namespace {

std::vector<std::string> asked;  // entry point names, and "property NAME" for string properties
REALGetPropValueStringProc hostGetString = nullptr;

RBBoolean SpyGetString(REALobject object, const char* name, REALstring* value) {
  asked.push_back(std::string("property ") + name);
  return hostGetString(object, name, value);
}

void* SpyResolver(const char* name) {
  asked.push_back(name);
  void* entry = emu::Host::Resolver()(name);
  if (entry != nullptr && strcmp(name, "REALGetPropValueString") == 0) {
    hostGetString = reinterpret_cast<REALGetPropValueStringProc>(entry);
    return reinterpret_cast<void*>(SpyGetString);
  }
  return entry;
}

class Thresholds : public unittest::HostTest {
 protected:
  // What the plug-in asks of a host of `version` while it runs `operation`.
  std::vector<std::string> AskedDoing(double version, const std::function<void()>& operation) {
    Use(version);
    LearnHost(SpyResolver);
    asked.clear();
    operation();
    return asked;
  }
  static bool Has(const std::vector<std::string>& names, const char* name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  }
};

TEST_F(Thresholds, EachSideTakesItsRoute) {
  const struct {
    const char* decision;
    double before;
    double from;
    std::function<void()> operation;
    const char* askedBefore;
    const char* askedFrom;
  } kCases[] = {
      {"UTF-16 text built with its encoding", 2011.99, 2012.0,
       [] {
         const char16_t text[] = u"\u00E9t\u00E9";
         emu::Value built = emu::Value::AdoptString(
             REALBuildUnicodeString(text, sizeof text - 2, kREALTextEncodingUTF16));
       },
       "REALSetStringEncoding", "REALBuildStringWithEncoding"},
      {"text read through string data records", 2011.99, 2012.0,
       [] {
         emu::Value s = emu::Host::Instance().MakeText("\u00E9t\u00E9", 0x201);
         rbText text(s.AsString());
         EXPECT_STREQ(text.GetUTF8(), "\u00E9t\u00E9");
       },
       "REALConvertString", "PluginGetStringData"},
      {"files named by their native path", 2012.99, 2013.0,
       [] {
         emu::Value file = emu::Host::Instance().MakeFolderItem("/nonexistent/picture.png");
         EXPECT_EQ(OpenCFILE(file.As<REALfolderItem>(), 0, "rb", L"rb"), nullptr);
       },
       "property URLPath", "property NativePath"},
  };
  for (const auto& c : kCases) {
    const std::vector<std::string> before = AskedDoing(c.before, c.operation);
    const std::vector<std::string> from = AskedDoing(c.from, c.operation);
    EXPECT_TRUE(Has(before, c.askedBefore) && !Has(before, c.askedFrom)) << c.decision;
    EXPECT_TRUE(Has(from, c.askedFrom) && !Has(from, c.askedBefore)) << c.decision;
  }
}

}  // namespace
