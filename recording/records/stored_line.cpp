#include "recording/records/stored_line.h"

#include <simdjson.h>

#include <algorithm>
#include <cstring>

#include "recording/records/origin.h"
#include "recording/records/scalar.h"
#include "recording/text/number.h"

static constexpr size_t shape_count = 64;
static constexpr size_t most_compared_names = 32;

// --- Bytes ---

// What there is in a line.
struct line_bytes {
  bool has_control_character = false;
  bool has_backslash = false;
  bool is_ascii = true;
};

static line_bytes bytes_of(std::string_view line) {
  using bytes [[gnu::vector_size(16)]] = signed char;
  using words [[gnu::vector_size(16)]] = uint64_t;
  constexpr size_t size = sizeof(bytes);
  bytes control{}, backslash{}, high{};
  const auto look = [&](const char* at) {
    bytes block;
    std::memcpy(&block, at, size);
    high |= block;
    control |= (block < ' ') & (block >= 0);
    backslash |= block == '\\';
  };
  for (size_t at = 0; at + size <= line.size(); at += size) look(line.data() + at);
  look(line.data() + line.size() - size);
  const auto has = [](bytes of, uint64_t bits) {
    const auto in_words = reinterpret_cast<words>(of);
    return ((in_words[0] | in_words[1]) & bits) != 0;
  };
  constexpr uint64_t highest_bits = 0x8080808080808080;
  return {has(control, UINT64_MAX), has(backslash, UINT64_MAX), !has(high, highest_bits)};
}

// Of the escapes of one character; nothing for \u, and what is none.
static std::optional<char> escaped(char after_backslash) {
  static constexpr std::string_view escapes = "\"\\/bfnrt";
  static constexpr std::string_view characters = "\"\\/\b\f\n\r\t";
  const size_t at = escapes.find(after_backslash);
  if (at == escapes.npos) return std::nullopt;
  return characters[at];
}

// --- The line ---

class stored_line_reader::walk {
 public:
  walk(stored_line_reader& reader, std::string_view line, bool has_escapes, parsed_record& record)
      : reader_(reader), line_(line), has_escapes_(has_escapes), record_(record) {}

  bool takes_all() {
    return takes_start() && takes_level() && takes_time() && takes_origin() && takes_attributes() &&
           takes_types() && takes_message();
  }

 private:
  template <size_t size>
  bool takes(const char (&text)[size]) {
    return takes(std::string_view(text, size - 1));
  }
  [[gnu::always_inline]] bool takes(std::string_view text) {
    const bool is_there = line_.size() - at_ >= text.size() &&
                          std::memcmp(line_.data() + at_, text.data(), text.size()) == 0;
    if (is_there) at_ += text.size();
    return is_there;
  }

  bool takes_text(record_value& value) {
    if (!takes("\"")) return false;
    const size_t end = line_.find('"', at_);
    if (end == line_.npos) return false;
    const bool is_escaped = has_escapes_ && line_.substr(at_, end - at_).find('\\') != line_.npos;
    if (is_escaped) return takes_escaped_text(value);
    value = {record_value_kind::text, line_.substr(at_, end - at_), at_ - 1};
    at_ = end + 1;
    return true;
  }

  // A number, true, false or null; most are whole numbers.
  bool takes_token(record_value& value) {
    size_t end = at_;
    while (end < line_.size() && line_[end] >= '0' && line_[end] <= '9') ++end;
    const bool is_whole = end < line_.size() && (line_[end] == ',' || line_[end] == '}') &&
                          (end == at_ + 1 || (end > at_ && line_[at_] != '0'));
    if (is_whole) {
      value = {record_value_kind::integer, line_.substr(at_, end - at_), at_};
      at_ = end;
      return true;
    }
    while (end < line_.size() && line_[end] != ',' && line_[end] != '}') ++end;
    const std::string_view token = line_.substr(at_, end - at_);
    const std::optional<record_value_kind> kind = scalar_kind(token);
    if (!kind) return false;
    value = {*kind, token, at_};
    at_ = end;
    return true;
  }

  bool takes_value(record_value& value) {
    return at_ < line_.size() && line_[at_] == '"' ? takes_text(value) : takes_token(value);
  }

  template <class Number>
  bool takes_number(Number& number) {
    record_value value;
    if (!takes_token(value) || value.kind != record_value_kind::integer) return false;
    const auto read = number_of<Number>(value.text);
    if (read) number = *read;
    return read.has_value();
  }

  // One that may be there, behind another member.
  bool takes_known(std::string_view key, std::optional<uint64_t>& number) {
    return !takes(key) || takes_number(number.emplace());
  }
  bool takes_known(std::string_view key, std::string_view& text) {
    record_value value;
    if (!takes(key)) return true;
    if (!takes_text(value) || value.text.empty()) return false;
    text = value.text;
    return true;
  }

  bool takes_escaped_text(record_value& value);
  bool takes_start();
  bool takes_new_start();
  void remember_start();
  bool takes_level();
  bool takes_time();
  bool takes_origin();
  bool takes_recorded();
  bool takes_peer();
  bool takes_attributes();
  bool takes_name(size_t place, bool& is_known, std::string_view& name);
  void remember_names();
  bool takes_types();
  bool takes_new_types();
  bool takes_message();

  stored_line_reader& reader_;
  std::string_view line_;
  bool has_escapes_;
  parsed_record& record_;
  size_t at_ = 0;
};

// Behind its first quote.
bool stored_line_reader::walk::takes_escaped_text(record_value& value) {
  std::string& texts = reader_.texts_;
  const size_t begin = texts.size(), offset = at_ - 1;
  for (; at_ < line_.size() && line_[at_] != '"'; ++at_) {
    char character = line_[at_];
    if (character == '\\') {
      const std::optional<char> meant =
          at_ + 1 < line_.size() ? escaped(line_[at_ + 1]) : std::nullopt;
      if (!meant) return false;
      character = *meant;
      ++at_;
    }
    texts += character;
  }
  value = {record_value_kind::text, std::string_view(texts).substr(begin), offset};
  return takes("\"");
}

bool stored_line_reader::walk::takes_start() {
  known_start& known = reader_.start_;
  if (known.text.empty() || !takes(known.text)) return takes_new_start();
  const auto of_line = [this](const record_value& value, size_t size) {
    const size_t quote = value.kind == record_value_kind::text ? 1 : 0;
    return record_value{value.kind, line_.substr(value.offset + quote, size), value.offset};
  };
  record_.version = of_line(*known.record.version, known.version_size);
  record_.event = of_line(known.record.event, known.event_size);
  record_.name.reset();
  if (known.record.name) record_.name = of_line(*known.record.name, known.name_size);
  return true;
}

bool stored_line_reader::walk::takes_new_start() {
  record_.name.reset();
  if (!takes(stored_record_start) || !takes_text(record_.version.emplace()) ||
      !takes(",\"event\":") || !takes_token(record_.event) ||
      record_.event.kind != record_value_kind::integer)
    return false;
  if (takes(",\"name\":") && !takes_text(record_.name.emplace())) return false;
  const bool is_escaped = has_escapes_ && line_.substr(0, at_).find('\\') != line_.npos;
  if (is_escaped || !takes(",\"level\":")) return false;
  remember_start();
  return true;
}

void stored_line_reader::walk::remember_start() {
  known_start& known = reader_.start_;
  known.text = line_.substr(0, at_);
  known.record.version = record_.version;
  known.record.event = record_.event;
  known.record.name = record_.name;
  known.version_size = record_.version->text.size();
  known.event_size = record_.event.text.size();
  known.name_size = record_.name ? record_.name->text.size() : 0;
  const uint32_t id = number_of<uint32_t>(record_.event.text).value_or(0);
  reader_.shape_ = &reader_.shapes_[id % shape_count];
}

bool stored_line_reader::walk::takes_level() {
  if (at_ >= line_.size() || line_[at_] < '0' || line_[at_] > '9') return false;
  record_.level = static_cast<unsigned>(line_[at_++] - '0');
  return true;
}

bool stored_line_reader::walk::takes_time() {
  return takes(",\"time\":") && takes_text(record_.time.emplace());
}

// --- Where it came from ---

bool stored_line_reader::walk::takes_recorded() {
  record_value value;
  if (!takes_text(value)) return false;
  const std::string_view text = value.text;
  constexpr size_t second_size = sizeof "2026-11-15T17:02:56" - 1;
  constexpr size_t most_digits = 9;
  const std::string_view second = text.substr(0, second_size);
  const size_t end = std::min(text.find_first_not_of("0123456789", second_size + 1), text.size());
  const bool has_fraction = text.size() > second_size && text[second_size] == '.' &&
                            end > second_size + 1 && end <= second_size + 1 + most_digits;
  const std::string_view zone = text.substr(has_fraction ? end : second.size());
  record_.origin.recorded = text;
  if (has_fraction && second == reader_.second_ && zone == reader_.zone_) return true;
  if (!is_record_origin_time(text)) return false;
  if (has_fraction) {
    reader_.second_ = second;
    reader_.zone_ = zone;
  }
  return true;
}

bool stored_line_reader::walk::takes_peer() {
  record_peer& peer = record_.origin.peer.emplace();
  return takes("{\"user\":") && takes_number(peer.user) && takes(",\"process\":") &&
         takes_number(peer.process) && takes("}");
}

bool stored_line_reader::walk::takes_origin() {
  record_.origin = {};
  if (takes(",\"attributes\":{")) return true;
  record_origin& origin = record_.origin;
  return (!takes(",\"recorded\":") || takes_recorded()) && takes_known(",\"host\":", origin.host) &&
         takes_known(",\"recorder\":", origin.recorder) && takes_known(",\"pid\":", origin.pid) &&
         takes_known(",\"thread\":", origin.thread) &&
         takes_known(",\"sequence\":", origin.sequence) &&
         takes_known(",\"client\":", origin.client) && takes_known(",\"number\":", origin.number) &&
         (!takes(",\"peer\":") || takes_peer()) && takes(",\"attributes\":{");
}

// --- What it holds ---

// The name at that place is most often that of the line before, and then it is none of the others.
bool stored_line_reader::walk::takes_name(size_t place, bool& is_known, std::string_view& name) {
  const std::vector<std::string>& names = reader_.shape_->names;
  const size_t begin = at_ + 1;
  is_known = is_known && place < names.size() && takes(names[place]);
  if (is_known) {
    name = line_.substr(begin, names[place].size() - 3);
    return true;
  }
  record_value text;
  if (!takes_text(text) || text.text.size() != at_ - begin - 1 || !takes(":")) return false;
  name = text.text;
  const std::vector<record_attribute>& held = record_.attributes;
  return place < most_compared_names &&
         std::none_of(held.begin(), held.end(), [&](const auto& a) { return a.name == name; });
}

void stored_line_reader::walk::remember_names() {
  std::vector<std::string>& names = reader_.shape_->names;
  names.resize(record_.attributes.size());
  for (size_t i = 0; i < names.size(); ++i) {
    const record_attribute& attribute = record_.attributes[i];
    names[i] = line_.substr(attribute.offset, attribute.name.size() + 3);
  }
}

bool stored_line_reader::walk::takes_attributes() {
  record_.attributes.clear();
  if (takes("}")) return true;
  bool is_known = true;
  do {
    record_attribute attribute;
    attribute.offset = at_;
    if (!takes_name(record_.attributes.size(), is_known, attribute.name) ||
        !takes_value(attribute.value))
      return false;
    record_.attributes.push_back(attribute);
  } while (takes(","));
  if (!is_known) remember_names();
  return takes("}");
}

bool stored_line_reader::walk::takes_new_types() {
  const size_t begin = at_;
  if (!takes("{")) return false;
  record_value text;
  if (!takes("}")) {
    do {
      if (!takes_text(text) || !takes(":") || !takes_text(text)) return false;
    } while (takes(","));
    if (!takes("}")) return false;
  }
  reader_.shape_->types = line_.substr(begin, at_ - begin);
  return true;
}

bool stored_line_reader::walk::takes_types() {
  const std::string& types = reader_.shape_->types;
  return takes(",\"types\":") && ((!types.empty() && takes(types)) || takes_new_types());
}

bool stored_line_reader::walk::takes_message() {
  record_value from;
  return takes(",\"message_index\":") && takes_number(record_.message_index) &&
         takes(",\"message\":") && takes_text(record_.message.emplace()) &&
         (!takes(",\"message_from\":") || takes_text(from)) && takes("}") && at_ == line_.size();
}

// --- The reader ---

stored_line_reader::stored_line_reader() : shapes_(shape_count), shape_(shapes_.data()) {}

bool stored_line_reader::read(std::string_view line, parsed_record& record) {
  constexpr size_t shortest = 64;  // of those that are written
  if (line.size() < shortest || line.size() > stored_record_size_limit) return false;
  const line_bytes bytes = bytes_of(line);
  if (bytes.has_control_character) return false;
  if (!bytes.is_ascii && !simdjson::validate_utf8(line.data(), line.size())) return false;
  texts_.clear();
  if (bytes.has_backslash) texts_.reserve(line.size());  // and what points there stays right
  return walk(*this, line, bytes.has_backslash, record).takes_all();
}
