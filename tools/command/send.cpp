#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>

#include "recording/records/service.h"
#include "recording/report/standard_error.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/emit/run_report.h"
#include "tools/emit/sender.h"

struct send_options {
  std::vector<std::string> records;  // files, "-": standard input; none: that
  std::string socket;
  std::string client;  // empty: a name of this run alone
  report_options report;
};

static std::string name_of_this_run() {
  std::array<char, 256> host{};
  if (gethostname(host.data(), host.size() - 1) != 0) host[0] = '\0';
  std::random_device random;
  return std::string(host.data()) + "." + std::to_string(getpid()) + "." +
         hexadecimal(random(), 8) + hexadecimal(random(), 8);
}

static std::string client_name(const std::string& text) {
  const bool is_name = !text.empty() && text.size() <= client_numbers::longest_name &&
                       utf8_first_invalid(text) == std::string_view::npos;
  if (!is_name)
    throw std::invalid_argument(in_quotes(text) + " is no name; it has 1 to 255 bytes of UTF-8");
  return text;
}

static void check_send_options(const send_options& options) {
  if (!is_socket_path(options.socket))
    throw wrong_usage("--socket: the path of a socket has 1 to 107 bytes");
  if (reads_standard_input_twice(options.records))
    throw wrong_usage("standard input can be read once");
}

static command_outcome tell_end(const record_sending& sending, int signal, uint64_t bad,
                                emit_report& report) {
  const uint64_t before = sending.left_out();
  const std::string records =
      counted(std::min(sending.acknowledged(), sending.read()), "record") + " acknowledged, " +
      std::to_string(bad) + " of them bad" +
      (before == 0 ? "" : ", " + std::to_string(before) + " of them before this run");
  if (signal == 0) {
    report.note(records);
    return bad == 0 ? command_outcome::good : command_outcome::findings;
  }
  report.problem("unread-input"_rule, records + ", because a signal ended the run");
  return signal == SIGINT ? command_outcome::interrupted : command_outcome::terminated;
}

static command_outcome send_records(const send_options& options, emit_report& report,
                                    emit_signals& signals) {
  record_files files(options.records);
  uint64_t bad = 0;
  record_sending sending(options.socket,
                         options.client.empty() ? name_of_this_run() : options.client, files,
                         signals, [&](uint64_t number, const service_answer& answer) {
                           ++bad;
                           const diagnostic_rule rule = rule_of_code(answer.code);
                           report.problem(rule ? rule : "record-syntax"_rule,
                                          "record " + std::to_string(number) + ": " + answer.text);
                         });
  try {
    const bool is_whole = sending.run();
    return tell_end(sending, is_whole ? 0 : signals.ending(), bad, report);
  } catch (const sender_refused& error) {
    report.problem("unwritable"_rule, options.socket + ": " + error.what());
    return command_outcome::file_error;
  }
}

static command_outcome run_send(send_options& options) {
  check_send_options(options);
  if (options.records.empty()) options.records = {"-"};
  emit_signals signals;
  standard_error messages(STDERR_FILENO, [&signals] { return signals.ending() != 0; });
  emit_report report(messages, options.report, false);
  return report.report_failures([&] {
    check_record_files(options.records);
    return send_records(options, report, signals);
  });
}

static command_action describe_send(CLI::App& command) {
  const auto options = std::make_shared<send_options>();
  add_arguments(command,
                {"RECORDS", "FILE",
                 "Files of records, one JSON object a line; - is standard input, the default"},
                options->records, option_need::optional);
  add_text_option(command, {"--socket", "PATH", "The socket of the service"}, options->socket,
                  option_need::required);
  add_read_option(command,
                  {"--client", "NAME",
                   "The input is one sequence of that client, from its first record on; without a "
                   "name each run is a client of its own"},
                  [options](const std::string& text) { options->client = client_name(text); });
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return run_send(*options); });
  };
}

constexpr kplog_command_row send_command = {
    "send", "Send records to a service until it has acknowledged them all",
    "  kplog send --socket /run/shop.sock records.jsonl\n"
    "  generate | kplog send --socket /run/shop.sock --client generate-$(date +%F)\n",
    describe_send};
