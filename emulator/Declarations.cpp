// The parser of Xojo declarations: "Name", "Name as type", "Name(params)" and
// "Name(params) as type", with parameters "[byref|extends|assigns] name[()] as type [= default]".
#include <cctype>

#include "emulator/Internal.h"

namespace emu {

namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

[[noreturn]] void Malformed(std::string_view text, const char* why) {
  throw Error("malformed declaration \"" + std::string(text) + "\": " + why);
}

// Splits at top-level commas, outside parentheses and quoted text.
std::vector<std::string_view> SplitParams(std::string_view list) {
  std::vector<std::string_view> parts;
  int depth = 0;
  bool quoted = false;
  size_t start = 0;
  for (size_t i = 0; i < list.size(); ++i) {
    char c = list[i];
    if (c == '"') quoted = !quoted;
    if (quoted) continue;
    if (c == '(') ++depth;
    if (c == ')') --depth;
    if (c == ',' && depth == 0) {
      parts.push_back(Trim(list.substr(start, i - start)));
      start = i + 1;
    }
  }
  parts.push_back(Trim(list.substr(start)));
  return parts;
}

// Finds " as " (any case) at top level; npos when absent.
size_t FindAs(std::string_view text) {
  std::string lower = Lower(text);
  size_t pos = 0;
  while ((pos = lower.find("as", pos)) != std::string::npos) {
    bool before = pos > 0 && std::isspace(static_cast<unsigned char>(lower[pos - 1]));
    bool after = pos + 2 < lower.size() && std::isspace(static_cast<unsigned char>(lower[pos + 2]));
    if (before && after) return pos;
    pos += 2;
  }
  return std::string::npos;
}

// Removes a leading keyword (any case) followed by a blank; true when it was there.
bool TakeKeyword(std::string_view& text, std::string_view keyword) {
  if (text.size() <= keyword.size() || !SameName(text.substr(0, keyword.size()), keyword) ||
      !std::isspace(static_cast<unsigned char>(text[keyword.size()]))) {
    return false;
  }
  text = Trim(text.substr(keyword.size()));
  return true;
}

Param ParseParam(std::string_view whole, std::string_view text) {
  Param param;
  size_t eq = text.find('=');
  if (eq != std::string_view::npos) {
    param.defaultText = std::string(Trim(text.substr(eq + 1)));
    text = Trim(text.substr(0, eq));
  }
  param.byRef = TakeKeyword(text, "byref");
  TakeKeyword(text, "byval");
  param.extends = TakeKeyword(text, "extends");
  param.assigns = TakeKeyword(text, "assigns");
  size_t as = FindAs(text);
  if (as == std::string::npos) Malformed(whole, "parameter without a type");
  std::string_view name = Trim(text.substr(0, as));
  bool array = name.size() > 2 && name.substr(name.size() - 2) == "()";
  if (array) name.remove_suffix(2);
  if (name.empty()) Malformed(whole, "parameter without a name");
  param.name = std::string(name);
  std::string typeText(Trim(text.substr(as + 2)));
  param.type = ParseType(array ? typeText + "()" : typeText);
  return param;
}

TypeKind ScalarKind(std::string_view name) {
  static const std::pair<const char*, TypeKind> kNames[] = {
      {"integer", TypeKind::Integer}, {"double", TypeKind::Double}, {"single", TypeKind::Single},
      {"boolean", TypeKind::Boolean}, {"color", TypeKind::Color},   {"string", TypeKind::String},
  };
  for (const auto& [text, kind] : kNames) {
    if (SameName(name, text)) return kind;
  }
  return TypeKind::Object;
}

}  // namespace

TypeRef ParseType(std::string_view text) {
  text = Trim(text);
  if (text.empty()) throw Error("empty type name");
  TypeRef type;
  type.name = std::string(text);
  if (text.size() > 2 && text.substr(text.size() - 2) == "()") {
    std::string_view element = Trim(text.substr(0, text.size() - 2));
    type.kind = TypeKind::Array;
    type.element = ScalarKind(element);
    type.elementName = std::string(element);
    return type;
  }
  type.kind = ScalarKind(text);
  return type;
}

Declaration ParseDeclaration(std::string_view text) {
  std::string_view rest = Trim(text);
  size_t nameEnd = 0;
  while (nameEnd < rest.size() && rest[nameEnd] != '(' &&
         !std::isspace(static_cast<unsigned char>(rest[nameEnd]))) {
    ++nameEnd;
  }
  Declaration decl;
  decl.name = std::string(rest.substr(0, nameEnd));
  if (decl.name.empty()) Malformed(text, "no name");
  rest = Trim(rest.substr(nameEnd));
  if (!rest.empty() && rest.front() == '(') {
    int depth = 0;
    size_t close = 0;
    for (; close < rest.size(); ++close) {
      if (rest[close] == '(') ++depth;
      if (rest[close] == ')' && --depth == 0) break;
    }
    if (close == rest.size()) Malformed(text, "unbalanced parentheses");
    std::string_view list = Trim(rest.substr(1, close - 1));
    if (!list.empty()) {
      for (std::string_view p : SplitParams(list)) decl.params.push_back(ParseParam(text, p));
    }
    rest = Trim(rest.substr(close + 1));
  }
  if (rest.empty()) return decl;
  if (!TakeKeyword(rest, "as")) Malformed(text, "expected \"as\" before the result type");
  decl.result = ParseType(rest);
  return decl;
}

}  // namespace emu
