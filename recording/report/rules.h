// What there can be to find fault with, and what two sets can differ in.
//
// A rule is named by its code: "po-syntax"_rule, "event-id"_change. All else about it is its row in
// rules.def, which rules.cpp alone includes, so that a row that comes, goes or says something else
// is compiled there and where it is named. A code without a row does not link.
#ifndef RECORDING_REPORT_RULES_H
#define RECORDING_REPORT_RULES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

template <size_t Size>
struct rule_code_literal {
  consteval rule_code_literal(const char (&code)[Size]) { std::copy_n(code, Size, text); }

  char text[Size] = {};
};

// A rule, or none.
template <class Row>
class rule_of_row {
 public:
  constexpr rule_of_row() = default;
  constexpr explicit rule_of_row(const Row& row) : row_(&row) {}

  constexpr const Row* operator->() const { return row_; }
  constexpr explicit operator bool() const { return row_ != nullptr; }
  constexpr bool operator==(const rule_of_row&) const = default;

 private:
  const Row* row_ = nullptr;
};

// --- What there can be to find fault with

enum class rule_severity { off, warning, error };

// Faults stop a compilation. Advice is looked for by "kplog check" alone, and can be silenced in
// the source.
enum class rule_kind { fault, advice };

struct diagnostic_rule_row {
  const char* code;  // shown in brackets, stable
  rule_kind kind;
  rule_severity severity;  // unless the command line says otherwise
  const char* summary;     // for the documentation
};

using diagnostic_rule = rule_of_row<diagnostic_rule_row>;

template <rule_code_literal Code>
diagnostic_rule operator""_rule();

// All of them, in the order in which they are documented.
std::span<const diagnostic_rule> diagnostic_rules();

// The rule of a code, none when there is none.
diagnostic_rule rule_of_code(std::string_view code);

// --- What two sets can differ in

// Bits of whom a difference breaks.
constexpr unsigned breaks_nobody = 0;
constexpr unsigned breaks_source = 1;        // programs that make entries
constexpr unsigned breaks_records = 2;       // entries that are stored, and what reads them
constexpr unsigned breaks_translations = 4;  // catalogs
constexpr unsigned breaks_filters = 8;       // masks of property flags

struct change_class_row {
  unsigned bit;
  const char* name;
};

constexpr std::array<change_class_row, 4> change_classes = {{
    {breaks_source, "source"},
    {breaks_records, "records"},
    {breaks_translations, "translations"},
    {breaks_filters, "filters"},
}};

struct change_rule_row {
  const char* code;  // stable
  unsigned breaks;
  const char* summary;         // for the documentation
  bool is_of_sources = false;  // not compared beside a compiled file
};

using change_rule = rule_of_row<change_rule_row>;

template <rule_code_literal Code>
change_rule operator""_change();

// All of them, in the order in which they are documented.
std::span<const change_rule> change_rules();

// The rule of a code, none when there is none.
change_rule change_of_code(std::string_view code);
std::vector<std::string_view> change_codes();

#endif
