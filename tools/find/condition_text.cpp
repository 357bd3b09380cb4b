#include "tools/find/condition_text.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "recording/text/words.h"

struct operator_row {
  std::string_view text;
  comparison_operator what;
};

// Those of two characters first.
static constexpr std::array<operator_row, 7> operator_rows = {{
    {"!=", comparison_operator::not_equal},
    {"<=", comparison_operator::at_most},
    {">=", comparison_operator::at_least},
    {"=", comparison_operator::equal},
    {"<", comparison_operator::less},
    {">", comparison_operator::greater},
    {"~", comparison_operator::found},
}};

static constexpr char condition_form[] =
    "expected an attribute, one of = != < <= > >= ~, and a value";

condition_reader::condition_reader(const std::string& text)
    : text_(text), rest_(without_blanks(text)) {}

void condition_reader::raise(const std::string& why) const {
  throw std::invalid_argument("--where " + in_quotes(shortened(text_)) + ": " + why);
}

bool condition_reader::takes(std::string_view prefix) {
  if (!rest_.starts_with(prefix)) return false;
  rest_.remove_prefix(prefix.size());
  return true;
}

// Behind the name's quotes, or at the first of those characters.
size_t condition_reader::end_of_name(std::string_view ends) const {
  if (!rest_.starts_with('"')) return rest_.find_first_of(ends);
  for (size_t i = 1; i < rest_.size(); ++i) {
    if (rest_[i] == '"') return i + 1;
    if (rest_[i] == '\\') ++i;
  }
  return std::string_view::npos;
}

// A text as it is, or out of the quotes of JSON.
std::string condition_reader::unquoted(std::string_view part) const {
  part = without_blanks(part);
  if (!part.starts_with('"')) return std::string(part);
  const auto read = nlohmann::json::parse(part, nullptr, false);
  if (!read.is_string()) raise(std::string(part) + " is no text of JSON");
  return read.get<std::string>();
}

std::string condition_reader::take_name(std::string_view ends) {
  const size_t end = end_of_name(ends);
  if (end == 0 || end == std::string_view::npos) raise(condition_form);
  std::string name = unquoted(rest_.substr(0, end));
  rest_ = without_blanks(rest_.substr(end));
  return name;
}

std::string condition_reader::name() {
  return take_name("=!<>~");
}

std::string condition_reader::name_before_dot() {
  return take_name("=!<>~.");
}

comparison_operator condition_reader::operation() {
  const auto found = std::find_if(operator_rows.begin(), operator_rows.end(),
                                  [this](const auto& row) { return rest_.starts_with(row.text); });
  if (found == operator_rows.end()) raise(condition_form);
  rest_.remove_prefix(found->text.size());
  return found->what;
}

std::string condition_reader::value() {
  return unquoted(rest_);
}
