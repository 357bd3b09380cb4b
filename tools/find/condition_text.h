// How conditions are written: "PORT>=1024", "context.trace=4bf92f35".
#ifndef TOOLS_FIND_CONDITION_TEXT_H
#define TOOLS_FIND_CONDITION_TEXT_H

#include <string>
#include <string_view>

enum class comparison_operator { equal, not_equal, less, at_most, greater, at_least, found };

// Reads one from its begin to its end. Blanks around names, operator and value count for nothing;
// names and value may stand in the quotes and escapes of JSON. All but the constructor raise
// std::invalid_argument for what is not there, with the whole condition.
class condition_reader {
 public:
  explicit condition_reader(const std::string& text);

  // Whether a name that is not in quotes goes on like this: up to a dot, which is taken with it.
  bool takes(std::string_view prefix);
  std::string name();             // up to the operator
  std::string name_before_dot();  // up to the operator or the next dot, which is left
  comparison_operator operation();
  std::string value();

  [[noreturn]] void raise(const std::string& why) const;

 private:
  size_t end_of_name(std::string_view ends) const;
  std::string take_name(std::string_view ends);
  std::string unquoted(std::string_view part) const;

  const std::string& text_;
  std::string_view rest_;
};

#endif
