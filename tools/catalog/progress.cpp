#include "tools/catalog/progress.h"

#include <algorithm>
#include <ostream>

#include "recording/text/json_text.h"
#include "recording/text/words.h"
#include "tools/catalog/locale.h"

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
  source_place place_of_untranslated(const std::string& id, const std::string& name) const {
    source_place place;
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
