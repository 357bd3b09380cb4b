#include "tools/command/engine_options.h"

#include <stdexcept>

#include "tools/command/options.h"
#include "tools/emit/run_report.h"
#include "tools/ship/address.h"

void add_engine_options(CLI::App& command, engine_access& access) {
  add_text_option(command, {"--user", "NAME", "Who is to reach the engine"}, access.user);
  add_text_option(command, {"--password-file", "FILE", "A file whose first line is the password"},
                  access.password_file);
  add_text_option(
      command,
      {"--tls-ca", "FILE",
       "Certificates that the engine's is held against; those of the system by default"},
      access.tls_ca);
  add_text_option(command, {"--stream", "NAME", "JetStream's; KPLOG by default"}, access.stream);
  add_text_option(command,
                  {"--tenant", "NAME", "PostgreSQL's tenant, where the user belongs to several"},
                  access.tenant);
}

void check_engine_access(const engine_access& access) {
  try {
    refuse_password(access.address);
  } catch (const std::invalid_argument& error) {
    throw wrong_usage(error.what());
  }
  if (access.stream.empty() ||
      access.stream.find_first_not_of(
          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-") != std::string::npos)
    throw wrong_usage("--stream: a stream's name has ASCII letters, digits, \"_\" and \"-\"");
}

command_outcome outcome_of_engine(const report_options& report, std::ostream& log,
                                  const std::function<command_outcome()>& run) {
  try {
    return run();
  } catch (const engine_error& error) {
    emit_report(log, report, true).problem("engine"_rule, error.what());
    return command_outcome::file_error;
  }
}
