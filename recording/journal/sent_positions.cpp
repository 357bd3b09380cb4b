#include "recording/journal/sent_positions.h"

#include <fcntl.h>
#include <simdjson.h>
#include <sys/stat.h>

#include <algorithm>
#include <new>

#include "base/kp_clib.h"
#include "recording/files/folder.h"
#include "recording/text/check_sum.h"
#include "recording/text/json_text.h"
#include "recording/text/number.h"
#include "recording/text/summed_json.h"

file_stamp stamp_of(const struct stat& status) {
  return {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
          status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// --- Text ---

static void append_sent_segment(json_text& json, const std::string& name,
                                const sent_segment& segment) {
  const auto& [position, there, stamp] = segment;
  json.begin_object().key("segment").text(name).key("first").number(position.first);
  json.key("lines").number(position.extent.lines).key("bytes").number(position.extent.bytes);
  json.key("last").number(position.extent.last).key("digest").number(position.extent.digest);
  json.key("there").number(there);
  if (stamp != file_stamp{})
    json.key("file")
        .begin_list()
        .number(stamp.device)
        .number(stamp.inode)
        .number(stamp.size)
        .number(stamp.seconds)
        .number(stamp.nanoseconds)
        .end_list();
  json.end_object();
}

std::string text_of(const sent_positions& positions) {
  std::string text;
  json_text json(text);
  json.begin_object().key("journal_sent").number(1);
  json.key("to").text(positions.to).key("host").text(positions.host);
  json.key("given_up").number(positions.given_up);
  json.key("given_up_exact").written(positions.is_given_up_exact ? "true" : "false");
  if (positions.notes.bytes != 0)
    json.key("notes")
        .begin_list()
        .number(positions.notes.bytes)
        .number(positions.notes.digest)
        .end_list();
  json.key("segments").begin_list();
  for (const auto& [name, segment] : positions.segments) append_sent_segment(json, name, segment);
  json.end_list();
  return summed_object(std::move(text));
}

using sent_object = simdjson::dom::object;

static bool read_stamp(sent_object object, file_stamp& stamp) {
  simdjson::dom::array list;
  if (object["file"].get(list) != simdjson::SUCCESS) return true;
  return list.size() == 5 && list.at(0).get(stamp.device) == simdjson::SUCCESS &&
         list.at(1).get(stamp.inode) == simdjson::SUCCESS &&
         list.at(2).get(stamp.size) == simdjson::SUCCESS &&
         list.at(3).get(stamp.seconds) == simdjson::SUCCESS &&
         list.at(4).get(stamp.nanoseconds) == simdjson::SUCCESS;
}

static bool read_counted_notes(sent_object object, counted_notes& notes) {
  simdjson::dom::array list;
  if (object["notes"].get(list) != simdjson::SUCCESS) return true;
  return list.size() == 2 && list.at(0).get(notes.bytes) == simdjson::SUCCESS &&
         list.at(1).get(notes.digest) == simdjson::SUCCESS;
}

static bool read_sent_segment(sent_object object, sent_positions& positions) {
  std::string_view name;
  sent_segment segment;
  line_extent& extent = segment.position.extent;
  const auto number = [&](const char* key, uint64_t& value) {
    return object[key].get(value) == simdjson::SUCCESS;
  };
  if (object["segment"].get(name) != simdjson::SUCCESS ||
      !number("first", segment.position.first) || !number("lines", extent.lines) ||
      !number("bytes", extent.bytes) || !number("last", extent.last) ||
      !number("digest", extent.digest) || !number("there", segment.there) ||
      !read_stamp(object, segment.stamp))
    return false;
  segment.position.segment = name;
  positions.segments[std::string(name)] = std::move(segment);
  return true;
}

static bool read_sent_positions(sent_object object, sent_positions& positions) {
  uint64_t form = 0;
  std::string_view to, host;
  simdjson::dom::array segments;
  if (object["journal_sent"].get(form) != simdjson::SUCCESS || form != 1 ||
      object["to"].get(to) != simdjson::SUCCESS || object["host"].get(host) != simdjson::SUCCESS ||
      object["given_up"].get(positions.given_up) != simdjson::SUCCESS ||
      object["given_up_exact"].get(positions.is_given_up_exact) != simdjson::SUCCESS ||
      !read_counted_notes(object, positions.notes) ||
      object["segments"].get(segments) != simdjson::SUCCESS)
    return false;
  positions.to = to;
  positions.host = host;
  return std::ranges::all_of(segments, [&](const simdjson::dom::element& segment) {
    sent_object one;
    return segment.get(one) == simdjson::SUCCESS && read_sent_segment(one, positions);
  });
}

std::optional<sent_positions> sent_positions_of(std::string_view text) {
  const auto object_text = unsummed_object(text);
  if (!object_text) return std::nullopt;
  simdjson::dom::parser parser;
  sent_object object;
  const simdjson::error_code error = parser.parse(*object_text).get(object);
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  sent_positions positions;
  return error == simdjson::SUCCESS && read_sent_positions(object, positions)
             ? std::optional(std::move(positions))
             : std::nullopt;
}

// --- Files ---

static constexpr size_t sum_digits = 16;

static std::string sent_prefix(const std::string& journal) {
  return journal + ".sent.";
}

std::string sent_positions_name(const std::string& journal, const std::string& to,
                                const std::string& host) {
  return sent_prefix(journal) + hexadecimal(check_sum(host, check_sum(to + "\n")), sum_digits);
}

// Raises file_error for what is no regular file.
static uint64_t size_of_file(int file, const std::string& path) {
  struct stat status {};
  if (KP_fstat(file, &status) != 0) throw file_error(file_use::reading, "read", path, errno);
  if (!S_ISREG(status.st_mode))
    throw file_error(file_use::reading, "read", path, "it is no regular file");
  return static_cast<uint64_t>(status.st_size);
}

static std::string content_at(int folder, const std::string& name, const std::string& path) {
  static constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  static constexpr uint64_t longest = uint64_t{64} << 20;
  const open_descriptor file(KP_openat(folder, name.c_str(), flags));
  if (!file.is_open() && errno == ENOENT) return "";
  if (!file.is_open()) throw file_error(file_use::reading, "read", path, errno);
  const uint64_t size = size_of_file(file.get(), path);
  if (size > longest) throw file_error(file_use::reading, "read", path, "it has more than 64 MiB");
  return read_part(file.get(), 0, size, "read", path);
}

static std::string content_of(int folder, const journal_place& journal, const std::string& name) {
  return content_at(folder, name, journal.path(name));
}

std::string sent_positions_text(const std::string& path) {
  return content_at(AT_FDCWD, path, path);
}

static sent_positions positions_in(int folder, const journal_place& journal,
                                   const std::string& name) try {
  return sent_positions_of(content_of(folder, journal, name)).value_or(sent_positions{});
} catch (const file_error&) {
  return {};
}

std::vector<sent_positions> all_sent_positions(int folder, const journal_place& journal) {
  std::vector<sent_positions> all;
  const std::string prefix = sent_prefix(journal.name);
  for_each_name(folder, journal.folder, [&](const std::string& name) {
    if (name.size() == prefix.size() + sum_digits && name.starts_with(prefix))
      all.push_back(positions_in(folder, journal, name));
  });
  return all;
}

bool is_sent(const sent_positions& engine, const journal_segment& segment,
             uint64_t bytes_of_lines) {
  const auto known = engine.segments.find(segment.name);
  return known != engine.segments.end() && known->second.position.extent.bytes >= bytes_of_lines;
}

// --- What is given up ---

static constexpr const char* given_up_ending = ".given_up";

static std::string note_of(const sent_positions& engine, const std::string& segment,
                           const std::optional<segment_index>& index) {
  const auto known = engine.segments.find(segment);
  const uint64_t sent = known == engine.segments.end() ? 0 : known->second.position.extent.lines;
  if (!index) return segment + " ?\n";
  const uint64_t lines = index->records + index->others;
  return segment + " " + std::to_string(lines - std::min(lines, sent)) + " " +
         std::to_string(sent) + "\n";
}

// A name of a file and a number.
static constexpr size_t longest_note = 512;

// Bytes of whole lines.
static size_t whole_lines(std::string_view text) {
  return text.rfind('\n') + 1;
}

// Behind the last whole line: what a process that died left behind it is cut off.
static void append_note(int folder, const std::string& name, const std::string& path,
                        std::string_view note) {
  static constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const open_descriptor file(KP_openat(folder, name.c_str(), flags, S_IRUSR | S_IWUSR | S_IRGRP));
  if (!file.is_open()) raise_write_error("write", path);
  const uint64_t size = size_of_file(file.get(), path);
  const uint64_t seen = std::min<uint64_t>(size, longest_note);
  const std::string last = read_part(file.get(), size - seen, seen, "read", path);
  const uint64_t whole = size - (last.size() - whole_lines(last));
  const bool is_cut = whole == size || KP_ftruncate(file.get(), static_cast<off_t>(whole)) == 0;
  if (!is_cut || !write_all(file.get(), note)) raise_write_error("write", path);
}

void note_given_up(int folder, const journal_place& journal,
                   const std::vector<sent_positions>& engines, const journal_segment& segment) {
  auto index = read_segment_index(folder, journal, segment);
  const uint64_t size = segment.plain ? segment.plain->size : segment.compressed->size;
  if (index && !index->fits(segment.file_name(), size)) index.reset();
  const uint64_t bytes = bytes_of_lines(folder, journal, segment);
  for (const sent_positions& engine : engines) {
    if (engine.to.empty() || is_sent(engine, segment, bytes)) continue;
    const std::string name =
        sent_positions_name(journal.name, engine.to, engine.host) + given_up_ending;
    append_note(folder, name, journal.path(name), note_of(engine, segment.name, index));
  }
}

// The last word of the line, which is cut off.
static std::string_view take_last_word(std::string_view& line) {
  const size_t blank = line.rfind(' ');
  const std::string_view word = line.substr(blank + 1);
  line = line.substr(0, blank == std::string_view::npos ? 0 : blank);
  return word;
}

// "SEGMENT LINES BEHIND", or "SEGMENT ?". A line that is no note tells nothing.
static void take_note(std::string_view line, const journal_place& journal, given_up_notes& notes) {
  const std::string_view last = take_last_word(line);
  given_up_notes::noted_lines noted;
  if (last != "?") {
    const auto behind = number_of<uint64_t>(last);
    noted.lines = number_of<uint64_t>(take_last_word(line));
    if (!behind || !noted.lines) return;
    noted.behind = *behind;
  }
  if (dated_name_of(line, journal.name)) notes.segments[std::string(line)] = noted;
}

static bool begins_with(std::string_view notes, const counted_notes& counted) {
  return counted.bytes <= notes.size() &&
         check_sum(notes.substr(0, counted.bytes)) == counted.digest;
}

given_up_notes notes_of_given_up(int folder, const journal_place& journal,
                                 const std::string& sent_name, const counted_notes& counted) {
  std::string text = content_of(folder, journal, sent_name + given_up_ending);
  text.resize(whole_lines(text));
  if (text.empty()) return {};
  given_up_notes notes{.all = {text.size(), check_sum(text)}};
  std::string_view left = text;
  if (begins_with(text, counted)) left.remove_prefix(counted.bytes);
  while (!left.empty()) {
    const size_t end = std::min(left.find('\n'), left.size());
    take_note(left.substr(0, end), journal, notes);
    left.remove_prefix(std::min(end + 1, left.size()));
  }
  return notes;
}

bool remove_notes_of_given_up(int folder, const journal_place& journal,
                              const std::string& sent_name, const counted_notes& counted) {
  const std::string name = sent_name + given_up_ending;
  std::string text = content_of(folder, journal, name);
  text.resize(whole_lines(text));
  if (text.empty()) return true;
  if (text.size() != counted.bytes || !begins_with(text, counted)) return false;
  if (KP_unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT)
    raise_write_error("remove", journal.path(name));
  return true;
}
