// JSON on one line, appended to a text piece by piece.
#ifndef RECORDING_TEXT_JSON_TEXT_H
#define RECORDING_TEXT_JSON_TEXT_H

#include <array>
#include <charconv>
#include <string>
#include <string_view>

// Commas come by themselves. The text outlives this, and may end with whole lines of JSON; the
// pieces may also be appended by several of these, one after the other.
class json_text {
 public:
  explicit json_text(std::string& json) : json_(json) {}

  json_text& begin_object() { return begin('{'); }
  json_text& end_object() { return append('}'); }
  json_text& begin_list() { return begin('['); }
  json_text& end_list() { return append(']'); }

  json_text& key(std::string_view name);
  json_text& text(std::string_view text);

  template <class Number>
  json_text& number(Number number) {
    std::array<char, 32> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    return written({digits.data(), end});
  }

  // What is JSON already: true, false, null, members of an object.
  json_text& written(std::string_view json);

 private:
  json_text& begin(char bracket);
  json_text& append(char mark);
  void separate();

  std::string& json_;
};

#endif
