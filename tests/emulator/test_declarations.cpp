// The declaration parser on forms the plug-in's own declarations never take, and malformed text.
#include <gtest/gtest.h>

#include "emulator/Emulator.h"

namespace {

// A declaration as "name(param; param) as type", each parameter as "[byref ]name type[=default]".
std::string Summary(const emu::Declaration& d) {
  std::string out = d.name + "(";
  for (const emu::Param& p : d.params) {
    if (&p != &d.params.front()) out += "; ";
    out += (p.byRef ? "byref " : "") + p.name + " " + p.type.name;
    if (p.defaultText) out += "=" + *p.defaultText;
  }
  return out + ")" + (d.result.kind == emu::TypeKind::Void ? "" : " as " + d.result.name);
}

TEST(Declarations, EdgeCasesParse) {
  const std::pair<const char*, const char*> cases[] = {
      {"Hello(name as string = \"a, (b)\", n as integer)",
       "Hello(name string=\"a, (b)\"; n integer)"},
      {"Pick(c as color = RGB(1, 2, 3), s as string = \"x = y\") As Boolean",
       "Pick(c color=RGB(1, 2, 3); s string=\"x = y\") as Boolean"},
      {"Measure(alias as integer, asText as string, byrefCount as integer)",
       "Measure(alias integer; asText string; byrefCount integer)"},
      {"  Swap ( ByRef x   As Integer )  AS  Double ", "Swap(byref x Integer) as Double"},
  };
  for (const auto& [text, summary] : cases) {
    EXPECT_EQ(Summary(emu::ParseDeclaration(text)), summary) << text;
  }
}

TEST(Declarations, MalformedTextIsRejected) {
  for (const char* text :
       {"", "Open(file folderitem)", "Open(file as folderitem", "Open(file as folderitem) boolean",
        "Open( as integer)", "Open(file as folderitem) as", "Open(file as )"}) {
    EXPECT_THROW(emu::ParseDeclaration(text), emu::Error) << text;
  }
}

}  // namespace
