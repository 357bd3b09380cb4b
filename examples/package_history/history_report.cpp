#include "history_report.h"

#include <algorithm>
#include <iomanip>
#include <numeric>
#include <set>
#include <string_view>
#include <vector>

#include "history_entry.h"

// --- Messages ---

// Every message in the language that is spoken now.
static std::vector<std::string> render_all(const package_history& history) {
  std::vector<std::string> messages;
  messages.reserve(history.events.size());
  for (const history_event& event : history.events)
    messages.push_back(kp_LOG_RenderMessage(*event.entry));
  return messages;
}

static std::ostream& operator<<(std::ostream& out, const history_language& language) {
  return out << language.name << " (" << language.locale << ')';
}

static void print_language(std::ostream& out, const history_language& language,
                           const std::vector<std::string>& messages, size_t n_shown) {
  const size_t n = std::min(n_shown, messages.size());
  out << '\n' << language << ", " << n << " of " << messages.size() << " messages:\n";
  for (size_t i = messages.size() - n; i < messages.size(); ++i) out << "  " << messages[i] << '\n';
}

void print_history_messages(std::ostream& out, const package_history& history,
                            const std::string& catalogs, size_t n_shown) {
  for (const history_language& language : history_languages) {
    speak_history_language(language, catalogs);
    print_language(out, language, render_all(history), n_shown);
  }
}

// --- Events by kind ---

static void print_filter(std::ostream& out, const history_options& options) {
  out << "\nThe filter accepts levels from " << options.min_level << " to " << options.max_level;
  if (options.config == nullptr)
    out << " and no debug entries.\n";
  else
    out << " and no debug entries, unless section \"" << options.section << "\"\nof "
        << options.config << " says otherwise.\n";
}

static void print_row(std::ostream& out, std::string_view label, size_t n_read, size_t n_accepted) {
  out << "  " << std::left << std::setw(10) << label << std::right << std::setw(10) << n_read
      << std::setw(10) << n_accepted << std::setw(10) << n_read - n_accepted << '\n';
}

static history_tally tally_of(const package_history& history) {
  history_tally tally{};
  for (const history_event& event : history.events) ++tally[static_cast<size_t>(event.kind)];
  return tally;
}

static void print_faults(std::ostream& out, const package_history& history) {
  out << '\n'
      << history.n_lines << " lines, " << history.events.size() << " understood, "
      << history.faults.size() << " not understood" << (history.faults.empty() ? ".\n" : ":\n");
  for (const history_fault& fault : history.faults)
    out << "  line " << fault.line << ": " << fault.why << '\n';
}

void print_history_table(std::ostream& out, const package_history& history,
                         const history_tally& accepted, const history_options& options) {
  print_filter(out, options);
  out << "\nEvents by kind:   read  accepted  rejected\n";
  const history_tally read = tally_of(history);
  for (size_t kind = 0; kind < history_kind_count; ++kind)
    print_row(out, history_kind_word(static_cast<history_kind>(kind)), read[kind], accepted[kind]);
  print_row(out, "total", history.events.size(),
            std::accumulate(accepted.begin(), accepted.end(), size_t{0}));
  print_faults(out, history);
}

// --- Logs and counts ---

static void print_folder(std::ostream& out, const history_folder& folder,
                         const history_options& options) {
  out << "\nLogged in " << *options.log_language << " and counted, in " << folder.path();
  if (folder.is_temporary()) out << "\n(removed again: --output DIR keeps it)";
  out << ":\n";
}

static void print_kept_row(std::ostream& out, const std::string& label, size_t n_lines,
                           uintmax_t n_counted) {
  out << "  " << std::left << std::setw(10) << label << std::right << std::setw(10) << n_lines
      << std::setw(10) << n_counted;
}

static void print_logs(std::ostream& out, const history_day& day,
                       const std::set<unsigned>& serials) {
  if (serials.empty()) return;
  out << "  " << text_log_name(day, *serials.begin());
  if (serials.size() > 1)
    out << " to ." << std::setfill('0') << std::setw(4) << *serials.rbegin() << std::setfill(' ');
}

static void print_kept_days(std::ostream& out, const history_kept& kept) {
  out << "  day            lines   counted  text logs\n";
  size_t n_lines = 0;
  uintmax_t n_counted = 0;
  for (const auto& [day, of_day] : kept) {
    print_kept_row(out, to_text(day), of_day.logs.n_lines, of_day.n_counted());
    print_logs(out, day, of_day.logs.serials);
    out << '\n';
    n_lines += of_day.logs.n_lines;
    n_counted += of_day.n_counted();
  }
  print_kept_row(out, "total", n_lines, n_counted);
  out << '\n';
}

static std::string name_of(unsigned entry_id) {
  for (size_t i = 0; i < history_kind_count; ++i) {
    const auto kind = static_cast<history_kind>(i);
    if (history_entry_id(kind) == entry_id) return std::string(history_kind_word(kind));
  }
  return "ID " + std::to_string(entry_id);
}

static void print_counts(std::ostream& out, const history_kept& kept) {
  out << "\nCounts by day and kind:\n";
  for (const auto& [day, of_day] : kept) {
    out << "  " << to_text(day);
    const char* before = "  ";
    for (const auto& [entry_id, count] : of_day.counts) {
      out << before << name_of(entry_id) << ' ' << count;
      before = ", ";
    }
    out << '\n';
  }
}

void print_kept_history(std::ostream& out, const history_kept& kept, const history_folder& folder,
                        const history_options& options) {
  print_folder(out, folder, options);
  print_kept_days(out, kept);
  print_counts(out, kept);
}
