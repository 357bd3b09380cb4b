#include "history_report.h"

#include <algorithm>
#include <iomanip>

struct history_language {
  const char* name;
  const char* locale;
};

constexpr history_language languages[] = {
    {"English", "en_US"}, {"Deutsch", "de_DE"}, {"日本語", "ja_JP"}};

// Every message in the locale and with the catalog that are set now.
static std::vector<std::string> render_all(const package_history& history) {
  std::vector<std::string> messages;
  messages.reserve(history.entries.size());
  for (const auto& entry : history.entries) messages.push_back(kp_LOG_RenderMessage(*entry));
  return messages;
}

static void print_language(std::ostream& out, const history_language& language,
                           const std::vector<std::string>& messages, size_t n_shown) {
  const size_t n = std::min(n_shown, messages.size());
  out << '\n'
      << language.name << " (" << language.locale << "), " << n << " of " << messages.size()
      << " messages:\n";
  for (size_t i = messages.size() - n; i < messages.size(); ++i) out << "  " << messages[i] << '\n';
}

void print_history_messages(std::ostream& out, const package_history& history,
                            const std::string& catalogs, size_t n_shown) {
  for (const history_language& language : languages) {
    // In this order: a catalog is opened for the locale that is set.
    kp_LOG_LogConfig::SetLocale(language.locale);
    kp_LOG_LogConfig::SetMessageCatalogPath(catalogs.c_str());
    print_language(out, language, render_all(history), n_shown);
  }
}

static void print_row(std::ostream& out, std::string_view label, size_t count) {
  out << "  " << std::left << std::setw(10) << label << std::right << std::setw(10) << count
      << '\n';
}

void print_history_table(std::ostream& out, const package_history& history) {
  out << "\nEvents by kind:\n";
  for (size_t kind = 0; kind < history.counts.size(); ++kind)
    print_row(out, history_kind_word(static_cast<history_kind>(kind)), history.counts[kind]);
  print_row(out, "total", history.entries.size());
  out << '\n'
      << history.n_lines << " lines, " << history.entries.size() << " understood, "
      << history.faults.size() << " not understood" << (history.faults.empty() ? ".\n" : ":\n");
  for (const history_fault& fault : history.faults)
    out << "  line " << fault.line << ": " << fault.why << '\n';
}
