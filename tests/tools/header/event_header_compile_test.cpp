// What compiles against a header that "kplog header" wrote, and what must not.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/command/command_run.h"
#include "tests/command/documentation_page.h"
#include "tests/support/temp_folder.h"
#include "tools/definitions/cpp_name.h"

// The exit status of the compiler for the program, with the folder and the generated headers to
// include from. What it says is in the file "said".
static int compile_in(const temp_folder& folder, const std::string& program,
                      const std::string& compiler) {
  folder.write("program.cpp", program);
  const std::string command = compiler + " -fsyntax-only -I" + folder.path() + " " +
                              KPLOG_INCLUDES + " " + folder.file("program.cpp") + " >" +
                              folder.file("said") + " 2>&1";
  return std::system(command.c_str());  // NOLINT(cert-env33-c): the compiler under test
}

static bool compiles_in(const temp_folder& folder, const std::string& program) {
  const std::string compiler = KPLOG_COMPILER " -std=c++20 -w";
  const bool is_clang = compiler.find("clang") != std::string::npos;  // which ends after 20 errors
  return compile_in(folder, program, compiler + (is_clang ? " -ferror-limit=0" : "")) == 0;
}

// --- What does not compile ----------------------------------------------------------------------

struct statement_case {
  std::string statement;
  bool compiles;
};

static std::string name_of_case(size_t i) {
  return "statement_" + std::to_string(i) + ".cpp";
}

// A program with the example's header and a function for each statement, which has a file's name of
// its own in what the compiler says.
static std::string program_of(const std::vector<statement_case>& cases) {
  std::string program =
      "#include \"tests/command/generated/package_manager.h\"\n"
      "using namespace package_manager;\n"
      "using outcome = entry_SIGNATURE_CHECKED::OUTCOME_value;\n";
  for (size_t i = 0; i < cases.size(); ++i)
    program += "void run_" + std::to_string(i) +
               "(int i, double d, bool b, unsigned short small, const char* text) {\n#line 1 \"" +
               name_of_case(i) + "\"\n" + cases[i].statement + "\n}\n";
  return program;
}

static statement_case with_size(const std::string& size, bool compiles) {
  return {"entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .VERSION = text, .SIZE = " + size + "});",
          compiles};
}

static statement_case with_version(const std::string& version, bool compiles) {
  return {"entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .VERSION = " + version + ", .SIZE = 1});",
          compiles};
}

// One run of the compiler for all statements, which says nothing of those that it takes.
TEST(HeaderRefusal, IsOfWhatTheDefinitionsDoNotSay) {
  const std::vector<statement_case> cases = {
      // Numbers that fit, and such that may not.
      with_size("4294967295", true),
      with_size("small", true),
      with_size("4294967296", false),
      with_size("-1", false),
      with_size("1.5", false),
      with_size("i", false),
      with_size("d", false),
      // Other types.
      with_size("text", false),
      with_size("b", false),
      with_size("nullptr", false),
      with_version("5", false),
      with_version("nullptr", false),
      with_version("kp_Time()", false),
      // A literal is held against the size class.
      with_version('"' + std::string(64, 'x') + '"', true),
      with_version('"' + std::string(65, 'x') + '"', false),
      // Attributes that are missing.
      {"entry_PACKAGE_INSTALLED e(1, {text, text, 1u});", true},
      {"entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .VERSION = text});", false},
      {"entry_PACKAGE_INSTALLED e(1, {.PACKAGE = text, .SIZE = 1});", false},
      {"entry_PACKAGE_INSTALLED e(1, {});", false},
      {"entry_PACKAGE_INSTALLED e(1);", false},
      {"entry_PACKAGE_INSTALLED e;", false},
      // Attributes of another event.
      {"entry_PACKAGE_INSTALLED e(1, {text, text, 1u, 1u});", false},
      {"entry_SIGNATURE_CHECKED e(1, {.PACKAGE = text, .PORT = 1});", false},
      // A selector takes its enumeration alone.
      {"entry_SIGNATURE_CHECKED e(1, {text, outcome::value_0});", true},
      {"entry_SIGNATURE_CHECKED e(1, {text, 0});", false},
      {"entry_SIGNATURE_CHECKED e(1, {text, small});", false},
  };
  const temp_folder folder;
  EXPECT_FALSE(compiles_in(folder, program_of(cases)));
  const std::string said = read_whole_file(folder.file("said"));
  for (size_t i = 0; i < cases.size(); ++i)
    EXPECT_EQ(said.find(name_of_case(i)) == std::string::npos, cases[i].compiles)
        << cases[i].statement << '\n'
        << said;
}

// The header of a source that has more than its first two lines.
static void write_header(const temp_folder& folder, const std::string& source,
                         const std::string& options = "") {
  folder.write("events.yaml", "kplog: 1\nlog_version: \"1\"\n" + source);
  ASSERT_EQ(run_kplog(folder.path(), "header -q " + options + "events.yaml -o events.h").status, 0);
}

// --- What compilers say of it -------------------------------------------------------------------

// An event whose attributes nothing else in the program is called as, and a fault that is said
// behind the name of one of them.
struct fault_case {
  std::string attributes;  // as a source declares them
  std::string given;
  std::string named;  // the attribute
  std::string said;   // by both compilers, behind the name; may be ""
};

static const std::vector<fault_case> fault_cases = {
    // Missing.
    {"A1: MBChar64, B1: UInt4", ".A1 = text", "name_B1", ""},
    {"A2: MBChar64, B2: UInt4", ".B2 = 1", "name_A2", ""},
    {"A3: MBChar64, B3: UInt4, C3: Timestamp", "text", "name_B3", ""},
    // Misspelt.
    {"A4: UInt4", ".A4X = 1", "A4X", ""},
    // Wrong.
    {"A5: UInt4", ".A5 = text", "name_A5", ""},
    {"A6: MBChar64", ".A6 = 1", "name_A6", ""},
    {"A7: Timestamp", ".A7 = 1", "name_A7", ""},
    {"A8: Bool", ".A8 = 1", "name_A8", ""},
    {"A9: Char32", ".A9 = \"" + std::string(33, 'x') + '"', "name_A9", ""},
    {"A10: UInt2", ".A10 = -1", "name_A10", "kp_LOG_constant_does_not_fit_its_attribute"},
    // A variable of a type with other values.
    {"A11: UInt4", ".A11 = size", "name_A11", "kp_LOG_variable_needs_static_cast_to"},
    {"A12: UInt2", ".A12 = i", "name_A12", "kp_LOG_variable_needs_static_cast_to"},
};

static std::string source_of_faults() {
  std::string source = "events:\n";
  for (size_t i = 0; i < fault_cases.size(); ++i)
    source += "  E" + std::to_string(i) + ": {id: " + std::to_string(i + 1) + ", attributes: {" +
              fault_cases[i].attributes + "}}\n";
  return source;
}

static std::string program_of_faults() {
  std::string program = "#include \"events.h\"\ntemplate <class Event> void record(Event);\n";
  for (size_t i = 0; i < fault_cases.size(); ++i)
    program += "void run_" + std::to_string(i) +
               "(const char* text, std::size_t size, int i) {\n  record(events::E" +
               std::to_string(i) + "{" + fault_cases[i].given + "});\n}\n";
  return program;
}

// What is said behind the name, until another is named.
static std::string said_behind(const std::string& name, const std::string& said) {
  const std::regex found("\\b" + name + "\\b");
  std::smatch match;
  if (!std::regex_search(said, match, found)) return "";
  const auto end = static_cast<size_t>(match.position()) + name.size();
  size_t next = said.find("name_A", end);
  while (next != std::string::npos && said.compare(next, name.size(), name) == 0)
    next = said.find("name_A", next + 1);
  return said.substr(end, next - end);
}

TEST(HeaderFaults, NameTheAttributeInTheTextOfEachCompiler) {
  const temp_folder folder;
  write_header(folder, source_of_faults());
  // Without the lines of the program, which name attributes in any case.
  for (const char* compiler : {"g++ -std=c++20 -fno-diagnostics-show-caret",
                               "clang++-14 -std=c++20 -ferror-limit=0 -fno-caret-diagnostics"}) {
    EXPECT_NE(compile_in(folder, program_of_faults(), compiler), 0);
    const std::string said = read_whole_file(folder.file("said"));
    for (const fault_case& fault : fault_cases) {
      const std::string behind = said_behind(fault.named, said);
      EXPECT_NE(behind, "") << compiler << ' ' << fault.named << '\n' << said;
      EXPECT_NE(behind.find(fault.said), std::string::npos)
          << compiler << ' ' << fault.named << '\n'
          << said;
    }
  }
}

// What the page and the texts of compilers advise.
TEST(HeaderFaults, AreMendedAsTheySay) {
  const temp_folder folder;
  write_header(folder, "events: {E: {id: 1, attributes: {N: UInt4}}}\n");
  EXPECT_TRUE(compiles_in(folder,
                          "#include \"events.h\"\n"
                          "events::E made(std::size_t n) {\n"
                          "  static const int constant = 5;\n"
                          "  events::E{.N = constant}; events::E{.N = sizeof n};\n"
                          "  return {.N = static_cast<std::uint32_t>(n)};\n}\n"))
      << read_whole_file(folder.file("said"));
}

TEST(HeaderLevels, NumbersAndNamesAreTaken) {
  const temp_folder folder;
  write_header(folder,
               "levels: {bad: 1}\nevents:\n"
               "  E: {id: 1, attributes: {level: UInt1, bad: UInt1}}\n  PLAIN: {id: 2}\n");
  EXPECT_TRUE(compiles_in(
      folder,
      "#include \"events.h\"\nusing namespace events;\nenum class other : unsigned { one };\n"
      "void make(const _kp_LOG_entry_filter& filter) {\n"
      "  entry_E(level::bad, {.level = 1, .bad = 2}); entry_E(1, {.level = 1, .bad = 2});\n"
      "  entry_E::accepted_by(filter, level::bad); entry_E::accepted_by(filter, 1);\n"
      "  entry_PLAIN{level::bad}; entry_PLAIN{1}; entry_PLAIN(level::bad, {});\n}\n"
      "static_assert(!std::is_constructible_v<entry_PLAIN, other>);\n"
      "static_assert(!std::is_convertible_v<level, entry_PLAIN>);\n"))
      << read_whole_file(folder.file("said"));
}

TEST(HeaderOfIds, CompilesAloneAsCpp17) {
  const temp_folder folder;
  write_header(folder, "levels: {bad: 1}\nevents: {E: {id: 1, attributes: {N: UInt1}}}\n",
               "--only ids ");
  const std::string program =
      "#define bad )(\n#include \"events.h\"\n#undef bad\n"
      "static_assert(events::id_E == 1 && sizeof events::name_N == 2);\n"
      "static_assert(static_cast<int>(events::level::bad) == 1);\n";
  for (const char* compiler : {"g++ -std=c++17 -Wall -Wextra -Werror -Wpedantic",
                               "clang++-14 -std=c++17 -Wall -Wextra -Werror -Wpedantic"})
    EXPECT_EQ(compile_in(folder, program, compiler), 0) << compiler << '\n'
                                                        << read_whole_file(folder.file("said"));
  EXPECT_NE(compile_in(folder, program, "g++ -std=c++14"), 0);
}

TEST(HeaderPage, ItsProgramCompilesWithTheHeaderOfTheSourcePagesExample) {
  const temp_folder folder;
  folder.write("events.yaml", page_block("definition-source.md", "# Definition sources"));
  ASSERT_EQ(run_kplog(folder.path(), "header events.yaml -o events.h").status, 0);
  const std::string program = page_block("generated-header.md", "A program");
  EXPECT_NE(program.find("#include \"events.h\""), std::string::npos);
  const std::string question = page_block("generated-header.md", "Where most events");
  EXPECT_NE(question.find("accepted_by(filter, 3)"), std::string::npos);
  EXPECT_TRUE(compiles_in(
      folder, program +
                  "void ask(const _kp_LOG_entry_filter& filter, std::string_view user,\n"
                  "         std::uint16_t port, const std::string& host) {\n"
                  "  using outcome = events::entry_USER_LOGIN::OUTCOME_value;\n" +
                  question + "}\n"));
}

// --- Names that are taken -----------------------------------------------------------------------

using name_set = std::set<std::string>;

// The macros that the headers of this system define.
static name_set system_macros(const temp_folder& folder) {
  const std::string command = KPLOG_SYSTEM_MACROS " " KPLOG_COMPILER " >" + folder.file("macros");
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): a script of the tests
  std::istringstream lines(read_whole_file(folder.file("macros")));
  name_set names;
  for (std::string line; std::getline(lines, line);) names.insert(line);
  return names;
}

// Every word of the public headers: classes, functions, keywords, words of comments.
static name_set words_of_public_headers() {
  static const std::regex word("[A-Za-z_][A-Za-z0-9_]*");
  name_set words;
  for (const char* header : {"kp_LOG_EventValue.h", "kp_LOG_LogEntry.h", "kp_LOG_AttributeKey.h",
                             "kp_LOG_EntryFilter.h"}) {
    const std::string text = read_whole_file(std::string(KPLOG_DOCS "/../include/") + header);
    for (std::sregex_iterator i(text.begin(), text.end(), word), end; i != end; ++i)
      words.insert(i->str());
  }
  EXPECT_TRUE(words.contains("kp_LOG_EventTime"));
  return words;
}

// A definition source that calls an attribute, a selector value and an event by each name, and a
// use of each attribute that is called as a macro.
class source_of_names {
 public:
  explicit source_of_names(const name_set& names) {
    for (const std::string& name : names) {
      if (in_event_ % 200 == 0) begin_event();
      attributes_ += "      \"" + name + "\": Date\n";
      const std::string number = std::to_string(++in_event_ % 200 + 1);
      messages_ += "      - {index: " + number + ", value: " + number + ", id: \"" + name + "\"}\n";
      plain_events_ += "  \"" + name + "\": {id: " + std::to_string(++last_id_) + "}\n";
      if (is_system_macro(name))
        uses_ += "static_assert(sizeof(entry_" + event_ + "::values::" + name + "_) > 0);\n";
    }
    end_event();
  }

  std::string text() const {
    return "kplog: 1\nlog_version: \"1\"\nevents:\n" + events_ + plain_events_;
  }
  const std::string& uses() const { return uses_; }

 private:
  // The enumeration of the selector's values is called as another attribute.
  void begin_event() {
    end_event();
    event_ = "SET_" + std::to_string(++last_id_);
    attributes_ = "      status: UInt1\n      status_value: Date\n";
    messages_.clear();
  }

  void end_event() {
    if (event_.empty()) return;
    events_ += "  " + event_ + ":\n    id: " + event_.substr(4) + "\n    attributes:\n" +
               attributes_ + "    select: status\n    messages:\n" + messages_;
  }

  std::string event_;  // that attributes are added to; empty: none yet
  std::string attributes_, messages_;
  std::string events_, plain_events_;
  std::string uses_;
  unsigned in_event_ = 0;
  unsigned last_id_ = 0;
};

static constexpr const char* compilers[] = {"g++ -std=c++20 -fno-exceptions -fno-rtti",
                                            "g++ -std=gnu++20 -w", "clang++-14 -std=c++20 -w",
                                            "clang++-14 -std=gnu++20 -fno-exceptions -fno-rtti -w"};

// The header of all these names, in a program where each macro, and each name of the system's list,
// is a macro that no declaration survives.
TEST(HeaderNames, CompileWhateverTheSystemAndTheLibraryCallByThem) {
  const temp_folder folder;
  const name_set macros = system_macros(folder);
  ASSERT_TRUE(macros.contains("EACCES") && macros.contains("unix"));
  name_set names = words_of_public_headers();
  names.insert(macros.begin(), macros.end());
  // Keywords of C++, of GNU's dialect of it, and a namespace.
  names.merge(
      name_set{"and", "char8_t", "co_await", "compl", "requires", "std", "typeof", "xor_eq"});
  const source_of_names source(names);
  folder.write("events.yaml", source.text());
  const auto run = run_kplog(folder.path(), "header -q events.yaml -o events.h");
  ASSERT_EQ(run.status, 0) << run.err;
  std::string program = "#include \"kp_LOG_EventValue.h\"\n";
  for (const std::string& macro : macros) program += "#define " + macro + " )(\n";
  program += "#include \"events.h\"\nnamespace events {\n" + source.uses() +
             "}\n#ifndef EACCES\n#error \"the macros are gone\"\n#endif\n";
  for (const char* compiler : compilers)
    EXPECT_EQ(compile_in(folder, program, compiler), 0) << compiler << '\n'
                                                        << read_whole_file(folder.file("said"));
}
