#include "recording/definitions/reader.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "base/kp_endian.h"
#include "logging/def_read_items.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"

// Sizes of records with empty strings, by which counts are held against the bytes that are there.
static constexpr size_t least_attribute_size = 12;
static constexpr size_t least_message_size = 16;

// A message ID up to this size may name its event.
static constexpr size_t event_name_limit = 256;

// All records together may be this many times as large as the file that holds them.
static constexpr size_t overlap_limit = 16;

static constexpr std::string_view magic_bytes = ".LDF";

// Reads one item after the other. Behind the first one that goes beyond the file's end nothing more
// is read or reported, and all values are empty.
class definition_file_cursor {
 public:
  definition_file_cursor(const source_text& source, size_t at, diagnostic_list& found)
      : source_(source), at_(at), found_(found) {}

  bool good() const { return good_; }
  size_t at() const { return at_; }
  source_place place() const { return {&source_, at_}; }
  diagnostic_list& found() { return found_; }

  // False, and an error, when fewer than `size` bytes are left.
  bool has(size_t size, const std::string& what) {
    if (!good_) return false;
    const size_t left = source_.bytes().size() - std::min(at_, source_.bytes().size());
    if (size <= left) return true;
    fail("file-short"_rule, place(),
         what + " takes " + std::to_string(size) + " bytes, and " + std::to_string(left) +
             " are left");
    return false;
  }

  void fail(diagnostic_rule rule, const source_place& at, std::string text) {
    good_ = false;
    found_.add(rule, at, std::move(text));
  }

  placed<uint32_t> read_number(const char* what) {
    if (!has(4, what)) return {};
    const auto number = KP_get_big_endian<uint32_t>(source_.bytes().data() + at_);
    const source_place here = place();
    at_ += sizeof number;
    return {number, here};
  }

  placed<std::string> read_text(const char* what) {
    const placed<uint32_t> size = read_number(what);
    if (!good_ || !has(size.value, what)) return {};
    const std::string_view bytes = source_.bytes().substr(at_, size.value);
    const std::string_view text = bytes.substr(0, bytes.find('\0'));
    report_odd_string(size.place, what, bytes.size(), text.size());
    at_ += bytes.size();
    return {std::string(text), size.place};
  }

  // The number of records, each of at least `least_size` bytes, that follow.
  size_t read_count(const char* what, size_t least_size) {
    const placed<uint32_t> count = read_number("a count");
    if (!good_) return 0;
    if (count.value > kp_ldf_max_count)
      fail("too-many"_rule, count.place,
           "an entry has at most " + std::to_string(kp_ldf_max_count) + " " + what +
               ", and the count is " + std::to_string(count.value));
    else if (has(count.value * least_size, std::to_string(count.value) + " " + what + ", which"))
      return count.value;
    return 0;
  }

 private:
  void report_odd_string(const source_place& at, const char* what, size_t size, size_t text_size) {
    if (size == 0 || text_size + 1 == size) return;
    found_.add("file-string"_rule, at,
               text_size == size
                   ? std::string(what) + " has no NUL at its end"
                   : std::string(what) + " has " + std::to_string(size - text_size - 1) +
                         " bytes behind its NUL");
  }

  const source_text& source_;
  size_t at_;
  diagnostic_list& found_;
  bool good_ = true;
};

static placed<std::string> given_unless_empty(const placed<std::string>& text) {
  return text.value.empty() ? placed<std::string>{} : text;
}

static attribute_model read_attribute(definition_file_cursor& cursor) {
  attribute_model attribute;
  attribute.name = cursor.read_text("an attribute's name");
  const placed<uint32_t> type = cursor.read_number("an attribute's type");
  attribute.type = static_cast<kp_AttributeType>(type.value & 0xFF);
  attribute.redirection = given_unless_empty(cursor.read_text("a redirection name"));
  if (cursor.good() && find_type(type.value) == nullptr)
    cursor.found().add("file-type"_rule, type.place,
                       "the code " + std::to_string(type.value) +
                           " of the attribute's type is none; types are 1 to " +
                           std::to_string(last_type_code));
  return attribute;
}

static std::vector<attribute_model> read_attributes(definition_file_cursor& cursor, size_t count) {
  std::vector<attribute_model> attributes;
  for (size_t i = 0; i < count && cursor.good(); ++i) attributes.push_back(read_attribute(cursor));
  if (!cursor.good() && !attributes.empty()) attributes.pop_back();
  return attributes;
}

static void read_message_texts(definition_file_cursor& cursor, message_model& message) {
  message.id = cursor.read_text("a message ID");
  message.raw = cursor.read_text("a message text");
  message.template_bytes = message.raw.value;
}

static message_model read_selector_message(definition_file_cursor& cursor) {
  message_model message;
  message.place = cursor.place();
  message.index = cursor.read_number("a selector message's index");
  message.value = cursor.read_number("a selector message's value");
  read_message_texts(cursor, message);
  return message;
}

static event_model read_record(definition_file_cursor& cursor) {
  event_model event;
  event.name.place = cursor.place();
  event.id = cursor.read_number("an entry record");
  event.second_word = cursor.read_number("the second word");
  event.flags = cursor.read_number("the property flags").value;
  event.message.place = cursor.place();
  read_message_texts(cursor, event.message);
  event.selector = given_unless_empty(cursor.read_text("the selector attribute's name"));
  event.attributes = read_attributes(cursor, cursor.read_count("attributes", least_attribute_size));
  const size_t messages = cursor.read_count("selector messages", least_message_size);
  for (size_t i = 0; i < messages && cursor.good(); ++i)
    event.messages.push_back(read_selector_message(cursor));
  return event;
}

static bool is_plain_name(std::string_view text) {
  if (text.empty() || text.size() > event_name_limit) return false;
  for (const utf8_character& character : utf8(text))
    if (!character.valid || is_unsafe_on_terminal(character.code_point)) return false;
  return true;
}

// The bytes of a file in memory, for the library's reader of the header.
class definition_memory_source {
 public:
  explicit definition_memory_source(std::string_view bytes) : bytes_(bytes) {}

  bool read(void* target, size_t n) {
    if (n > bytes_.size()) return false;
    std::memcpy(target, bytes_.data(), n);
    bytes_.remove_prefix(n);
    return true;
  }

 private:
  std::string_view bytes_;
};

class definition_file_reader {
 public:
  definition_file_reader(definition_file& file, diagnostic_list& found)
      : file_(file), found_(found) {}

  void read() {
    if (file_.source.bytes().size() > definition_file_size_limit)
      return found_.add("too-large"_rule, {&file_.source, 0}, "the file is larger than 1 GiB");
    if (!read_header()) return;
    read_globals();
    read_mapping();
    for (const mapping_row& row : mapping_)
      if (!read_event(row)) return;
    name_events();
  }

 private:
  struct mapping_row {
    placed<uint32_t> id;
    size_t offset = 0;
  };

  definition_file_cursor cursor_at(size_t offset) { return {file_.source, offset, found_}; }

  bool read_header() {
    definition_file_cursor cursor = cursor_at(0);
    if (!check_magic()) return false;
    if (!cursor.has(kp_ldf_header_size, "the header")) return false;
    definition_memory_source memory(file_.source.bytes());
    kp_ldf_read_header(memory, file_.header);
    const std::string_view version(file_.header.log_version, kp_ldf_version_size);
    file_.set.log_version = {std::string(version.substr(0, version.find('\0'))),
                             {&file_.source, offsetof(_kp_LOG_ldf_header_struct, log_version)}};
    return true;
  }

  bool check_magic() {
    if (is_definition_file(file_.source.bytes())) return true;
    const std::string_view bytes = file_.source.bytes();
    if (bytes.starts_with("kplog:") || bytes.find("\nkplog:") != std::string_view::npos) {
      found_.add("file-magic"_rule, {&file_.source, 0},
                 "this is a source, and a compiled file is expected: kplog compile makes it");
      return false;
    }
    std::string found;
    for (const char byte : bytes.substr(0, magic_bytes.size()))
      found += " " + hexadecimal(static_cast<unsigned char>(byte), 2);
    found_.add("file-magic"_rule, {&file_.source, 0},
               "a definition file begins with 2E 4C 44 46, and this one with" +
                   (found.empty() ? " nothing" : found));
    return false;
  }

  void read_globals() {
    const size_t count = file_.header.n_global_attributes;
    const size_t begin = file_.header.global_attributes_offset;
    definition_file_cursor cursor = cursor_at(begin);
    if (count > kp_ldf_max_count)
      return cursor.fail("too-many"_rule,
                         {&file_.source, offsetof(_kp_LOG_ldf_header_struct, n_global_attributes)},
                         "a file has at most " + std::to_string(kp_ldf_max_count) +
                             " global attributes, and the count is " + std::to_string(count));
    if (count == 0 || !cursor.has(count * least_attribute_size, "the global attribute section"))
      return;
    file_.set.globals = read_attributes(cursor, count);
    file_.globals = {begin, cursor.at()};
  }

  void read_mapping() {
    const size_t count = file_.header.n_entries;
    definition_file_cursor cursor = cursor_at(file_.header.mapping_offset);
    if (count == 0 || !cursor.has(count * kp_ldf_mapping_size, "the mapping table")) return;
    std::vector<mapping_row> rows(count);
    std::unordered_map<uint32_t, size_t> last;
    for (size_t i = 0; i < count; ++i) {
      rows[i].id = cursor.read_number("the mapping table");
      rows[i].offset = cursor.read_number("the mapping table").value;
      const auto [former, is_new] = last.emplace(rows[i].id.value, i);
      if (!is_new) report_repeated_id(rows[i], rows[former->second]);
      former->second = i;
    }
    for (size_t i = 0; i < count; ++i)
      if (last[rows[i].id.value] == i) mapping_.push_back(rows[i]);
  }

  void report_repeated_id(const mapping_row& row, const mapping_row& former) {
    found_.add("file-mapping"_rule, row.id.place,
               "the ID " + std::to_string(row.id.value) + " comes again, and counts from here",
               former.id.place, "it comes first here");
  }

  // False when it is time to give up.
  bool read_event(const mapping_row& row) {
    definition_file_cursor cursor = cursor_at(row.offset);
    event_model event = read_record(cursor);
    records_size_ += cursor.at() - row.offset;
    if (records_size_ / overlap_limit > file_.source.bytes().size()) {
      found_.add("file-overlap"_rule, event.name.place,
                 "the records up to here take more than " + std::to_string(overlap_limit) +
                     " times the bytes of the file");
      return false;
    }
    if (cursor.good() && is_mapped(row, event)) {
      file_.set.events.push_back(std::move(event));
      file_.records.push_back({row.offset, cursor.at()});
    }
    return true;
  }

  bool is_mapped(const mapping_row& row, const event_model& event) {
    if (event.id.value == row.id.value) return true;
    found_.add("file-record"_rule, event.id.place,
               "the record of the ID " + std::to_string(row.id.value) +
                   " is expected here, and this is " + std::to_string(event.id.value),
               row.id.place, "the mapping table points here");
    return false;
  }

  void name_events() {
    std::unordered_set<std::string> taken;
    for (event_model& event : file_.set.events) {
      std::string& name = event.name.value;
      name = is_plain_name(event.message.id.value) ? event.message.id.value : std::string();
      if (!name.empty() && taken.insert(name).second) continue;
      name = "EVENT_" + std::to_string(event.id.value);
      while (!taken.insert(name).second) name += '_';
    }
  }

  definition_file& file_;
  diagnostic_list& found_;
  std::vector<mapping_row> mapping_;  // those that count
  size_t records_size_ = 0;
};

definition_file::definition_file(std::string name, std::string bytes)
    : source(source_text::binary(std::move(name), std::move(bytes))) {
  set.sources.push_back(&source);
}

bool read_definition_file(definition_file& file, diagnostic_list& found) {
  const size_t before = found.count(rule_severity::error);
  definition_file_reader(file, found).read();
  file.set.is_whole = found.count(rule_severity::error) == before;
  return file.set.is_whole;
}

bool is_definition_file(std::string_view bytes) {
  return bytes.starts_with(magic_bytes);
}
