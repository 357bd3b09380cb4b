#include <cerrno>
#include <deque>
#include <memory>
#include <ostream>

#include "recording/files/whole_file.h"
#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/catalog/bundle.h"
#include "tools/catalog/locale.h"
#include "tools/catalog/merge.h"
#include "tools/catalog/messages.h"
#include "tools/catalog/translations.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"

struct catalog_options {
  std::vector<std::string> inputs;  // definition sources, or a compiled file; "-": standard input
  std::string standard;             // empty: the set stands alone
  std::vector<std::string> po_files;
  std::string output;
  std::vector<std::string> code_pages;
  std::vector<std::string> severities;  // CODE=SEVERITY
  std::string fail_on = "warning";
  report_options report;
};

// What the sub-commands begin with: the set, its messages, and what was found so far.
struct catalog_work {
  standard_input standard;
  definition_input input;
  diagnostic_list found;
  std::vector<catalog_message> messages;
  std::deque<text_file> po_sources;
};

static void read_messages(const catalog_options& options, bool with_standard, catalog_work& work,
                          std::ostream& log) {
  work.standard.read(options.standard, options.report, log);
  const std_definitions* const standard = work.standard.definitions();
  read_definition_input(options.inputs, work.input, work.found, options.report, log, standard);
  work.messages =
      catalog_messages(work.input.set(), with_standard ? standard : nullptr, work.found);
}

static bool has_errors(const catalog_work& work) {
  return work.found.count(rule_severity::error) != 0;
}

static void write_findings(const catalog_options& options, const catalog_work& work,
                           std::ostream& log) {
  std::vector<const text_file*> sources = work.input.set().sources;
  for (const text_file& source : work.po_sources) sources.push_back(&source);
  work.found.write(log, sources, options.report.format, options.report.color);
}

static command_outcome refuse(const catalog_options& options, const catalog_work& work,
                              std::ostream& log) {
  write_findings(options, work, log);
  if (options.report.with_summary())
    log << "kplog: " << counted(work.found.count(rule_severity::error), "error")
        << ", nothing written\n";
  return command_outcome::findings;
}

// --- extract

static command_outcome extract(const catalog_options& options, std::ostream&, std::ostream& log) {
  check_output(options.output, options.inputs);
  check_output(options.output, {options.standard});
  catalog_work work;
  read_messages(options, false, work, log);
  if (has_errors(work)) return refuse(options, work, log);
  const po_document document = extracted_messages(work.messages, work.input.set());
  write_whole_file(options.output, po_text(document));
  write_findings(options, work, log);
  note_written(log, options.report, options.output, counted(document.entries.size(), "message"));
  return command_outcome::good;
}

// --- merge

struct po_update {
  std::string path;
  po_document old;
};

static void begin_update(po_update& update) {
  const std::string name = locale_of_path(update.path);
  const catalog_locale locale = icu_locale(name);
  if (locale.name.empty())
    throw wrong_usage("no locale " + in_quotes(name) + ": " + locale.problem +
                      "; a new file is called by its locale, as pt_BR.po");
  update.old = empty_translations(name);
}

// To a file without one, for the locale of its name if that is one.
static void add_header(po_update& update) {
  if (!update.old.header.translation.text.empty()) return;
  const std::string name = locale_of_path(update.path);
  const po_entry header = empty_translations(icu_locale(name).name.empty() ? "" : name).header;
  update.old.header.id = header.id;
  update.old.header.translation = header.translation;
}

static void read_update(catalog_work& work, po_update& update) {
  std::string bytes;
  try {
    bytes = read_file(update.path, source_size_limit);
  } catch (const file_error& error) {
    if (error.error() != ENOENT) throw;
    return begin_update(update);
  }
  read_po(work.po_sources.emplace_back(update.path, std::move(bytes)), update.old, work.found);
  add_header(update);
}

static void write_update(const catalog_options& options, const po_document& extracted,
                         const po_update& update, std::ostream& log) {
  const po_document merged = merged_messages(extracted, update.old);
  write_whole_file(update.path, po_text(merged));
  note_written(log, options.report, update.path, counts_of(merged).text());
}

// All files are read before the first one is written.
static command_outcome merge(const catalog_options& options, std::ostream&, std::ostream& log) {
  catalog_work work;
  read_messages(options, false, work, log);
  std::vector<po_update> updates;
  for (const std::string& path : options.po_files)
    read_update(work, updates.emplace_back(po_update{path, {}}));
  if (has_errors(work)) return refuse(options, work, log);
  write_findings(options, work, log);
  const po_document extracted = extracted_messages(work.messages, work.input.set());
  for (const po_update& update : updates) write_update(options, extracted, update, log);
  return command_outcome::good;
}

// --- check and build

static std::vector<catalog_translations> read_all_translations(const catalog_options& options,
                                                               catalog_work& work,
                                                               std::ostream& log) {
  std::vector<code_page_repertoire> code_pages;
  for (const std::string& name : options.code_pages) {
    code_pages.emplace_back(name);
    if (!code_pages.back().is_known()) throw wrong_usage("no code page " + in_quotes(name));
  }
  read_messages(options, true, work, log);
  const attribute_lookup known(work.input.set(), work.standard.definitions());
  std::vector<catalog_translations> translations;
  for (const std::string& path : options.po_files) {
    po_document document;
    if (read_po(work.po_sources.emplace_back(path, read_file(path, source_size_limit)), document,
                work.found))
      translations.push_back(
          read_translations(document, work.messages, known, code_pages, work.found));
  }
  find_conflicts(translations, work.found);
  return translations;
}

// As text beside the diagnostics; for programs on standard output.
static void write_progress(const catalog_options& options, const std::vector<catalog_progress>& all,
                           std::ostream& out, std::ostream& log) {
  for (const catalog_progress& progress : all) {
    if (options.report.format == diagnostic_format::json)
      progress.write_json(out);
    else if (options.report.with_summary())
      log << "kplog: " << terminal_text(progress.name) << ": " << progress.counts.text() << '\n';
  }
}

static bool fails(const catalog_options& options, const catalog_work& work) {
  return options.fail_on == "error" ? has_errors(work) : !work.found.empty();
}

static command_outcome check_translations(const catalog_options& options, std::ostream& out,
                                          std::ostream& log) {
  catalog_work work;
  apply_severities(options.severities, work.found);
  const std::vector<catalog_translations> translations = read_all_translations(options, work, log);
  const std::vector<catalog_progress> all = progress_of(work.messages, translations, work.found);
  write_findings(options, work, log);
  write_progress(options, all, out, log);
  return fails(options, work) ? command_outcome::findings : command_outcome::good;
}

static command_outcome build(const catalog_options& options, std::ostream& out, std::ostream& log) {
  catalog_work work;
  const std::vector<catalog_translations> translations = read_all_translations(options, work, log);
  if (has_errors(work)) return refuse(options, work, log);
  const std::vector<catalog_bundle> bundles = catalog_bundles(work.messages, translations);
  try {
    write_bundles(options.output, bundles);
  } catch (const bundle_error& error) {
    log << "kplog: " << terminal_text(options.output) << ": " << terminal_text(error.what())
        << '\n';
    return command_outcome::file_error;
  }
  write_findings(options, work, log);
  write_progress(options, progress_of(work.messages, translations, work.found), out, log);
  note_written(log, options.report, options.output,
               counted(bundles.size(), "bundle") + ", " + counted(work.messages.size(), "message"));
  return command_outcome::good;
}

// --- the sub-commands

struct catalog_command_row {
  const char* name;
  const char* summary;
  const char* examples;
  bool takes_po_files;
  bool takes_rules;         // --codepage, --severity, --fail-on
  const char* output;       // what --output is; null: there is none
  const char* output_type;  // for the help and completion
  command_outcome (*run)(const catalog_options& options, std::ostream& out, std::ostream& log);
};

static constexpr std::array<catalog_command_row, 4> catalog_commands = {{
    {"extract", "Write the messages as a template for translations",
     "  kplog catalog extract events.yaml -o events.pot\n", false, false,
     "The POT file to write; - is standard output", "FILE", extract},
    {"merge", "Bring files of translations up to date",
     "  kplog catalog merge events.yaml --po de.po --po ja.po\n", true, false, nullptr, "", merge},
    {"build", "Compile translations to message catalogs",
     "  kplog catalog build events.yaml --po de.po --po ja.po -o messages\n", true, false,
     "The folder to write the catalogs to; made when it is not there", "FOLDER", build},
    {"check", "Find what is wrong with translations",
     "  kplog catalog check events.yaml --po de.po --codepage ISO-8859-1\n"
     "  kplog catalog check events.yaml --po de.po --severity catalog-untranslated=error\n",
     true, true, nullptr, "", check_translations},
}};

static void describe_options(CLI::App& command, const catalog_command_row& row,
                             catalog_options& options) {
  add_arguments(command, {"SOURCE", "FILE", "Definition sources; - is standard input"},
                options.inputs);
  if (row.takes_po_files)
    add_arguments(command, {"--po", "FILE", "Files of translations"}, options.po_files);
  if (row.takes_rules) {
    add_texts_option(command,
                     {"--codepage", "NAME", "A code page that all translations must fit into"},
                     options.code_pages);
    add_severity_option(command, options.severities);
    add_choice_option(command, "--fail-on", options.fail_on, {"error", "warning"},
                      "What makes the exit status 1; warnings, unless given, do so too");
  }
  if (row.output != nullptr)
    add_text_option(command, {"-o,--output", row.output_type, row.output}, options.output,
                    option_need::required);
  add_standard_option(command, options.standard);
  add_report_options(command, options.report);
}

// One of the sub-commands, as the command line gives it.
struct described_catalog_command {
  const CLI::App* command = nullptr;
  catalog_options options;
};

static command_action describe_catalog(CLI::App& command) {
  const auto described =
      std::make_shared<std::array<described_catalog_command, catalog_commands.size()>>();
  for (size_t i = 0; i < catalog_commands.size(); ++i) {
    const catalog_command_row& row = catalog_commands[i];
    CLI::App& sub_command = add_sub_command(command, row.name, row.summary, row.examples);
    (*described)[i].command = &sub_command;
    describe_options(sub_command, row, (*described)[i].options);
  }
  return [described](std::ostream& out, std::ostream& log) {
    for (size_t i = 0; i < catalog_commands.size(); ++i) {
      const catalog_options& options = (*described)[i].options;
      if (is_given(*(*described)[i].command))
        return outcome_of(options.report, log,
                          [&] { return catalog_commands[i].run(options, out, log); });
    }
    return command_outcome::usage;
  };
}

constexpr kplog_command_row catalog_command = {
    "catalog", "Extract, merge, check and build translations of messages",
    "  kplog catalog extract events.yaml -o events.pot\n"
    "  kplog catalog merge events.yaml --po de.po --po ja.po\n"
    "  kplog catalog check events.yaml --po de.po --codepage ISO-8859-1\n"
    "  kplog catalog build events.yaml --po de.po --po ja.po -o messages\n",
    describe_catalog};
