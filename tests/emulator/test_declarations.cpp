// The parser of Xojo declarations, on the forms the plug-in registers.
#include <gtest/gtest.h>

#include "emulator/Emulator.h"

namespace {

using emu::ParseDeclaration;
using emu::TypeKind;

TEST(Declarations, NameAndResultWithoutParameters) {
  emu::Declaration d = ParseDeclaration("CombinePictureWithMask as picture");
  EXPECT_EQ(d.name, "CombinePictureWithMask");
  EXPECT_TRUE(d.params.empty());
  EXPECT_EQ(d.result.kind, TypeKind::Object);
  EXPECT_EQ(d.result.name, "picture");

  d = ParseDeclaration("CloseDestination");
  EXPECT_EQ(d.name, "CloseDestination");
  EXPECT_EQ(d.result.kind, TypeKind::Void);
}

TEST(Declarations, ParametersWithTypesModifiersAndDefaults) {
  emu::Declaration d = ParseDeclaration(
      "ReadICCProfile(byref name as string, byref compression as integer, gamma as Single = 0.0, "
      "AllowDamaged as Boolean = false, mask as picture = nil) As Boolean");
  ASSERT_EQ(d.params.size(), 5u);
  EXPECT_TRUE(d.params[0].byRef);
  EXPECT_EQ(d.params[0].type.kind, TypeKind::String);
  EXPECT_EQ(d.params[1].type.kind, TypeKind::Integer);
  EXPECT_EQ(d.params[2].type.kind, TypeKind::Single);
  EXPECT_EQ(d.params[2].defaultText, "0.0");
  EXPECT_FALSE(d.params[2].byRef);
  EXPECT_EQ(d.params[3].type.kind, TypeKind::Boolean);
  EXPECT_EQ(d.params[4].defaultText, "nil");
  EXPECT_EQ(d.result.kind, TypeKind::Boolean);
}

TEST(Declarations, ArrayParametersAndTheirElementTypes) {
  emu::Declaration d = ParseDeclaration(
      "SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, rows() as "
      "MemoryBlock) as boolean");
  ASSERT_EQ(d.params.size(), 4u);
  EXPECT_EQ(d.params[1].name, "colors");
  EXPECT_EQ(d.params[1].type.kind, TypeKind::Array);
  EXPECT_EQ(d.params[1].type.element, TypeKind::Color);
  EXPECT_EQ(d.params[2].type.element, TypeKind::Integer);
  EXPECT_EQ(d.params[3].type.element, TypeKind::Object);
  EXPECT_EQ(d.params[3].type.elementName, "MemoryBlock");
}

TEST(Declarations, ExtendsAndAssignsForms) {
  emu::Declaration d = ParseDeclaration(
      "OpenAsPNGKRV(extends ref as Folderitem, gamma as single = 0.0) as PNGPictureKRV");
  ASSERT_EQ(d.params.size(), 2u);
  EXPECT_TRUE(d.params[0].extends);
  EXPECT_EQ(d.params[0].type.name, "Folderitem");
  EXPECT_EQ(d.result.name, "PNGPictureKRV");

  d = ParseDeclaration("Name(extends ref as Folderitem, assigns value as string)");
  EXPECT_TRUE(d.params[1].assigns);
  EXPECT_EQ(d.params[1].type.kind, TypeKind::String);
}

TEST(Declarations, DefaultTextMayHoldCommasAndParentheses) {
  emu::Declaration d = ParseDeclaration("Hello(name as string = \"a, (b)\", n as integer)");
  ASSERT_EQ(d.params.size(), 2u);
  EXPECT_EQ(d.params[0].defaultText, "\"a, (b)\"");
}

TEST(Declarations, MalformedTextIsRejected) {
  EXPECT_THROW(ParseDeclaration(""), emu::Error);
  EXPECT_THROW(ParseDeclaration("Open(file folderitem)"), emu::Error);
  EXPECT_THROW(ParseDeclaration("Open(file as folderitem"), emu::Error);
  EXPECT_THROW(ParseDeclaration("Open(file as folderitem) boolean"), emu::Error);
}

}  // namespace
