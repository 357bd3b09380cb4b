#include "tools/catalog/merge.h"

#include <map>
#include <set>

#include "recording/definitions/template.h"
#include "recording/text/escape.h"

// --- extract

static void add_note(std::vector<std::string>& lines, std::string_view note) {
  while (!note.empty()) {
    const size_t end = std::min(note.find('\n'), note.size());
    lines.push_back(terminal_text(note.substr(0, end)));
    note.remove_prefix(std::min(end + 1, note.size()));
  }
}

static std::string attribute_comment(const attribute_model& attribute) {
  const std::string type = _kp_LOG_get_attribute_type_string(attribute.type);
  const std::string note = attribute.note.empty() ? "" : ", " + attribute.note;
  return "{" + attribute.name.value + "}: " + type.substr(std::string("Type").size()) + note;
}

static bool shows(const message_model& message, std::string_view name) {
  for (const template_piece& piece : scan_template(message.template_bytes))
    if (piece.kind == template_piece::kinds::placeholder && piece.text == name) return true;
  return false;
}

// The event's own attributes, and the global ones that the text shows.
static std::vector<std::string> comments_of(const catalog_message& message,
                                            const definition_set& set) {
  std::vector<std::string> lines;
  add_note(lines, message.event->note);
  if (message.text().empty())
    lines.emplace_back("Without a text in the source: every language needs one here.");
  if (message.is_raw())
    lines.emplace_back("A template as it stands: %FORMAT%NAME% is a placeholder.");
  for (const attribute_model& attribute : message.event->attributes)
    add_note(lines, attribute_comment(attribute));
  for (const attribute_model& attribute : set.globals)
    if (shows(*message.message, attribute.name.value))
      add_note(lines, attribute_comment(attribute));
  return lines;
}

// A name with blanks stands between marks of direction, as translators' tools have it.
static std::string reference_to(const text_place& place) {
  const std::string& name = place.source->name();
  const bool has_blanks = name.find_first_of(" \t") != std::string::npos;
  return (has_blanks ? "\u2068" + name + "\u2069" : name) + ":" + std::to_string(place.line() + 1);
}

static po_string given(std::string text) {
  return {std::move(text), true, 0, {}};
}

static text_place place_of(const message_model& message) {
  for (const placed<std::string>* value : {&message.text, &message.raw, &message.id})
    if (value->is_given()) return value->place;
  return message.place;
}

static po_entry extracted_entry(const catalog_message& message, const definition_set& set) {
  po_entry entry;
  entry.extracted = comments_of(message, set);
  entry.references = {reference_to(place_of(*message.message))};
  entry.context = given(message.id());
  entry.id = given(message.text());
  entry.translation = given("");
  return entry;
}

po_document empty_translations(const std::string& locale) {
  po_document document;
  document.header.id = given("");
  document.header.translation = given(
      "Project-Id-Version: PACKAGE VERSION\n"
      "PO-Revision-Date: YEAR-MO-DA HO:MI+ZONE\n"
      "Last-Translator: FULL NAME <EMAIL@ADDRESS>\n"
      "Language-Team: LANGUAGE <LL@li.org>\n"
      "Language: " +
      locale +
      "\n"
      "MIME-Version: 1.0\n"
      "Content-Type: text/plain; charset=UTF-8\n"
      "Content-Transfer-Encoding: 8bit\n");
  return document;
}

po_document extracted_messages(const std::vector<catalog_message>& messages,
                               const definition_set& set) {
  po_document document = empty_translations("");
  document.header.set_fuzzy();
  for (const catalog_message& message : messages)
    if (message.is_translatable()) document.entries.push_back(extracted_entry(message, set));
  return document;
}

// --- merge

class po_merger {
 public:
  explicit po_merger(const po_document& old) : old_(old) {
    for (const po_entry& entry : old.entries) {
      if (!entry.context.is_given) continue;
      by_context_.emplace(entry.context.text, &entry);
    }
  }

  po_document merge(const po_document& extracted) {
    po_document merged;
    merged.header = old_.header;
    for (const po_entry& entry : extracted.entries) wanted_.insert(entry.context.text);
    for (const po_entry& entry : extracted.entries) merged.entries.push_back(merged_entry(entry));
    for (const po_entry& entry : old_.entries)
      if (used_.count(&entry) == 0 && !entry.translation.text.empty())
        merged.entries.push_back(obsolete_entry(entry));
    return merged;
  }

 private:
  po_entry merged_entry(po_entry entry) {
    const po_entry* const old = predecessor(entry);
    if (old == nullptr) return entry;
    used_.insert(old);
    entry.comments = old->comments;
    entry.flags = old->flags;
    entry.translation.text = old->translation.text;
    const bool is_same = old->id.text == entry.id.text && old->context.text == entry.context.text;
    if (is_same && entry.is_fuzzy()) {
      entry.previous = old->previous;
    } else if (!is_same && !entry.translation.text.empty()) {
      entry.set_fuzzy();
      entry.previous = previous_lines(entry, *old);
    }
    return entry;
  }

  const po_entry* predecessor(const po_entry& entry) const {
    const auto same = by_context_.find(entry.context.text);
    if (same != by_context_.end()) return same->second;
    for (const po_entry& old : old_.entries)
      if (old.id.text == entry.id.text && !old.id.text.empty() && used_.count(&old) == 0 &&
          wanted_.count(old.context.text) == 0)
        return &old;
    return nullptr;
  }

  // The statements of the old message, without its translation.
  static std::vector<std::string> previous_lines(const po_entry& entry, const po_entry& old) {
    po_document previous;
    po_entry statement;
    if (old.context.text != entry.context.text) statement.context = given(old.context.text);
    statement.id = given(old.id.text);
    previous.entries.push_back(statement);
    std::vector<std::string> lines;
    std::string text = po_text(previous);
    text.resize(text.rfind("msgstr"));
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
      lines.push_back(text.substr(at, text.find('\n', at) - at));
    return lines;
  }

  static po_entry obsolete_entry(po_entry entry) {
    entry.is_obsolete = true;
    entry.extracted.clear();
    entry.references.clear();
    return entry;
  }

  const po_document& old_;
  std::map<std::string_view, const po_entry*> by_context_;
  std::set<std::string_view> wanted_;  // the contexts that there are now
  std::set<const po_entry*> used_;
};

po_document merged_messages(const po_document& extracted, const po_document& old) {
  return po_merger(old).merge(extracted);
}
