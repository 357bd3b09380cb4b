// Tells a package history in three languages: reads a log of dpkg, makes a log entry for every
// line, and prints the entries' messages and a table of events per kind.
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "history_entry.h"
#include "history_line.h"
#include "history_report.h"
#include "kp_LOG.h"

// PACKAGE_HISTORY_DATA is the folder of the compiled definitions and catalogs, and
// PACKAGE_HISTORY_SAMPLE the sample: both come from the build.
constexpr char definitions[] = PACKAGE_HISTORY_DATA "/package_history.ldf";
constexpr char catalogs[] = PACKAGE_HISTORY_DATA "/catalogs";
constexpr char sample[] = PACKAGE_HISTORY_SAMPLE;
constexpr char machine_history[] = "/var/log/dpkg.log";

constexpr char usage[] =
    "usage: package_history [--last N | --all] [FILE]\n"
    "\n"
    "Tells a package history in English, German and Japanese: that of FILE, or this\n"
    "machine's own (/var/log/dpkg.log).\n"
    "\n"
    "  --last N  print the last N messages of each language (12)\n"
    "  --all     print all of them\n"
    "  --help    print this text\n"
    "\n"
    "exit status: 0 told, 1 an error, 2 a wrong command line\n";

// --- Options
// ----------------------------------------------------------------------------------------

struct history_options {
  size_t n_shown = 12;
  const char* path = nullptr;  // null: this machine's own history
  bool help = false;
};

// A wrong command line; the text says what is wrong.
class history_usage_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

static size_t parse_count(const char* text) {
  if (text == nullptr) throw history_usage_error("--last needs a number");
  size_t count = 0;
  const char* end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, count);
  if (error != std::errc() || rest != end)
    throw history_usage_error(std::string("--last needs a number, not '") + text + "'");
  return count;
}

static void set_path(const char* path, history_options& options) {
  if (path[0] == '-') throw history_usage_error(std::string("unknown option '") + path + "'");
  if (options.path != nullptr) throw history_usage_error("more than one file");
  options.path = path;
}

// `arguments` ends with a null pointer, as those of main do.
static history_options parse_options(char** arguments) {
  history_options options;
  while (const char* argument = *++arguments) {
    const std::string_view name = argument;
    if (name == "--help") {
      options.help = true;
    } else if (name == "--all") {
      options.n_shown = std::numeric_limits<size_t>::max();
    } else if (name == "--last") {
      options.n_shown = parse_count(arguments[1]);
      ++arguments;
    } else {
      set_path(argument, options);
    }
  }
  return options;
}

// --- Reading
// ----------------------------------------------------------------------------------------

static void read_line(std::string_view line, package_history& history) {
  ++history.n_lines;
  if (line.ends_with('\r')) line.remove_suffix(1);
  try {
    const history_record record = parse_history_line(line);
    history.entries.push_back(make_history_entry(record));
    ++history.counts[static_cast<size_t>(record.kind)];
  } catch (const history_line_error& error) {
    history.faults.push_back({history.n_lines, error.what()});
  } catch (const KPX_logging_invalid_attribute_value& error) {
    history.faults.push_back({history.n_lines, error.what()});
  }
}

static package_history read_history(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
  package_history history;
  for (std::string line; std::getline(in, line);) read_line(line, history);
  if (in.bad()) throw std::runtime_error("cannot read " + path);
  return history;
}

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

// --- Telling
// ----------------------------------------------------------------------------------------

static void tell(const history_options& options, std::ostream& out) {
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetDefinitionPath(definitions);
  const std::string path = options.path != nullptr ? options.path : default_path(out);
  const package_history history = read_history(path);
  out << "Package history of " << path << '\n';
  print_history_messages(out, history, catalogs, options.n_shown);
  print_history_table(out, history);
  if (!out.flush()) throw std::runtime_error("cannot write the output");
}

static int fail(int status, const char* text) {
  std::cerr << "package_history: " << text << '\n';
  return status;
}

int main(int, char** argv) {
  try {
    const history_options options = parse_options(argv);
    if (options.help)
      std::cout << usage;
    else
      tell(options, std::cout);
    return 0;
  } catch (const history_usage_error& error) {
    return fail(2, (std::string(error.what()) + "\n" + usage).c_str());
  } catch (const kp_EXCEPTION_base& error) {
    return fail(1, error.get_message() != nullptr ? error.get_message() : "out of memory");
  } catch (const std::exception& error) {
    return fail(1, error.what());
  }
}
