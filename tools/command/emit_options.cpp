#include "tools/command/emit_options.h"

#include <algorithm>
#include <charconv>

#include "recording/files/path.h"
#include "recording/records/input.h"
#include "recording/records/service.h"
#include "recording/sinks/counts.h"
#include "recording/sinks/sink.h"
#include "tools/command/event_set_options.h"
#include "tools/emit/files.h"
#include "tools/report/outcome.h"

static constexpr unsigned highest_level = 9;

std::optional<std::string> emit_options::quarantine() const {
  if (!on_error.starts_with(quarantine_prefix)) return std::nullopt;
  return on_error.substr(quarantine_prefix.size());
}

std::string emit_options::socket_path() const {
  return listen.empty() ? "" : listen.substr(listen_prefix.size());
}

static bool is_standard_output(const std::string& sink) {
  return sink == "-" || sink == "json:-";
}

bool emit_options::writes_standard_output() const {
  return acknowledges || std::any_of(sinks.begin(), sinks.end(), is_standard_output);
}

// --- The command line ---

// A mask, decimal or in hexadecimal behind "0x".
static unsigned read_mask(const std::string& text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const char* const begin = text.data() + (is_hex ? 2 : 0);
  const char* const end = text.data() + text.size();
  unsigned mask = 0;
  const auto [rest, error] = std::from_chars(begin, end, mask, is_hex ? 16 : 10);
  if (error != std::errc() || rest != end)
    throw std::invalid_argument("\"" + text +
                                "\" is no mask of 32 bits; one like 6 or 0x00000006 is expected");
  return mask;
}

static void add_filter_options(CLI::App& command, emit_options& options) {
  add_number_option(command, {"--min-level", "LEVEL", "The lowest level that passes, 0 to 9"},
                    options.filter.min_level);
  add_number_option(command, {"--max-level", "LEVEL", "The highest level that passes, 0 to 9"},
                    options.filter.max_level);
  add_read_option(
      command,
      {"--mask", "MASK",
       "Events pass that have one of these property flags, as 6 or 0x6; all by default"},
      [&options](const std::string& text) { options.filter.mask = read_mask(text); });
  add_text_option(command,
                  {"--config", "FILE",
                   "A configuration file, whose filter settings come first; read again at SIGHUP"},
                  options.filter.config);
  add_text_option(command, {"--section", "NAME", "The section of the configuration file"},
                  options.filter.section);
}

static void add_output_options(CLI::App& command, emit_options& options) {
  add_texts_option(command,
                   {"--to", "SINK",
                    "Where entries go: text:DIR/PREFIX[,max-size=64M], json:FILE, json:-, or - for "
                    "messages on standard output; may be given again"},
                   options.sinks, option_need::required);
  add_text_option(command, {"--count", "DIR/NAME", "The counter file, without its ending .cnt"},
                  options.count);
  add_flag_option(command, "--ack",
                  "Print the number of the last record that is written, after each batch",
                  options.acknowledges);
  add_flag_option(command, "--sync", "Wait for the disk at each batch", options.synced);
}

static void add_input_options(CLI::App& command, emit_options& options) {
  add_arguments(command,
                {"RECORDS", "FILE",
                 "Files of records, one JSON object a line; - is standard input, the default"},
                options.records, option_need::optional);
  add_text_option(command,
                  {"--listen", "unix:PATH", "Take records from clients of a stream socket, too"},
                  options.listen);
  add_text_option(
      command,
      {"--on-error", "stop|skip|quarantine=FILE",
       "What becomes of bad records; skip is the default. They are reported in any case"},
      options.on_error);
}

void add_emit_options(CLI::App& command, emit_options& options) {
  add_event_set_options(command, options.events, options.code_page);
  add_filter_options(command, options);
  add_output_options(command, options);
  add_input_options(command, options);
  add_report_options(command, options.report);
}

// --- What cannot be meant ---

static void expect(bool is_sound, const std::string& text) {
  if (!is_sound) throw wrong_usage(text);
}

static void check_filter(const emit_options& options) {
  expect(options.filter.min_level <= highest_level && options.filter.max_level <= highest_level,
         "levels are from 0 to 9");
  expect(options.filter.min_level <= options.filter.max_level, "--min-level is above --max-level");
  expect(options.filter.section.empty() || !options.filter.config.empty(),
         "--section is one of --config");
}

static void check_inputs(const emit_options& options) {
  const std::vector<std::string>& records = options.records;
  expect(!reads_standard_input_twice(records), "standard input can be read once");
  const auto fifo = std::find_if(records.begin(), records.end(),
                                 [](const std::string& path) { return is_named_fifo(path); });
  expect(fifo == records.end() || fifo + 1 == records.end(),
         "the FIFO must come last: reading it never ends");
  if (options.listen.empty()) return;
  expect(options.listen.starts_with(listen_prefix),
         "--listen: \"" + options.listen + "\" is no address; unix:PATH is expected");
  expect(is_socket_path(options.socket_path()),
         "--listen: the path of a socket has 1 to 107 bytes");
}

static bool is_error_policy(const std::string& text) {
  return text == "stop" || text == "skip" ||
         (text.starts_with(quarantine_prefix) && text.size() > quarantine_prefix.size());
}

static void check_name(const std::string& option, const std::string& path) {
  if (path.empty()) return;
  const std::string fault = fault_of_file_name("file", place_of(path).name);
  expect(fault.empty(), option + ": " + path + " " + fault);
}

static void add_named_file(const std::string& path, emit_files& files) {
  files.add_file(path, place_of(path).name);
}

static void add_outputs(const emit_options& options, emit_files& files) {
  for (const std::string& sink : options.sinks) {
    const sink_path path = path_of_sink(sink);
    if (path.has_dated_logs)
      files.add_dated_logs(path.path);
    else if (!path.path.empty())
      add_named_file(path.path, files);
  }
  if (const auto path = options.quarantine()) add_named_file(*path, files);
  if (!options.count.empty()) {
    const counter_place place = counter_place_of(options.count);
    files.add_file(place.path, place.name);
  }
  if (!options.listen.empty()) add_named_file(options.socket_path(), files);
}

static void check_files(const emit_options& options) {
  emit_files files;
  if (options.writes_standard_output()) files.add_standard_output();
  add_outputs(options, files);
  std::vector<std::string> inputs = options.records;
  inputs.insert(inputs.end(),
                {options.filter.config, options.events.definitions, options.events.aux});
  for (const std::string& path : inputs)
    if (!path.empty()) files.check_input(path);
}

static void check_outputs(const emit_options& options) {
  const auto count = std::count_if(options.sinks.begin(), options.sinks.end(), is_standard_output);
  expect(count < 2, "two sinks cannot share standard output");
  expect(count == 0 || !options.acknowledges,
         "--ack needs standard output, which a sink writes to");
  expect(is_error_policy(options.on_error),
         "--on-error: \"" + options.on_error + "\" is none of stop, skip, quarantine=FILE");
  check_name("--count", options.count);
  check_name("--on-error", options.quarantine().value_or(""));
}

void complete(emit_options& options) {
  if (options.records.empty() && options.listen.empty()) options.records = {"-"};
  check_filter(options);
  check_inputs(options);
  check_outputs(options);
  check_files(options);
}
