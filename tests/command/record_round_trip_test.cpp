// Random records of every type: what was made of them reads back as it was written.
#include <unicode/utf16.h>

#include <charconv>
#include <cstring>
#include <limits>
#include <random>

#include "logging/logentry_i.h"
#include "recording/records/stored_form.h"
#include "recording/records/stored_line.h"
#include "recording/records/values.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "tests/command/characters.h"
#include "tests/recording/records/record_events.h"
#include "tests/recording/records/told_record.h"

// A value as a record writes it, and as an entry gives it back.
struct random_value {
  std::string json;
  std::string held;
};

class random_values {
 public:
  explicit random_values(unsigned seed) : random_(seed) {}

  random_value of(kp_AttributeType type) {
    if (type == TypeBool) return plain(below(2) != 0 ? "true" : "false");
    if (is_string_attribute(type)) return text(limit_of(type - TypeChar32), 1);
    if (is_unicode_string_attribute(type)) return text(limit_of(type - TypeMBChar32), 2);
    if (is_time_attribute(type)) return time();
    if (type == TypeFloat) return real();
    const int bits = type <= TypeSInt1 ? 8 : type <= TypeSInt2 ? 16 : 32;
    return plain(std::to_string(integer(bits, is_signed_integer_attribute(type))));
  }

  bool once_in(unsigned n) { return below(n) == 0; }

  // Some of the members that say where a record came from, as the stored form writes them.
  std::string origin() {
    std::string members;
    const auto add = [&](const char* key, const std::string& json) {
      if (!once_in(3)) members += std::string(",\"") + key + "\":" + json;
    };
    const auto any_text = [&] {
      std::string held = text(80, 2).held;
      return json_string(held.empty() ? "x" : held);
    };
    std::string recorded = time().json;
    recorded.insert(recorded.size() - 7, "." + std::to_string(random_()).substr(0, below(9) + 1));
    add("recorded", recorded);
    add("host", any_text());
    add("recorder", any_text());
    add("pid", std::to_string(below(1 << 22)));
    add("thread", std::to_string(random_()));
    add("sequence", std::to_string(random_()));
    return members;
  }

 private:
  static random_value plain(const std::string& text) { return {text, text}; }

  unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }

  static size_t limit_of(int size_class) {
    static constexpr size_t limits[] = {32, 64, 128, 256, 1024, 2048};
    return limits[size_class];
  }

  // The limits come often.
  long long integer(int bits, bool is_signed) {
    const long long most = (1LL << (is_signed ? bits - 1 : bits)) - 1;
    const long long least = is_signed ? -most - 1 : 0;
    if (once_in(4)) return most;
    if (once_in(4)) return least;
    return least + static_cast<long long>(random_() % static_cast<uint64_t>(most - least + 1));
  }

  // Any bits of a double that is a number.
  random_value real() {
    double value = 0;
    do {
      const uint64_t bits = random_();
      std::memcpy(&value, &bits, sizeof value);
    } while (special_float_text(value) != nullptr);
    char digits[64];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return plain(std::string(digits, end));
  }

  random_value time() {
    char text[32];
    const int size = snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u%c%02u:%02u",
                              below(10000), below(12) + 1, below(28) + 1, below(24), below(60),
                              below(60), once_in(2) ? '+' : '-', below(24), below(60));
    std::string told(text, static_cast<size_t>(size));
    if (told.ends_with("-00:00")) told.replace(told.size() - 6, 1, "+");
    return {'"' + told + '"', told};
  }

  // A character as a record writes it, as an entry holds it, and its size in bytes and in UTF-16.
  struct piece {
    std::string json;
    std::string held;
    size_t sizes[2];
  };

  // Any character but a NUL, as it is where JSON takes it so, or as an escape.
  piece character() {
    uint32_t code_point = 0;
    while (code_point == 0 || code_point == '\n' || code_point == '\r')
      code_point = random_character(random_);
    const std::string held = utf8_of(code_point);
    const bool must_escape = code_point < 0x20 || code_point == '"' || code_point == '\\';
    const auto unit = [](uint32_t value) { return "\\u" + hexadecimal(value, 4); };
    const std::string escape = code_point < 0x10000
                                   ? unit(code_point)
                                   : unit(U16_LEAD(code_point)) + unit(U16_TRAIL(code_point));
    return {must_escape || once_in(2) ? escape : held,
            held,
            {held.size(), code_point < 0x10000 ? size_t{1} : size_t{2}}};
  }

  // Up to `limit` units, often just as many. Line breaks are one unit, and held as two characters.
  random_value text(size_t limit, size_t unit) {
    static const piece pieces[] = {{"a", "a", {1, 1}},     {" ", " ", {1, 1}},
                                   {"\\\"", "\"", {1, 1}}, {"\\\\", "\\", {1, 1}},
                                   {"\\t", "\t", {1, 1}},  {"\\n", "\\n", {1, 1}},
                                   {"\\r", "\\r", {1, 1}}, {"%", "%", {1, 1}},
                                   {"{", "{", {1, 1}},     {"'", "'", {1, 1}}};
    const size_t size = once_in(3) ? limit : below(static_cast<unsigned>(limit) + 1);
    random_value value{"\"", ""};
    for (size_t used = 0; used < size;) {
      const piece next = once_in(2) ? character() : pieces[below(std::size(pieces))];
      if (used + next.sizes[unit - 1] > size) continue;
      used += next.sizes[unit - 1];
      value.json += next.json;
      value.held += next.held;
    }
    value.json += '"';
    return value;
  }

  std::mt19937_64 random_;
};

static std::string shown(double value) {
  char digits[64];
  return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

static std::string shown(const kp_Time& value) {
  char text[64];
  value.print_out(text, sizeof text);
  return text;
}

// What the entry holds, read by the getter of its type.
static std::string held(const kp_LOG_LogEntry& entry, const char* name, kp_AttributeType type) {
  if (is_string_attribute(type)) return entry.GetAttribStr(name);
  if (is_unicode_string_attribute(type)) return entry.GetAttribMBStr(name);
  if (is_time_attribute(type)) return shown(entry.GetAttribTime(name));
  switch (type) {
    case TypeBool:
      return entry.GetAttribBool(name) ? "true" : "false";
    case TypeUInt1:
      return std::to_string(entry.GetAttrib1u(name));
    case TypeSInt1:
      return std::to_string(static_cast<signed char>(entry.GetAttrib1(name)));
    case TypeUInt2:
      return std::to_string(entry.GetAttrib2u(name));
    case TypeSInt2:
      return std::to_string(entry.GetAttrib2(name));
    case TypeUInt4:
      return std::to_string(entry.GetAttrib4u(name));
    case TypeSInt4:
      return std::to_string(entry.GetAttrib4(name));
    default:
      return shown(entry.GetAttribFloat8(name));
  }
}

TEST(RecordRoundTrip, EntriesHoldWhatRandomRecordsSay) {
  record_events events(ldf_with_every_type());
  random_values random(20261115);
  for (int round = 0; round < 300; ++round) {
    random_value values[TypeGUID];
    std::string line;
    for (int type = TypeBool; type < TypeGUID; ++type) {
      if (random.once_in(4)) continue;
      values[type] = random.of(static_cast<kp_AttributeType>(type));
      line += (line.empty() ? "\"A" : ",\"A") + std::to_string(type) + "\":" + values[type].json;
    }
    const made_entry& made = events.make("{\"event\":17,\"attributes\":{" + line + "}}");
    for (int type = TypeBool; type < TypeGUID; ++type) {
      const std::string name = "A" + std::to_string(type);
      const bool is_held = made.entry._get_imp()._holds(name.c_str());
      ASSERT_EQ(is_held, !values[type].json.empty()) << line;
      if (!is_held) continue;
      ASSERT_EQ(held(made.entry, name.c_str(), static_cast<kp_AttributeType>(type)),
                values[type].held)
          << line;
    }
  }
}

TEST(RecordRoundTrip, WhereARecordCameFromIsStoredAsItWasTold) {
  record_events events({.entries = {{.id = 17, .msg_id = "M17"}}});
  random_values random(1511);
  stored_form form(events.events().version());
  const std::string start = R"({"version":"2.0","event":17,"name":"M17","level":3,)"
                            R"("time":"2026-11-15T17:02:56+08:00")";
  const std::string end = R"(,"attributes":{},"types":{},"message_index":0,"message":""})";
  for (int round = 0; round < 200; ++round) {
    const std::string line = start + random.origin() + end;
    const made_entry& made = events.make(line);
    std::string stored;
    form.append(stored, {made, "", made.entry.GetAttribTime("TIMESTAMP")});
    ASSERT_EQ(stored, line);
  }
}

TEST(RecordRoundTrip, StoredLinesAreReadByTheirLooksAsByTheParser) {
  record_events events(ldf_with_every_type());
  random_values random(1122);
  stored_form form(events.events().version());
  stored_line_reader reader;
  record_parser parser;
  parsed_record read;
  unsigned read_lines = 0;
  for (int round = 0; round < 1000; ++round) {
    std::string attributes;
    for (int number = TypeBool; number < TypeGUID; ++number) {
      const auto type = static_cast<kp_AttributeType>(number);
      if (!random.once_in(8)) continue;
      const bool is_text = is_string_attribute(type) || is_unicode_string_attribute(type);
      attributes += (attributes.empty() ? "\"A" : ",\"A") + std::to_string(number) + "\":" +
                    (is_text && !random.once_in(9) ? R"("say \"a\"")" : random.of(type).json);
    }
    const std::string origin = random.once_in(2) ? random.origin() : "";
    const std::string message = random.once_in(9) ? random.of(TypeMBChar32).held : "a\nb";
    const made_entry& made =
        events.make("{\"event\":17" + origin + ",\"attributes\":{" + attributes + "}}");
    std::string stored;
    form.append(stored, {made, message, made.entry.GetAttribTime("TIMESTAMP")});
    if (!reader.read(stored, read)) continue;
    ASSERT_EQ(told(read), told(parser.parse(stored))) << stored;
    ++read_lines;
  }
  EXPECT_GT(read_lines, 100U);
}

// What an entry holds of a text can be recorded again and is the same then.
TEST(RecordRoundTrip, HeldTextsCanBeRecordedAgain) {
  record_events events(ldf_with_every_type());
  random_values random(1115);
  for (int round = 0; round < 300; ++round)
    for (const kp_AttributeType type : {TypeChar32, TypeChar256, TypeMBChar64, TypeMBChar2K}) {
      const std::string head = "{\"event\":17,\"attributes\":{\"A" + std::to_string(type) + "\":";
      const std::string name = "A" + std::to_string(type);
      const std::string first =
          held(events.make(head + random.of(type).json + "}}").entry, name.c_str(), type);
      const std::string again =
          held(events.make(head + json_string(first) + "}}").entry, name.c_str(), type);
      ASSERT_EQ(again, first);
    }
}
