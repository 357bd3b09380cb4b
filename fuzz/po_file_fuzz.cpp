// Any bytes as a PO file. What is read without a fault is written, and read again as the same; the
// places of everything lie in the file.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/catalog/po.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void require(bool holds) {
  if (!holds) std::abort();
}

static void require_places_within(const text_file& source, const po_string& string) {
  require(string.offsets.size() == string.text.size());
  require(string.begin <= source.bytes().size());
  for (const uint32_t offset : string.offsets) require(offset < source.bytes().size());
}

static void require_same(const po_entry& a, const po_entry& b) {
  require(a.context.text == b.context.text && a.context.is_given == b.context.is_given &&
          a.id.text == b.id.text && a.translation.text == b.translation.text &&
          a.comments == b.comments && a.extracted == b.extracted && a.references == b.references &&
          a.flags == b.flags && a.is_obsolete == b.is_obsolete);
  require(a.is_obsolete || a.previous == b.previous);
}

static void require_same(const po_document& a, const po_document& b) {
  require_same(a.header, b.header);
  require(a.entries.size() == b.entries.size());
  for (size_t i = 0; i < a.entries.size(); ++i) require_same(a.entries[i], b.entries[i]);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const text_file source("f.po", std::string(reinterpret_cast<const char*>(data), size));
  po_document document;
  diagnostic_list found;
  require(read_po(source, document, found));
  for (const po_entry& entry : document.entries)
    for (const po_string* string : {&entry.context, &entry.id, &entry.translation})
      require_places_within(source, *string);
  if (!found.empty()) return 0;
  const std::string text = po_text(document);
  const text_file written("g.po", text);
  po_document again;
  require(read_po(written, again, found) && found.empty());
  require_same(document, again);
  require(po_text(again) == text);
  return 0;
}
