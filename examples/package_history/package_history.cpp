// Tells a package history in three languages, and keeps what a filter accepts: reads a log of dpkg,
// makes a log entry for every line, prints the entries' messages, writes those of the accepted ones
// to text logs and counts them.
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "history.h"
#include "history_filter.h"
#include "history_folder.h"
#include "history_keeping.h"
#include "history_options.h"
#include "history_report.h"
#include "kp_LOG.h"

// PACKAGE_HISTORY_DATA is the folder of the compiled definitions and catalogs, and
// PACKAGE_HISTORY_SAMPLE the sample: both come from the build.
constexpr char definitions[] = PACKAGE_HISTORY_DATA "/package_history.ldf";
constexpr char catalogs[] = PACKAGE_HISTORY_DATA "/catalogs";
constexpr char sample[] = PACKAGE_HISTORY_SAMPLE;
constexpr char machine_history[] = "/var/log/dpkg.log";

static bool has_content(const char* path) {
  return std::ifstream(path).peek() != std::ifstream::traits_type::eof();
}

// The history to tell, when the command line names none.
static const char* default_path(std::ostream& out) {
  if (has_content(machine_history)) return machine_history;
  out << "This machine has no package history in " << machine_history
      << ".\nWhat follows is a sample that was made up for this example.\n\n";
  return sample;
}

static history_tally keep(const package_history& history, const history_options& options,
                          const std::string& folder) {
  const _kp_LOG_entry_filter filter = make_history_filter(options);
  history_text_logs logs(folder, options.max_size);
  history_counter counter(folder);
  speak_history_language(*options.log_language, catalogs);
  return keep_accepted_events(history, filter, logs, counter);
}

// An event stands in the logs exactly when it is counted.
static void check_balance(const history_kept& kept, std::ostream& out) {
  if (!is_balanced(kept))
    throw std::runtime_error("the counts are not the numbers of lines in the text logs");
  out << "\nThe counts of each day add up to the lines in its text logs.\n";
}

static void tell(const history_options& options, std::ostream& out) {
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetDefinitionPath(definitions);
  const std::string path = options.path != nullptr ? options.path : default_path(out);
  const package_history history = read_package_history(path);
  const history_folder folder(options.output);
  const history_tally accepted = keep(history, options, folder.path());
  const history_kept kept = read_kept_history(folder.path());

  out << "Package history of " << path << '\n';
  print_history_messages(out, history, catalogs, options.n_shown);
  print_history_table(out, history, accepted, options);
  print_kept_history(out, kept, folder, options);
  check_balance(kept, out);
  if (!out.flush()) throw std::runtime_error("cannot write the output");
}

static int fail(int status, const char* text) {
  std::cout.flush();
  std::cerr << "package_history: " << text << '\n';
  return status;
}

int main(int, char** argv) {
  try {
    const history_options options = parse_history_options(argv);
    if (options.help)
      std::cout << history_usage;
    else
      tell(options, std::cout);
    return 0;
  } catch (const history_usage_error& error) {
    return fail(2, (std::string(error.what()) + "\n" + history_usage).c_str());
  } catch (const kp_EXCEPTION_base& error) {
    return fail(1, error.get_message() != nullptr ? error.get_message() : "out of memory");
  } catch (const std::exception& error) {
    return fail(1, error.what());
  }
}
