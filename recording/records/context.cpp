#include "recording/records/context.h"

#include "recording/records/scalar.h"
#include "recording/text/escape.h"

namespace ondemand = simdjson::ondemand;

// Bytes of a text between quotes that JSON cannot do with less of: controls are two of the shortest
// escapes, or six.
static size_t least_size(std::string_view text) {
  static constexpr std::string_view of_two = "\"\\\b\f\n\r\t";
  constexpr unsigned char first_plain = 0x20;
  size_t size = sizeof "\"\"" - 1 + text.size();
  for (const char c : text) {
    if (of_two.find(c) != std::string_view::npos)
      size += 1;
    else if (static_cast<unsigned char>(c) < first_plain)
      size += sizeof "u0000" - 1;
  }
  return size;
}

// Goes through one context. What is too large is left at once.
class context_writer {
 public:
  explicit context_writer(line_writer& line) : line_(line) {}

  void put(ondemand::object object) {
    if (!enter('{')) return;
    bool is_first = true;
    for (ondemand::field field : object) {
      if (!separate(is_first)) return;
      put_text(field.unescaped_key());
      put_mark(':');
      put(field.value());
    }
    leave('}');
  }
  const char* fault() const { return fault_; }

 private:
  void put(ondemand::array array) {
    if (!enter('[')) return;
    bool is_first = true;
    for (ondemand::value value : array) {
      if (!separate(is_first)) return;
      put(value);
    }
    leave(']');
  }

  void put(ondemand::value value) {
    const std::string_view token = without_blanks_behind(value.raw_json_token());
    if (token.starts_with('{')) return put(value.get_object().value());
    if (token.starts_with('[')) return put(value.get_array().value());
    if (token.starts_with('"')) return put_text(value.get_string());
    if (!scalar_kind(token)) throw simdjson::simdjson_error(simdjson::TAPE_ERROR);
    count(token.size());
    line_.append(token);
  }

  void put_text(std::string_view text) {
    count(least_size(text));
    append_json_text(line_, text);
  }

  void put_mark(char mark) {
    count(1);
    line_.append(mark);
  }

  // Whether the next part is looked at.
  bool separate(bool& is_first) {
    if (!is_first) put_mark(',');
    is_first = false;
    return fault_ == nullptr;
  }

  bool enter(char bracket) {
    if (++depth_ > record_context_depth) fail("\"context\" is nested at most 64 deep");
    put_mark(bracket);
    return fault_ == nullptr;
  }

  void leave(char bracket) {
    --depth_;
    put_mark(bracket);
  }

  void count(size_t size) {
    size_ += size;
    if (size_ > record_context_limit) fail("\"context\" has at most 4096 bytes");
  }

  void fail(const char* text) {
    if (fault_ == nullptr) fault_ = text;
  }

  line_writer& line_;
  size_t size_ = 0;
  size_t depth_ = 0;
  const char* fault_ = nullptr;
};

const char* append_record_context(ondemand::object object, line_writer& line) {
  static_assert(record_context_limit == 4096 && record_context_depth == 64);  // as faults say
  context_writer writer(line);
  writer.put(object);
  return writer.fault();
}
