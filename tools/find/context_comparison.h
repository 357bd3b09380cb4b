// What a record's context is compared with: "context.trace=4bf92f35".
#ifndef TOOLS_FIND_CONTEXT_COMPARISON_H
#define TOOLS_FIND_CONTEXT_COMPARISON_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/records/parser.h"
#include "tools/find/condition_text.h"
#include "tools/find/expression.h"

class context_comparison {
 public:
  // Whether the condition asks a context: it begins with "context." without quotes.
  static bool is_one(const std::string& text);

  // "context.KEY OPERATOR TEXT", and "context.KEY.KEY" for a member of a member: = or !=, and ~ for
  // a regular expression that fits a part of the text. Keys and text may stand in the quotes and
  // escapes of JSON. Raises std::invalid_argument for what is none.
  explicit context_comparison(const std::string& text);
  ~context_comparison();
  context_comparison(context_comparison&&) noexcept;

  // Whether the record's context has that member, and it compares like this: a text by its
  // characters, anything else but an object and an array as it is written. Of a key that comes
  // twice the last counts.
  bool holds(const parsed_record& record) const;

 private:
  struct reader;

  bool holds_of(std::string_view member) const;

  std::unique_ptr<reader> reader_;  // of contexts
  std::vector<std::string> path_;
  comparison_operator operator_;
  std::string text_;
  std::optional<text_expression> expression_;
};

#endif
