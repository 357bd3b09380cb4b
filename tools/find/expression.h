// Regular expressions, which take no longer than the text is long.
#ifndef TOOLS_FIND_EXPRESSION_H
#define TOOLS_FIND_EXPRESSION_H

#include <memory>
#include <string>
#include <string_view>

namespace re2 {
class RE2;
}

class text_expression {
 public:
  // Of texts in UTF-8. Raises std::invalid_argument for what is none.
  explicit text_expression(const std::string& expression);

  // Whether the expression fits any part of the text.
  bool is_found_in(std::string_view text) const;

 private:
  std::shared_ptr<const re2::RE2> expression_;
};

#endif
