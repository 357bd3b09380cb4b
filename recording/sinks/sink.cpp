#include "recording/sinks/sink.h"

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>

#include "kp_LOG_filenames.h"
#include "recording/files/dated_name.h"
#include "recording/files/path.h"
#include "recording/text/duration.h"
#include "recording/text/escape.h"
#include "recording/text/size.h"
#include "recording/text/words.h"

// --- Gathering ---

void record_sink::add(const sink_entry& entry) {
  std::string& lines = lines_of(day_of(entry.time));
  const size_t before = lines.size();
  form_->append(lines, entry);
  count(lines.size() - before);
}

void record_sink::take(std::string_view lines, const log_day& day) {
  lines_of(day).append(lines);
  count(lines.size());
}

// --- Which sink ---

[[noreturn]] static void refuse(const std::string& text) {
  throw std::invalid_argument(terminal_text(text));
}

static constexpr std::string_view text_sink_prefix = "text:";
static constexpr std::string_view journal_sink_prefix = "journal:";
static constexpr std::string_view json_sink_prefix = "json:";

static constexpr const char* journal_options =
    "its options are max-size=SIZE, keep=TIME, keep-size=SIZE and compress=zstd";

// --- A place in a folder ---

static void check_name(const std::string& sink, const char* what, const std::string& name) {
  const std::string fault = fault_of_file_name(what, name);
  if (!fault.empty()) refuse("the sink " + sink + " " + fault);
}

// The prefix of dated files, which is called `what`.
static void check_prefix(const std::string& sink, const char* what, const std::string& prefix) {
  check_name(sink, what, prefix);
  std::string safe = prefix;
  remove_pathname_dir_separators(safe.data());
  const size_t at = static_cast<size_t>(
      std::mismatch(prefix.begin(), prefix.end(), safe.begin()).first - prefix.begin());
  if (at == prefix.size()) return;
  refuse("the sink " + sink + " has " + in_quotes(utf8_at(prefix, at).bytes) + " in its " + what +
         ", which is of ASCII letters, digits, \"_\" and \"-\"");
}

// --- Options behind a name ---

static uintmax_t size_option(const std::string& sink, std::string_view value) {
  const std::optional<uintmax_t> size = size_of(value);
  if (!size) refuse("the sink " + sink + " has the size " + in_quotes(value) + "; " + size_form);
  return *size;
}

static std::chrono::seconds duration_option(const std::string& sink, std::string_view value) {
  const std::optional<std::chrono::seconds> duration = duration_of(value);
  if (!duration)
    refuse("the sink " + sink + " has the duration " + in_quotes(value) + "; " + duration_form);
  return *duration;
}

// Cuts the options off behind the first comma of the name; nothing where there is none.
static std::optional<std::string> take_options(std::string& name) {
  const size_t comma = name.find(',');
  if (comma == std::string::npos) return std::nullopt;
  std::string options = name.substr(comma + 1);
  name.resize(comma);
  return options;
}

// --- text: ---

static uintmax_t parse_text_options(const std::string& sink, std::string_view options) {
  const std::string_view key = "max-size=";
  if (options.substr(0, key.size()) != key)
    refuse("the sink " + sink + " has the option " + in_quotes(options) +
           "; the only one is max-size=SIZE");
  return size_option(sink, options.substr(key.size()));
}

static std::unique_ptr<record_sink> make_text_sink(const std::string& sink, const std::string& path,
                                                   const sink_options& options) {
  file_place place = place_of(path);
  uintmax_t max_size = default_log_size;
  if (const auto given = take_options(place.name)) max_size = parse_text_options(sink, *given);
  check_prefix(sink, "prefix", place.name);
  return make_text_log_sink(place.folder, place.name, max_size, options);
}

// --- journal: ---

static void set_journal_option(const std::string& sink, std::string_view option,
                               journal_rules& rules) {
  const std::string_view key = option.substr(0, option.find('='));
  const std::string_view value = option.substr(std::min(key.size() + 1, option.size()));
  if (key == "max-size")
    rules.max_size = size_option(sink, value);
  else if (key == "keep")
    rules.keep = duration_option(sink, value);
  else if (key == "keep-size")
    rules.keep_size = size_option(sink, value);
  else if (option == "compress=zstd")
    rules.compresses = true;
  else
    refuse("the sink " + sink + " has the option " + in_quotes(option) + "; " + journal_options);
}

static journal_rules parse_journal_options(const std::string& sink, std::string_view options) {
  journal_rules rules;
  std::set<std::string_view> keys;
  for (bool is_last = false; !is_last;) {
    const std::string_view option = options.substr(0, options.find(','));
    set_journal_option(sink, option, rules);
    if (!keys.insert(option.substr(0, option.find('='))).second)
      refuse("the sink " + sink + " has the option " + in_quotes(option) + " and another of it");
    is_last = option.size() == options.size();
    options.remove_prefix(is_last ? option.size() : option.size() + 1);
  }
  return rules;
}

static std::unique_ptr<record_sink> make_journal(const std::string& sink, const std::string& path,
                                                 const sink_options& options) {
  file_place place = place_of(path);
  journal_rules rules;
  if (const auto given = take_options(place.name)) rules = parse_journal_options(sink, *given);
  check_prefix(sink, "prefix", place.name);
  return make_journal_sink(place.folder, place.name, rules, options);
}

// --- json: ---

static std::unique_ptr<record_sink> make_json_sink(const std::string& sink, const std::string& path,
                                                   const sink_options& options) {
  if (path == "-") return make_json_output_sink(options);
  check_name(sink, "file", place_of(path).name);
  return make_json_file_sink(path, options);
}

static sink_path path_of_dated(const std::string& path, std::string_view ending) {
  const file_place place = place_of(path);
  return {place.folder + "/" + place.name.substr(0, place.name.find(',')), true, ending};
}

sink_path path_of_sink(const std::string& description) {
  if (description.starts_with(text_sink_prefix))
    return path_of_dated(description.substr(text_sink_prefix.size()), "");
  if (description.starts_with(journal_sink_prefix))
    return path_of_dated(description.substr(journal_sink_prefix.size()), segment_ending);
  if (!description.starts_with(json_sink_prefix)) return {};
  const std::string path = description.substr(json_sink_prefix.size());
  return {path == "-" ? "" : path, false};
}

std::string journal_sink_of(const std::string& journal) {
  return std::string(journal_sink_prefix) + journal;
}

std::unique_ptr<record_sink> make_record_sink(const std::string& description,
                                              const sink_options& options) {
  if (description.find('\0') != std::string::npos) refuse("the sink " + description + " has a NUL");
  if (description == "-") return make_message_sink(options);
  if (description.starts_with(text_sink_prefix))
    return make_text_sink(description, description.substr(text_sink_prefix.size()), options);
  if (description.starts_with(journal_sink_prefix))
    return make_journal(description, description.substr(journal_sink_prefix.size()), options);
  if (description.starts_with(json_sink_prefix))
    return make_json_sink(description, description.substr(json_sink_prefix.size()), options);
  refuse(in_quotes(description) +
         " is no sink; a sink is text:DIR/PREFIX[,max-size=SIZE], journal:DIR/NAME[,OPTIONS], "
         "json:FILE, json:- or -");
}
