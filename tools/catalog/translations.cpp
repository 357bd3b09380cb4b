#include "tools/catalog/translations.h"

#include <algorithm>
#include <map>

#include "recording/text/words.h"
#include "tools/catalog/locale.h"

class translation_reader {
 public:
  translation_reader(const po_document& document, const std::vector<catalog_message>& messages,
                     const known_attributes& known,
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

  source_place place_of_language() const {
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
  const known_attributes& known_;
  const std::vector<code_page_repertoire>& code_pages_;
  diagnostic_list& found_;
  std::map<std::string_view, const catalog_message*> by_id_;
  catalog_translations result_;
};

catalog_translations read_translations(const po_document& document,
                                       const std::vector<catalog_message>& messages,
                                       const known_attributes& known,
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
