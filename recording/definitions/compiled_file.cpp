#include "recording/definitions/compiled_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
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

// The bytes of a file in memory, from an offset on, as the library's readers take them
// (logging/def_read_items.h). Knows where each item begins, and reports the first one that goes
// beyond the file's end, and texts that the library takes leniently. Behind that item nothing more
// is read or reported.
class definition_cursor {
 public:
  definition_cursor(const text_file& source, size_t at, diagnostic_list& found)
      : source_(source), at_(at), found_(found) {}

  // --- for the library's readers: an item is a number, or a text behind its size

  bool read(void* target, size_t n) {
    if (!is_within_text_) begin_item();
    if (!has(n, name())) return false;
    const std::string_view bytes = source_.bytes().substr(at_, n);
    if (is_within_text_) report_odd_string(bytes);
    std::memcpy(target, bytes.data(), n);
    at_ += n;
    is_within_text_ = false;
    return true;
  }

  bool may_hold(size_t n) {
    is_within_text_ = has(n, name());
    return is_within_text_;
  }

  static constexpr bool knows_its_end() { return true; }

  // ---

  // The items that are read next, as faults call them; those behind are called as the last.
  void expect(std::initializer_list<const char*> names) {
    std::copy(names.begin(), names.end(), names_.begin());
    n_names_ = names.size();
    n_items_ = 0;
  }
  // Where the item of that number, among those expected, begins.
  text_place place_of(size_t item) const { return places_[item]; }

  bool good() const { return good_; }
  size_t at() const { return at_; }
  text_place place() const { return {&source_, at_}; }

  // False, and an error, when fewer than `size` bytes are left.
  bool has(size_t size, std::string_view what) {
    if (!good_) return false;
    const size_t left = source_.bytes().size() - std::min(at_, source_.bytes().size());
    if (size <= left) return true;
    fail("file-short"_rule, place(),
         std::string(what) + " takes " + std::to_string(size) + " bytes, and " +
             std::to_string(left) + " are left");
    return false;
  }

  void fail(diagnostic_rule rule, const text_place& at, std::string text) {
    good_ = false;
    found_.add(rule, at, std::move(text));
  }

  // The code of an attribute's type that is none; the model has eight bits of it.
  void report_no_type(const text_place& at) {
    const auto code = KP_get_big_endian<uint32_t>(source_.bytes().data() + at.at);
    if (find_type(code) == nullptr)
      found_.add("file-type"_rule, at,
                 "the code " + std::to_string(code) +
                     " of the attribute's type is none; types are 1 to " +
                     std::to_string(last_type_code));
  }

 private:
  const char* name() const { return names_[n_items_ - 1]; }

  void begin_item() {
    if (n_items_ < n_names_) ++n_items_;
    places_[n_items_ - 1] = place();
  }

  void report_odd_string(std::string_view bytes) {
    const size_t text_size = std::min(bytes.find('\0'), bytes.size());
    if (text_size + 1 == bytes.size()) return;
    found_.add("file-string"_rule, places_[n_items_ - 1],
               text_size == bytes.size()
                   ? std::string(name()) + " has no NUL at its end"
                   : std::string(name()) + " has " + std::to_string(bytes.size() - text_size - 1) +
                         " bytes behind its NUL");
  }

  const text_file& source_;
  size_t at_;
  diagnostic_list& found_;
  bool good_ = true;
  static constexpr size_t most_items = 6;
  std::array<const char*, most_items> names_{};
  std::array<text_place, most_items> places_;
  size_t n_names_ = 0;
  size_t n_items_ = 0;  // that were begun
  bool is_within_text_ = false;
};

static placed<std::string> text_at(const kp_String& text, const text_place& place) {
  return {std::string(text.c_str(), text.length()), place};
}

static placed<std::string> given_unless_empty(const kp_String& text, const text_place& place) {
  return text.length() == 0 ? placed<std::string>{} : text_at(text, place);
}

static std::vector<attribute_model> read_attributes(definition_cursor& in, size_t count) {
  std::vector<attribute_model> attributes;
  for (size_t i = 0; i < count; ++i) {
    in.expect({"an attribute's name", "an attribute's type", "a redirection name"});
    kp_String name;
    kp_String redirection;
    attribute_model attribute;
    if (!kp_ldf_read_attribute(in, name, attribute.type, redirection)) break;
    attribute.name = text_at(name, in.place_of(0));
    attribute.redirection = given_unless_empty(redirection, in.place_of(2));
    in.report_no_type(in.place_of(1));
    attributes.push_back(std::move(attribute));
  }
  return attributes;
}

// The number of records, each of at least `least_size` bytes, that follow.
static size_t read_count(definition_cursor& in, const char* what, size_t least_size) {
  in.expect({"a count"});
  unsigned count = 0;
  if (!in.good() || !kp_ldf_read_int4(in, count)) return 0;
  if (count > kp_ldf_max_count)
    in.fail("too-many"_rule, in.place_of(0),
            "an entry has at most " + std::to_string(kp_ldf_max_count) + " " + what +
                ", and the count is " + std::to_string(count));
  else if (in.has(count * least_size, std::to_string(count) + " " + what + ", which"))
    return count;
  return 0;
}

static void set_message(message_model& message, const kp_String& id, const text_place& place_of_id,
                        const kp_String& text, const text_place& place_of_text) {
  message.id = text_at(id, place_of_id);
  message.raw = text_at(text, place_of_text);
  message.template_bytes = message.raw.value;
}

static std::vector<message_model> read_selector_messages(definition_cursor& in, size_t count) {
  std::vector<message_model> messages;
  for (size_t i = 0; i < count; ++i) {
    in.expect({"a selector message's index", "a selector message's value", "a message ID",
               "a message text"});
    message_model message;
    message.place = in.place();
    kp_String id;
    kp_String text;
    if (!kp_ldf_read_selector_msg(in, message.index.value, message.value.value, id, text)) break;
    message.index.place = in.place_of(0);
    message.value.place = in.place_of(1);
    set_message(message, id, in.place_of(2), text, in.place_of(3));
    messages.push_back(std::move(message));
  }
  return messages;
}

// As much of a record as can be read; the source says whether it is the whole.
static event_model read_record(definition_cursor& in) {
  event_model event;
  event.name.place = in.place();
  in.expect({"an entry record", "the second word", "the property flags", "a message ID",
             "a message text", "the selector attribute's name"});
  kp_String id;
  kp_String text;
  kp_String selector;
  if (!kp_ldf_read_entry_info(in, event.id.value, event.second_word.value, event.flags, id, text,
                              selector))
    return event;
  event.id.place = in.place_of(0);
  event.second_word.place = in.place_of(1);
  event.message.place = in.place_of(3);
  set_message(event.message, id, in.place_of(3), text, in.place_of(4));
  event.selector = given_unless_empty(selector, in.place_of(5));
  event.attributes = read_attributes(in, read_count(in, "attributes", least_attribute_size));
  event.messages =
      read_selector_messages(in, read_count(in, "selector messages", least_message_size));
  return event;
}

static bool is_tellable_name(std::string_view text) {
  if (text.empty() || text.size() > event_name_limit) return false;
  for (const utf8_character& character : utf8(text))
    if (!character.valid || is_unsafe_on_terminal(character.code_point)) return false;
  return true;
}

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
    uint32_t offset = 0;
  };

  definition_cursor cursor_at(size_t offset) { return {file_.source, offset, found_}; }

  bool read_header() {
    definition_cursor in = cursor_at(0);
    if (!check_magic() || !in.has(kp_ldf_header_size, "the header")) return false;
    in.expect({"the header"});
    kp_ldf_read_header(in, file_.header);
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
    definition_cursor in = cursor_at(begin);
    if (count > kp_ldf_max_count)
      return in.fail("too-many"_rule,
                     {&file_.source, offsetof(_kp_LOG_ldf_header_struct, n_global_attributes)},
                     "a file has at most " + std::to_string(kp_ldf_max_count) +
                         " global attributes, and the count is " + std::to_string(count));
    if (count == 0 || !in.has(count * least_attribute_size, "the global attribute section")) return;
    file_.set.globals = read_attributes(in, count);
    file_.globals = {begin, in.at()};
  }

  void read_mapping() {
    const size_t count = file_.header.n_entries;
    definition_cursor in = cursor_at(file_.header.mapping_offset);
    if (count == 0 || !in.has(count * kp_ldf_mapping_size, "the mapping table")) return;
    std::vector<mapping_row> rows(count);
    std::unordered_map<uint32_t, size_t> last;
    for (size_t i = 0; i < count; ++i) {
      in.expect({"the mapping table"});
      rows[i].id.place = in.place();
      kp_ldf_read_mapping(in, rows[i].id.value, rows[i].offset);
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
    definition_cursor in = cursor_at(row.offset);
    event_model event = read_record(in);
    records_size_ += in.at() - row.offset;
    if (records_size_ / overlap_limit > file_.source.bytes().size()) {
      found_.add("file-overlap"_rule, event.name.place,
                 "the records up to here take more than " + std::to_string(overlap_limit) +
                     " times the bytes of the file");
      return false;
    }
    if (in.good() && is_mapped(row, event)) {
      file_.set.events.push_back(std::move(event));
      file_.records.push_back({row.offset, in.at()});
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
      name = is_tellable_name(event.message.id.value) ? event.message.id.value : std::string();
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
    : source(text_file::binary(std::move(name), std::move(bytes))) {
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
