// Translations as PO files, which translators' tools read and write.
//
// Only what message catalogs need: messages with a context, without plural forms, in UTF-8.
#ifndef TOOLS_CATALOG_PO_H
#define TOOLS_CATALOG_PO_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/report/diagnostics.h"
#include "recording/report/text_file.h"

struct po_string {
  std::string text;
  bool is_given = false;
  uint32_t begin = 0;                  // where its first quote stands, an offset in the file
  std::vector<uint32_t> offsets = {};  // where each byte of the text stands

  // Where a byte of the text stands in the file; the first quote for npos and beyond the end.
  size_t offset_of(size_t byte) const;
};

// One message. Comments are lines as they stand behind their marks.
struct po_entry {
  std::vector<std::string> comments;    // "#": the translators' own
  std::vector<std::string> extracted;   // "#.": from the source
  std::vector<std::string> references;  // "#:": places in the source
  std::vector<std::string> flags;       // "#,"
  std::vector<std::string> previous;    // "#|": what a fuzzy translation was made for
  bool is_obsolete = false;             // "#~"
  po_string context;                    // "msgctxt"
  po_string id;                         // "msgid": the text in the source's language
  po_string translation;                // "msgstr"

  bool is_fuzzy() const;
  void set_fuzzy();
};

struct po_document {
  const text_file* source = nullptr;  // not owned; null: made here
  po_entry header;
  std::vector<po_entry> entries;

  // Where a field's value begins in the header's translation; npos when there is none.
  size_t header_field_begin(const std::string& name) const;
  // A field of the header, "" when there is none.
  std::string header_field(const std::string& name) const;
};

// Reads the file into `document`, which points to it. Diagnostics for what is no PO file, is not in
// UTF-8, or says one thing twice; a message with such a fault is left out, and reading goes on with
// the next one. False when the file is too large to be read.
bool read_po(const text_file& source, po_document& document, diagnostic_list& found);

// The text of the file: the same document gives the same bytes. Strings are broken behind line ends
// only.
std::string po_text(const po_document& document);

#endif
