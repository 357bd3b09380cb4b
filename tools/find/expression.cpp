#include "tools/find/expression.h"

#include <re2/re2.h>

#include <stdexcept>

#include "recording/text/words.h"

static re2::RE2::Options expression_options() {
  re2::RE2::Options options;
  options.set_log_errors(false);
  return options;
}

text_expression::text_expression(const std::string& expression)
    : expression_(std::make_shared<const re2::RE2>(expression, expression_options())) {
  if (!expression_->ok())
    throw std::invalid_argument("no regular expression: " + in_quotes(shortened(expression)) +
                                ": " + expression_->error());
}

bool text_expression::is_found_in(std::string_view text) const {
  return re2::RE2::PartialMatch({text.data(), text.size()}, *expression_);
}
