#include "tools/find/context_comparison.h"

#include <simdjson.h>

#include <span>
#include <stdexcept>

#include "recording/text/words.h"

namespace ondemand = simdjson::ondemand;

static constexpr std::string_view context_prefix = "context.";

// --- Contexts ---

struct context_comparison::reader {
  ondemand::parser parser;
  simdjson::padded_string context;
};

// What a member is compared as; nothing for an object and an array.
static std::optional<std::string> text_of_member(ondemand::value value) {
  const ondemand::json_type type = value.type();
  if (type == ondemand::json_type::object || type == ondemand::json_type::array) return {};
  if (type == ondemand::json_type::string) return std::string(value.get_string().value());
  return std::string(without_blanks(value.raw_json_token()));
}

static std::optional<std::string> member_of(ondemand::object held,
                                            std::span<const std::string> path) {
  std::optional<std::string> found;
  for (ondemand::field field : held) {
    if (field.unescaped_key().value() != path.front()) continue;
    ondemand::value value = field.value();
    if (path.size() == 1)
      found = text_of_member(value);
    else if (value.type() == ondemand::json_type::object)
      found = member_of(value.get_object(), path.subspan(1));
    else
      found.reset();
  }
  return found;
}

// --- The comparison ---

bool context_comparison::is_one(const std::string& text) {
  return without_blanks(text).starts_with(context_prefix);
}

context_comparison::~context_comparison() = default;
context_comparison::context_comparison(context_comparison&&) noexcept = default;

context_comparison::context_comparison(const std::string& text)
    : reader_(std::make_unique<reader>()) {
  condition_reader condition(text);
  condition.takes(context_prefix);
  do path_.push_back(condition.name_before_dot());
  while (condition.takes("."));
  operator_ = condition.operation();
  text_ = condition.value();
  switch (operator_) {
    case comparison_operator::equal:
    case comparison_operator::not_equal:
      break;
    case comparison_operator::found:
      try {
        expression_.emplace(text_);
      } catch (const std::invalid_argument& error) {
        condition.raise(error.what());
      }
      break;
    default:
      condition.raise("what stands in a context is compared by = != and ~");
  }
}

bool context_comparison::holds_of(std::string_view member) const {
  if (expression_) return expression_->is_found_in(member);
  return (member == text_) == (operator_ == comparison_operator::equal);
}

// The parser has read the context as JSON: nothing is raised.
bool context_comparison::holds(const parsed_record& record) const {
  const std::string_view context = record.origin.context;
  if (context.empty()) return false;
  reader_->context = simdjson::padded_string(context);
  ondemand::document document = reader_->parser.iterate(reader_->context);
  const std::optional<std::string> member = member_of(document.get_object(), path_);
  return member && holds_of(*member);
}
