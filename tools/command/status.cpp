#include <nlohmann/json.hpp>
#include <ostream>

#include "recording/records/service.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/emit/status.h"
#include "tools/report/outcome.h"

struct status_options {
  std::string socket;
  std::string format = "text";
};

static constexpr std::chrono::seconds status_patience(10);

static command_outcome refuse_status(std::ostream& log, const std::string& text) {
  log << "kplog: " << text << '\n';
  return command_outcome::file_error;
}

static command_outcome show_status(const status_options& options, std::ostream& out,
                                   std::ostream& log) {
  if (!is_socket_path(options.socket)) throw wrong_usage("the path of a socket has 1 to 107 bytes");
  try {
    const nlohmann::json status = ask_status(options.socket, status_patience);
    if (options.format == "json")
      out << status.dump(-1, ' ', true) << '\n';
    else
      out << status_text(status);
    return command_outcome::good;
  } catch (const status_refused& error) {
    return refuse_status(log, options.socket + ": " + error.what());
  } catch (const nlohmann::json::exception&) {
    return refuse_status(log,
                         options.socket + ": the service answers what this program does not know");
  }
}

static command_action describe_status(CLI::App& command) {
  const auto options = std::make_shared<status_options>();
  add_text_option(command, {"SOCKET", "FILE", "The socket of the service"}, options->socket,
                  option_need::required);
  add_choice_option(command, "--format", options->format, {"text", "json"},
                    "How the status is shown; text is the default");
  return [options](std::ostream& out, std::ostream& log) {
    return outcome_of({}, log, [&] { return show_status(*options, out, log); });
  };
}

constexpr kplog_command_row status_command = {
    "status", "Ask a running service how it is",
    "  kplog status /run/shop.sock\n"
    "  kplog status --format json /run/shop.sock | jq .records\n",
    describe_status};
