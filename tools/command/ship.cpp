#include <memory>
#include <ostream>
#include <stdexcept>

#include "recording/files/path.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/engine_options.h"
#include "tools/command/engine_program.h"
#include "tools/command/options.h"
#include "tools/command/ship_run.h"
#include "tools/command/verify_run.h"
#include "tools/ship/address.h"

struct ship_command_options {
  ship_options ship;
  bool shows_schema = false;
  bool creates = false;
  bool verifies = false;
};

static constexpr size_t longest_host = 255;

static std::string host_name(const std::string& text) {
  const bool is_name = !text.empty() && text.size() <= longest_host &&
                       utf8_first_invalid(text) == std::string_view::npos &&
                       text.find('\0') == std::string::npos;
  if (!is_name)
    throw std::invalid_argument(in_quotes(text) + " is no name; it has 1 to 255 bytes of UTF-8");
  return text;
}

// --- What is asked for ---

static void check_ship_options(const ship_command_options& options) {
  const ship_options& ship = options.ship;
  check_engine_access(ship.engine);
  if (options.shows_schema + options.creates + options.verifies + ship.is_once > 1)
    throw wrong_usage(
        "--schema, --create, --verify and --once are different runs; give one of them");
  if (ship.engine.address.empty() && !options.shows_schema)
    throw wrong_usage("--to is needed: the address of an engine");
  if (options.shows_schema || options.creates) return;
  if (ship.journal.empty()) throw wrong_usage("the journal is needed: DIR/NAME");
  if (const std::string fault = fault_of_file_name("journal", place_of(ship.journal).name);
      !fault.empty())
    throw wrong_usage(in_quotes(ship.journal) + ": the journal " + fault);
  if (ship.definitions.empty()) throw wrong_usage("--definitions is needed: the compiled STD set");
  if (!ship.since.empty() && !options.verifies)
    throw wrong_usage("--since is the first day of --verify; give that, too");
}

static const engine_row& engine_with_schema(const engine_access& access) {
  const engine_row& engine =
      engine_at(access.address.empty() ? "postgresql://localhost" : access.address);
  if (engine.schema == nullptr || engine.create == nullptr)
    throw wrong_usage(std::string(engine.scheme) + ":// needs nothing to be made before");
  return engine;
}

static command_outcome run_command(const ship_command_options& options, std::ostream& out,
                                   std::ostream& log) {
  check_ship_options(options);
  const ship_options& ship = options.ship;
  if (options.shows_schema) {
    out << engine_with_schema(ship.engine).schema(options_of(ship.engine));
    return command_outcome::good;
  }
  if (options.creates) {
    return outcome_of_engine(ship.report, log, [&] {
      engine_with_schema(ship.engine).create(options_of(ship.engine));
      return command_outcome::good;
    });
  }
  const engine_row& engine = engine_at(ship.engine.address);
  const bool has_user = !ship.engine.user.empty() || !ship.engine.password_file.empty();
  if (has_user && !engine.fault_of_users.empty())
    throw wrong_usage(std::string(engine.scheme) + "://: " + std::string(engine.fault_of_users));
  return options.verifies ? run_verify(ship, out, log) : run_ship(ship);
}

// --- Options ---

static void add_runs(CLI::App& command, ship_command_options& options) {
  add_flag_option(command, "--once", "Send what is there, and end", options.ship.is_once);
  add_flag_option(command, "--verify",
                  "Hold journal and counter file against the engine, by day and event",
                  options.verifies);
  add_text_option(command, {"--since", "DAY", "The first day of --verify: 2026-11-15"},
                  options.ship.since);
  add_text_option(command,
                  {"--count", "DIR/NAME",
                   "The counter file of the machine, without its ending .cnt, for --verify"},
                  options.ship.count);
  add_flag_option(command, "--schema", "Print what --create makes", options.shows_schema);
  add_flag_option(command, "--create", "Make what has to be there before", options.creates);
}

static command_action describe_ship(CLI::App& command) {
  const auto options = std::make_shared<ship_command_options>();
  ship_options& ship = options->ship;
  add_text_option(command, {"JOURNAL", "DIR/NAME", "The journal"}, ship.journal);
  add_texts_option(command,
                   {"--definitions", "FILE",
                    "The compiled STD set; several times: the version that a record tells"},
                   ship.definitions);
  add_text_option(command, {"--aux", "FILE", "The compiled AUX set beside it"}, ship.events.aux);
  add_text_option(command, {"--catalog", "FOLDER", "The message catalog, which travels, too"},
                  ship.events.catalog);
  add_text_option(
      command,
      {"--to", "ADDRESS", "postgresql://, nats://, otlp+http://, otlp+https:// or syslog+tls://"},
      ship.engine.address);
  add_engine_options(command, ship.engine);
  add_number_option(command,
                    {"--replicas", "NUMBER", "Replicas of a stream that is made; 1 by default"},
                    ship.engine.replicas);
  add_flag_option(command, "--live-index",
                  "Of --create: attributes are indexed at once, not when a day is done",
                  ship.engine.has_live_index);
  add_read_option(command, {"--host", "NAME", "The machine; its own name by default"},
                  [options](const std::string& text) { options->ship.host = host_name(text); });
  add_runs(command, *options);
  add_text_option(command,
                  {"--metrics", "FILE", "A file that tells of the run, as Prometheus reads it"},
                  ship.metrics);
  add_report_options(command, ship.report);
  return [options](std::ostream& out, std::ostream& log) {
    return outcome_of(options->ship.report, log, [&] { return run_command(*options, out, log); });
  };
}

constexpr kplog_command_row ship_command = {
    "ship", "Send a journal's records to an engine, and hold them against it",
    "  kplog ship --create --to postgresql://owner@db.example/fleet\n"
    "  kplog ship /var/log/shop/shop --definitions events.ldf --catalog messages --to "
    "postgresql://logs@db.example/fleet\n"
    "  kplog ship /var/log/shop/shop --definitions events.ldf --once --to "
    "nats://broker1,broker2,broker3\n"
    "  kplog ship /var/log/shop/shop --definitions events.ldf --count /var/log/shop/shop --verify "
    "--to postgresql://reader@db.example/fleet\n",
    describe_ship};
