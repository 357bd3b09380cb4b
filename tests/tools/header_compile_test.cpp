// What compiles against a header that "kplog header" wrote, and what must not.
#include <gtest/gtest.h>

#include "tests/support/temp_folder.h"
#include "tests/tools/command_run.h"
#include "tests/tools/page_block.h"

// Whether the compiler takes the program, with the folder and the generated headers to include
// from.
static bool compiles_in(const temp_folder& folder, const std::string& program) {
  folder.write("program.cpp", program);
  const std::string command = std::string(KPLOG_COMPILER) + " -std=c++20 -w -fsyntax-only -I" +
                              folder.path() + " " + KPLOG_INCLUDES + " " +
                              folder.file("program.cpp") + " 2>/dev/null";
  return std::system(command.c_str()) == 0;  // NOLINT(cert-env33-c): the compiler under test
}

// Whether the compiler takes the statement, in a program with the example's header.
static bool compiles(const std::string& statement) {
  return compiles_in(
      temp_folder(),
      "#include \"tests/tools/generated/package_manager.h\"\n"
      "using namespace package_manager;\n"
      "using outcome = entry_SIGNATURE_CHECKED::OUTCOME_value;\n"
      "void run(int i, double d, bool b, unsigned short small, const char* text) {\n" +
          statement + "\n}\n");
}

static bool compiles_with_size(const std::string& size) {
  return compiles(
      "entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .VERSION = text, .SIZE = " + size + "});");
}

static bool compiles_with_version(const std::string& version) {
  return compiles("entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .VERSION = " + version +
                  ", .SIZE = 1});");
}

TEST(HeaderRefusal, NumbersThatFitCompile) {
  EXPECT_TRUE(compiles_with_size("4294967295"));
  EXPECT_TRUE(compiles_with_size("small"));
}

TEST(HeaderRefusal, NumbersThatMayNotFitDoNot) {
  EXPECT_FALSE(compiles_with_size("4294967296"));
  EXPECT_FALSE(compiles_with_size("-1"));
  EXPECT_FALSE(compiles_with_size("1.5"));
  EXPECT_FALSE(compiles_with_size("i"));
  EXPECT_FALSE(compiles_with_size("d"));
}

TEST(HeaderRefusal, OtherTypesDoNotCompile) {
  EXPECT_FALSE(compiles_with_size("text"));
  EXPECT_FALSE(compiles_with_size("b"));
  EXPECT_FALSE(compiles_with_size("nullptr"));
  EXPECT_FALSE(compiles_with_version("5"));
  EXPECT_FALSE(compiles_with_version("nullptr"));
  EXPECT_FALSE(compiles_with_version("kp_Time()"));
}

TEST(HeaderRefusal, LiteralIsHeldAgainstTheSizeClass) {
  EXPECT_TRUE(compiles_with_version('"' + std::string(64, 'x') + '"'));
  EXPECT_FALSE(compiles_with_version('"' + std::string(65, 'x') + '"'));
}

TEST(HeaderRefusal, MissingAttributeDoesNotCompile) {
  EXPECT_TRUE(compiles("entry_PACKAGE_INSTALLED e(1, {text, text, 1u});"));
  EXPECT_FALSE(compiles("entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .VERSION = text});"));
  EXPECT_FALSE(compiles("entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .SIZE = 1});"));
  EXPECT_FALSE(compiles("entry_PACKAGE_INSTALLED e(1, {});"));
  EXPECT_FALSE(compiles("entry_PACKAGE_INSTALLED e(1);"));
  EXPECT_FALSE(compiles("entry_PACKAGE_INSTALLED e;"));
}

TEST(HeaderRefusal, AttributeOfAnotherEventDoesNotCompile) {
  EXPECT_FALSE(compiles("entry_PACKAGE_INSTALLED e(1, {text, text, 1u, 1u});"));
  EXPECT_FALSE(compiles("entry_SIGNATURE_CHECKED e(1, {.PACKAGE = text, .PORT = 1});"));
}

TEST(HeaderRefusal, SelectorTakesItsEnumerationAlone) {
  EXPECT_TRUE(compiles("entry_SIGNATURE_CHECKED e(1, {text, outcome::value_0});"));
  EXPECT_FALSE(compiles("entry_SIGNATURE_CHECKED e(1, {text, 0});"));
  EXPECT_FALSE(compiles("entry_SIGNATURE_CHECKED e(1, {text, small});"));
}

TEST(HeaderPage, ItsProgramCompilesWithTheHeaderOfTheSourcePagesExample) {
  const temp_folder folder;
  folder.write("events.yaml", page_block("definition-source.md", "# Definition sources"));
  ASSERT_EQ(run_kplog(folder.path(), "header events.yaml -o events.h").status, 0);
  const std::string program = page_block("generated-header.md", "A program");
  EXPECT_NE(program.find("#include \"events.h\""), std::string::npos);
  EXPECT_TRUE(compiles_in(folder, program));
}
