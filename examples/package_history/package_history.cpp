// Reads a log in which dpkg notes what it does, and writes a record for every line: what
// `kplog emit` takes.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "history_entry.h"
#include "history_line.h"
#include "history_record.h"
#include "kp_LOG.h"

// PACKAGE_HISTORY_DATA is the folder of the compiled definitions; it comes from the build.
constexpr char definitions[] = PACKAGE_HISTORY_DATA "/history_events.ldf";
constexpr char usage[] =
    "usage: package_history [FILE]\n"
    "\n"
    "Writes a record for every line of FILE, a log of dpkg's (standard input). Lines that are not\n"
    "understood are named on standard error.\n"
    "\n"
    "Exit status: 0 good, 1 lines that are not understood, 2 wrong usage, 3 a file cannot be read\n"
    "or written.\n";

static int fail(const std::string& text) {
  std::cerr << "package_history: " << text << '\n';
  return 3;
}

// Whether the line was understood; if not, standard error says why.
static bool write_record(std::string_view line, const std::string& path, size_t number) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  try {
    std::cout << history_record_of(*make_history_entry(parse_history_line(line))) << '\n';
    return true;
  } catch (const std::runtime_error& error) {
    std::cerr << path << ':' << number << ": " << error.what() << '\n';
  } catch (const KPX_logging_invalid_attribute_value& error) {
    std::cerr << path << ':' << number << ": " << error.what() << '\n';
  }
  return false;
}

static int write_records(std::istream& in, const std::string& path) {
  size_t number = 0;
  bool all_understood = true;
  for (std::string line; std::getline(in, line);)
    all_understood &= write_record(line, path, ++number);
  if (in.bad()) return fail("cannot read " + path);
  if (!std::cout.flush()) return fail("cannot write the records");
  return all_understood ? 0 : 1;
}

static int write_records_of_file(const char* path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return fail(std::string("cannot open ") + path + ": " + std::strerror(errno));
  return write_records(file, path);
}

int main(int argc, char** argv) {
  const std::string_view first = argc > 1 ? argv[1] : "";
  if (argc > 2 || (first.starts_with('-') && first != "--help")) {
    std::cerr << usage;
    return 2;
  }
  if (first == "--help") {
    std::cout << usage;
    return 0;
  }
  try {
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    kp_LOG_LogConfig::SetDefinitionPath(definitions);
    return argc > 1 ? write_records_of_file(argv[1]) : write_records(std::cin, "<stdin>");
  } catch (const kp_EXCEPTION_base& error) {
    return fail(error.what());
  }
}
