#include "tools/catalog/translations.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "recording/text/json_text.h"
#include "recording/text/words.h"
#include "tools/catalog/locale.h"
#include "tools/definitions/authored_text.h"
#include "tools/definitions/template_rendering.h"

// --- One translation

// A placeholder as the text that it stands in shows it.
static std::string shown_placeholder(const template_piece& piece, bool is_raw,
                                     kp_AttributeType type) {
  if (is_raw) return "%" + std::string(1, piece.format) + "%" + std::string(piece.text) + "%";
  return authored_placeholder(piece, type);
}

class translation_check {
 public:
  translation_check(const catalog_message& message, const attribute_lookup& known,
                    std::string_view translation, std::vector<template_problem>& problems)
      : message_(message), known_(known), translation_(translation), problems_(problems) {}

  std::string run() {
    const size_t before = problems_.size();
    std::string bytes = message_.is_raw() ? raw_template() : authored_template();
    if (problems_.size() == before)
      check_rendering(rendered_template_of(*message_.event, bytes, message_renderer::icu, known_),
                      problems_);
    if (!message_.text().empty()) {
      compare_placeholders(bytes);
      compare_line_feeds();
    }
    if (problems_.size() == before && message_.is_raw())
      find_quoted_placeholders(translation_, problems_);
    return bytes;
  }

 private:
  kp_AttributeType type_of(std::string_view name) const {
    return known_.type_of(*message_.event, name);
  }

  std::string authored_template() {
    const template_attributes attributes{[&](std::string_view name) { return type_of(name); },
                                         [&] { return known_.names(*message_.event); }};
    return template_from_text(translation_, message_renderer::icu, attributes, problems_);
  }

  std::string raw_template() {
    const std::vector<template_piece> pieces = scan_template(translation_);
    check_template(
        pieces, [&](std::string_view name) { return type_of(name); }, problems_);
    find_lost_text(pieces, message_renderer::icu, problems_);
    for (const template_piece& piece : pieces)
      if (piece.kind == template_piece::kinds::literal) check_quotes(piece);
    return std::string(translation_);
  }

  // In a raw template braces and apostrophes are MessageFormat's. Braces of the source are meant.
  void check_quotes(const template_piece& literal) {
    const bool has_braces = message_.text().find_first_of("{}") != std::string::npos;
    for (size_t i = literal.text.find_first_of("{}'"); i < literal.text.size();
         i = literal.text.find_first_of("{}'", i + 1)) {
      if (literal.text[i] != '\'') {
        if (!has_braces) problem(literal.offset + i, "ICU swallows this brace; write '{' or '}'");
      } else if (literal.text.substr(i).starts_with("''")) {
        ++i;
      } else if (!has_braces && i + 1 == literal.text.size()) {
        problem(literal.offset + i, "ICU swallows this apostrophe; write two");
      }
    }
  }

  void problem(size_t offset, std::string text) {
    problems_.push_back({"catalog-quote"_rule, offset, std::move(text)});
  }

  // Placeholders as shown, each with the name of its attribute.
  using placeholder_names = std::map<std::string, std::string_view>;

  placeholder_names placeholders(std::string_view bytes) const {
    placeholder_names shown;
    for (const template_piece& piece : scan_template(bytes)) {
      if (piece.kind != template_piece::kinds::placeholder || !piece.shows_value()) continue;
      const kp_AttributeType type = type_of(piece.text);
      if (format_suits(piece.format, type))
        shown.emplace(shown_placeholder(piece, message_.is_raw(), type), piece.text);
    }
    return shown;
  }

  // What is lost is told whatever else is wrong. Beside faults of placeholders one whose name
  // is there may be the one at fault, and is left to that finding.
  void compare_placeholders(std::string_view bytes) {
    const placeholder_names wanted = placeholders(message_.message->template_bytes);
    const placeholder_names given = placeholders(bytes);
    const bool is_certain =
        std::all_of(problems_.begin(), problems_.end(),
                    [](const template_problem& found) { return leaves_placeholders(found.rule); });
    for (const auto& [placeholder, name] : wanted)
      if (given.count(placeholder) == 0 && (is_certain || !may_stand_for(name)))
        problems_.push_back({"catalog-placeholder"_rule, std::string::npos,
                             "the placeholder " + placeholder + " of the source is missing"});
    for (const auto& [placeholder, name] : given)
      if (wanted.count(placeholder) == 0 && is_certain)
        problems_.push_back({"catalog-placeholder"_rule, translation_.find(placeholder),
                             "the source has no placeholder " + placeholder});
  }

  // Whether all placeholders are read as they are meant where that is a fault.
  static bool leaves_placeholders(diagnostic_rule rule) {
    return rule == "text-attribute"_rule || rule == "catalog-quote"_rule ||
           rule == "template-lost-text"_rule;
  }

  // Whether the translation has the name where that of a placeholder stands.
  bool may_stand_for(std::string_view name) const {
    const std::string begin = (message_.is_raw() ? "%" : "{") + std::string(name);
    for (size_t at = translation_.find(begin); at != std::string_view::npos;
         at = translation_.find(begin, at + 1)) {
      const std::string_view behind = translation_.substr(at + begin.size());
      if (behind.empty() || behind.find_first_of("%{}:, \n") == 0) return true;
    }
    return false;
  }

  void compare_line_feeds() {
    const std::string_view source = message_.text();
    if (source.starts_with('\n') != translation_.starts_with('\n'))
      line_feed_problem(source.starts_with('\n'), "begins", 0);
    if (source.ends_with('\n') != translation_.ends_with('\n'))
      line_feed_problem(source.ends_with('\n'), "ends", last_character());
  }

  void line_feed_problem(bool is_lost, const std::string& verb, size_t offset) {
    problems_.push_back({"catalog-line-feed"_rule, offset,
                         "the text of the source " +
                             (is_lost ? verb + " with a line feed, and its translation does not"
                                      : "does not " + verb.substr(0, verb.size() - 1) +
                                            " with a line feed, and its translation does")});
  }

  size_t last_character() const {
    size_t at = translation_.empty() ? 0 : translation_.size() - 1;
    while (at > 0 && (static_cast<unsigned char>(translation_[at]) & 0xC0) == 0x80) --at;
    return at;
  }

  const catalog_message& message_;
  const attribute_lookup& known_;
  std::string_view translation_;
  std::vector<template_problem>& problems_;
};

// The template of a translated text, which is written as the message's own. Adds to `problems`,
// which has none yet, whatever cannot be shown, and placeholders and line feeds at either end other
// than the message's.
static std::string translated_template(const catalog_message& message,
                                       const attribute_lookup& known, std::string_view translation,
                                       std::vector<template_problem>& problems) {
  return translation_check(message, known, translation, problems).run();
}

// --- A file of them

class translation_reader {
 public:
  translation_reader(const po_document& document, const std::vector<catalog_message>& messages,
                     const attribute_lookup& known,
                     const std::vector<code_page_repertoire>& code_pages, diagnostic_list& found)
      : document_(document), known_(known), code_pages_(code_pages), found_(found) {
    result_.file = document.source->name();
    for (const catalog_message& message : messages) by_id_.emplace(message.id(), &message);
    result_.header = {document.source, document.header.translation.begin};
  }

  catalog_translations run() {
    read_locale();
    for (const po_entry& entry : document_.entries)
      if (entry.is_obsolete)
        ++result_.obsolete;
      else
        read_entry(entry);
    return std::move(result_);
  }

 private:
  void read_locale() {
    const std::string language = document_.header_field("Language");
    const std::string file_name = locale_of_path(document_.source->name());
    const std::string& name = language.empty() ? file_name : language;
    const catalog_locale locale = icu_locale(name);
    result_.locale = locale.name;
    if (locale.name.empty())
      found_.add("catalog-locale"_rule, place_of_language(),
                 "no locale " + in_quotes(name) + ": " + locale.problem +
                     "; give one in the header, as \"Language: pt_BR\\n\"");
    else if (!language.empty())
      check_file_name(file_name);
  }

  // Names that begin with no language are of domains or projects. So may be those of three letters
  // that ICU has not heard of, though a header may have them as a language.
  void check_file_name(const std::string& name) {
    const std::string named = icu_locale(name).name;
    if (named.empty() || named == result_.locale || !has_known_language(named)) return;
    found_.add("catalog-name"_rule, place_of_language(),
               "the file is named for " + in_quotes(named) + ", and its translations are for " +
                   in_quotes(result_.locale) + " by this header");
  }

  text_place place_of_language() const {
    return {document_.source,
            document_.header.translation.offset_of(document_.header_field_begin("Language"))};
  }

  void read_entry(const po_entry& entry) {
    if (!entry.context.is_given)
      return add("catalog-unknown"_rule, entry.id,
                 "a message without msgctxt belongs to no definition");
    const auto message = by_id_.find(entry.context.text);
    if (message == by_id_.end())
      return add("catalog-unknown"_rule, entry.context,
                 "no message " + in_quotes(entry.context.text) + " in the sources");
    const std::string& id = message->second->id();
    if (entry.translation.text.empty())
      result_.empty[id] = {document_.source, entry.translation.begin};
    else if (entry.id.text != message->second->text())
      add_fuzzy(id, "catalog-changed"_rule, entry.id,
                "the text of the message is another one now; kplog catalog merge brings it here");
    else if (entry.is_fuzzy())
      add_fuzzy(id, "catalog-fuzzy"_rule, entry.translation,
                "a fuzzy translation is not shown; take its mark away when it is right");
    else
      read_translation(entry, *message->second);
  }

  void add_fuzzy(const std::string& id, diagnostic_rule rule, const po_string& string,
                 std::string text) {
    result_.fuzzy.insert(id);
    add(rule, string, std::move(text));
  }

  void read_translation(const po_entry& entry, const catalog_message& message) {
    const po_string& translation = entry.translation;
    std::vector<template_problem> problems;
    result_.templates[message.id()] =
        translated_template(message, known_, translation.text, problems);
    result_.places[message.id()] = {document_.source, translation.begin};
    for (template_problem& problem : problems)
      found_.add(problem.rule, {document_.source, translation.offset_of(problem.offset)},
                 std::move(problem.text));
    for (const code_page_repertoire& code_page : code_pages_)
      check_code_page(translation, code_page);
  }

  void check_code_page(const po_string& translation, const code_page_repertoire& code_page) {
    const size_t missing = code_page.first_missing(translation.text);
    if (missing == std::string::npos) return;
    found_.add("code-page"_rule, {document_.source, translation.offset_of(missing)},
               "the code page " + code_page.name() + " cannot hold this character");
  }

  void add(diagnostic_rule rule, const po_string& string, std::string text) {
    found_.add(rule, {document_.source, string.begin}, std::move(text));
  }

  const po_document& document_;
  const attribute_lookup& known_;
  const std::vector<code_page_repertoire>& code_pages_;
  diagnostic_list& found_;
  std::map<std::string_view, const catalog_message*> by_id_;
  catalog_translations result_;
};

catalog_translations read_translations(const po_document& document,
                                       const std::vector<catalog_message>& messages,
                                       const attribute_lookup& known,
                                       const std::vector<code_page_repertoire>& code_pages,
                                       diagnostic_list& found) {
  return translation_reader(document, messages, known, code_pages, found).run();
}

void find_conflicts(const std::vector<catalog_translations>& files, diagnostic_list& found) {
  using locale_and_id = std::pair<std::string_view, std::string_view>;
  std::map<locale_and_id, const catalog_translations*> first_files;
  for (const catalog_translations& file : files) {
    if (file.locale.empty()) continue;
    for (const auto& [id, text] : file.templates) {
      const auto [first, is_new] = first_files.emplace(locale_and_id(file.locale, id), &file);
      if (!is_new && first->second->templates.at(id) != text)
        found.add("catalog-conflict"_rule, file.places.at(id),
                  "the message " + in_quotes(id) + " has another translation for " +
                      in_quotes(file.locale) + " already",
                  first->second->places.at(id), "it is here first");
    }
  }
}

// --- How far they are

std::string translation_counts::text() const {
  return std::to_string(translated) + " translated, " + std::to_string(fuzzy) + " fuzzy, " +
         std::to_string(untranslated) + " untranslated, " + std::to_string(obsolete) + " obsolete";
}

translation_counts counts_of(const po_document& document) {
  translation_counts counts;
  for (const po_entry& entry : document.entries)
    ++(entry.is_obsolete                ? counts.obsolete
       : entry.translation.text.empty() ? counts.untranslated
       : entry.is_fuzzy()               ? counts.fuzzy
                                        : counts.translated);
  return counts;
}

void catalog_progress::write_json(std::ostream& out) const {
  std::string line;
  json_text json(line);
  json.begin_object().key("locale").text(name).key("files").begin_list();
  for (const std::string& file : files) json.text(file);
  json.end_list().key("translated").number(counts.translated).key("fuzzy").number(counts.fuzzy);
  json.key("untranslated").number(counts.untranslated);
  json.key("obsolete").number(counts.obsolete).end_object();
  out << line << '\n';
}

static std::string name_of(const catalog_translations& file) {
  return file.locale.empty() ? file.file : file.locale;
}

class progress_counter {
 public:
  progress_counter(const std::vector<catalog_message>& messages,
                   const std::vector<catalog_translations>& translations, diagnostic_list& found)
      : messages_(messages), translations_(translations), found_(found) {}

  std::vector<catalog_progress> run() {
    for (const catalog_translations& file : translations_) {
      catalog_progress& progress = of(name_of(file));
      progress.files.push_back(file.file);
      progress.counts.obsolete += file.obsolete;
    }
    for (catalog_progress& progress : all_) {
      const std::vector<std::string> broader = broader_locales(progress.name);
      for (const catalog_message& message : messages_)
        if (message.is_translatable()) count(message.id(), broader, progress);
    }
    return std::move(all_);
  }

 private:
  catalog_progress& of(const std::string& name) {
    const auto known = std::find_if(all_.begin(), all_.end(),
                                    [&](const auto& progress) { return progress.name == name; });
    return known != all_.end() ? *known : all_.emplace_back(catalog_progress{name, {}, {}});
  }

  void count(const std::string& id, const std::vector<std::string>& broader,
             catalog_progress& progress) {
    if (is_translated(id, progress.name))
      ++progress.counts.translated;
    else if (any_file_has(progress.name,
                          [&](const auto& file) { return file.fuzzy.count(id) != 0; }))
      ++progress.counts.fuzzy;
    else if (std::none_of(broader.begin(), broader.end(),
                          [&](const std::string& locale) { return is_translated(id, locale); }))
      add_untranslated(id, progress);
  }

  bool is_translated(const std::string& id, const std::string& locale) const {
    return any_file_has(locale, [&](const auto& file) { return file.templates.count(id) != 0; });
  }

  template <class Condition>
  bool any_file_has(const std::string& name, const Condition& condition) const {
    return std::any_of(translations_.begin(), translations_.end(),
                       [&](const auto& file) { return name_of(file) == name && condition(file); });
  }

  // At its empty translation; at the header of the locale's first file where it has none.
  text_place place_of_untranslated(const std::string& id, const std::string& name) const {
    text_place place;
    for (const catalog_translations& file : translations_) {
      if (name_of(file) != name) continue;
      const auto empty = file.empty.find(id);
      if (empty != file.empty.end()) return empty->second;
      if (place.source == nullptr) place = file.header;
    }
    return place;
  }

  void add_untranslated(const std::string& id, catalog_progress& progress) {
    ++progress.counts.untranslated;
    found_.add("catalog-untranslated"_rule, place_of_untranslated(id, progress.name),
               "the message " + in_quotes(id) + " is not translated");
  }

  const std::vector<catalog_message>& messages_;
  const std::vector<catalog_translations>& translations_;
  diagnostic_list& found_;
  std::vector<catalog_progress> all_;
};

std::vector<catalog_progress> progress_of(const std::vector<catalog_message>& messages,
                                          const std::vector<catalog_translations>& translations,
                                          diagnostic_list& found) {
  return progress_counter(messages, translations, found).run();
}
