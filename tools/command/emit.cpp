#include <algorithm>
#include <memory>
#include <optional>
#include <ostream>

#include "logging/logentry_i.h"
#include "recording/files/path.h"
#include "recording/sinks/counter_writer.h"
#include "recording/sinks/sink.h"
#include "recording/text/code_page.h"
#include "recording/text/number.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/emit_run.h"
#include "tools/command/options.h"
#include "tools/emit/files.h"
#include "tools/report/outcome.h"

// --- Options ---

// A mask, decimal or in hexadecimal behind "0x".
static unsigned read_mask(const std::string& text) {
  if (const auto mask = number_of_either_base<unsigned>(text)) return *mask;
  throw std::invalid_argument(in_quotes(text) +
                              " is no mask of 32 bits; one like 6 or 0x00000006 is expected");
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

static constexpr size_t most_threads = 64;

static void add_output_options(CLI::App& command, emit_options& options) {
  add_texts_option(
      command,
      {"--to", "SINK",
       "Where entries go: text:DIR/PREFIX[,max-size=64M], journal:DIR/NAME with max-size=64M, "
       "keep=90d, keep-size=10G, compress=zstd behind commas, json:FILE, json:-, or - for messages "
       "on standard output; may be given again"},
      options.sinks, option_need::required);
  add_text_option(command, {"--count", "DIR/NAME", "The counter file, without its ending .cnt"},
                  options.count);
  add_flag_option(command, "--ack",
                  "Print the number of the last record that is written, after each batch",
                  options.acknowledges);
  add_read_option(command,
                  {"--on-failure", "wait|stop",
                   "What becomes of a run whose outputs cannot be written: wait, the default of a "
                   "service, until they can, or stop"},
                  [&options](const std::string& text) {
                    if (text != "wait" && text != "stop")
                      throw std::invalid_argument(in_quotes(text) + " is none of wait, stop");
                    options.on_failure = text;
                  });
  add_read_option(command,
                  {"--threads", "NUMBER",
                   "Threads that make entries where much is to be read, 0 to 64; as many as there "
                   "are processors, less one, at most 7, by default"},
                  [&options](const std::string& text) {
                    options.threads = number_of<size_t>(text);
                    if (options.threads.value_or(most_threads + 1) > most_threads)
                      throw std::invalid_argument(in_quotes(text) + " is no number from 0 to 64");
                  });
  add_flag_option(command, "--sync", "Wait for the disk at each batch", options.synced);
  add_text_option(
      command,
      {"--metrics", "FILE",
       "Counts, sizes, ages and failures for Prometheus, written at most once a second"},
      options.metrics);
}

static void add_input_options(CLI::App& command, emit_options& options) {
  add_arguments(command,
                {"RECORDS", "FILE",
                 "Files of records, one JSON object a line; - is standard input, the default"},
                options.records, option_need::optional);
  add_text_option(command,
                  {"--listen", "unix:PATH", "Take records from clients of a stream socket, too"},
                  options.listen);
  add_limit_options(command, options.limits, options.service);
  add_text_option(
      command,
      {"--on-error", "stop|skip|quarantine=FILE[,max-size=64M]",
       "What becomes of bad records; skip is the default. They are reported in any case"},
      options.on_error);
}

static void add_emit_options(CLI::App& command, emit_options& options) {
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
  static_assert(LOG_LEVEL_HIGH == 9);
  expect(options.filter.min_level <= LOG_LEVEL_HIGH && options.filter.max_level <= LOG_LEVEL_HIGH,
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
         "--listen: " + in_quotes(options.listen) + " is no address; unix:PATH is expected");
  expect(is_socket_path(options.socket_path()),
         "--listen: the path of a socket has 1 to 107 bytes");
}

static bool is_error_policy(const std::string& text) {
  return text == "stop" || text == "skip" || quarantine_of(text).has_value();
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
    if (path.has_dated_files)
      files.add_dated_files(path.path, path.ending);
    else if (!path.path.empty())
      add_named_file(path.path, files);
  }
  if (const auto kept = options.quarantine()) add_named_file(kept->path, files);
  if (!options.count.empty()) {
    const counter_place place = counter_place_of(options.count);
    files.add_file(place.path, place.name);
  }
  if (!options.listen.empty()) add_named_file(options.socket_path(), files);
  if (!options.numbers_path().empty()) add_named_file(options.numbers_path(), files);
  if (!options.metrics.empty()) add_named_file(options.metrics, files);
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
         "--on-error: " + in_quotes(options.on_error) + " is none of stop, skip, quarantine=FILE");
  check_name("--count", options.count);
  check_name("--metrics", options.metrics);
  expect(options.metrics != "-", "--metrics needs a file");
  check_name("--on-error", options.quarantine().value_or(quarantine_file()).path);
}

// Fills in what is not said. Raises wrong_usage.
static void complete(emit_options& options) {
  if (options.records.empty() && options.listen.empty()) options.records = {"-"};
  check_filter(options);
  check_inputs(options);
  check_outputs(options);
  check_files(options);
}

static command_action describe(CLI::App& command) {
  const auto options = std::make_shared<emit_options>();
  add_emit_options(command, *options);
  return [options](std::ostream&, std::ostream& log) {
    return outcome_of(options->report, log, [&] {
      complete(*options);
      return run_emit(*options);
    });
  };
}

static constexpr const char* emit_examples =
    "  kplog emit --definitions events.ldf --to text:/var/log/shop/shop records.jsonl\n"
    "  kplog emit --definitions events.ldf --catalog messages --locale de_DE --to - records.jsonl\n"
    "  generate | kplog emit --definitions events.ldf --to json:entries.jsonl --ack\n"
    "  kplog emit --definitions events.ldf --to text:log/shop,max-size=64M --count log/shop "
    "--listen unix:/run/shop.sock\n";

const kplog_command_row emit_command = {
    "emit", "Make entries of records: filter, render, write and count them", emit_examples,
    describe};
