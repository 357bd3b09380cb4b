// Names and texts of definitions, written as C++.
#ifndef TOOLS_DEFINITIONS_CPP_NAME_H
#define TOOLS_DEFINITIONS_CPP_NAME_H

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

// The identifier nearest to a name: other characters become "_"; what cannot begin one gets an "n"
// before it; underscores that the language reserves are left out; keywords, and names that are
// macros of the system's headers, get one behind them. Never empty. Compilers take it: it is in
// normalization form C, and has no letters that came after Unicode 13.
std::string cpp_identifier(std::string_view name);

// One scope's identifiers: the same name has the same identifier, and different names different
// ones, by numbers behind them. The order in which names come decides.
class cpp_identifiers {
 public:
  // With `prefix` before each, or ("") as they are; no name has one of the `reserved` identifiers.
  explicit cpp_identifiers(std::string prefix, std::set<std::string, std::less<>> reserved = {})
      : prefix_(std::move(prefix)), taken_(std::move(reserved)) {}

  const std::string& of(std::string_view name);

 private:
  std::string prefix_;
  std::map<std::string, std::string, std::less<>> by_name_;
  std::set<std::string, std::less<>> taken_;
};

// The text as comment lines, each after `indent` and "// ". No line can end the comment or continue
// it on the next line.
std::string cpp_comment(std::string_view text, std::string_view indent);

// Whether a header of C, C++ or POSIX defines a macro of this name, so that a program which
// includes it can call nothing by the name.
bool is_system_macro(std::string_view name);

#endif
