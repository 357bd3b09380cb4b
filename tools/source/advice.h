// Advice on a complete set of sources: what compiles, and is probably not meant.
#ifndef TOOLS_SOURCE_ADVICE_H
#define TOOLS_SOURCE_ADVICE_H

#include <vector>

#include "recording/definitions/merged_set.h"
#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"
#include "recording/text/code_page.h"

class advice_list;

struct advice_options {
  std::vector<code_page_repertoire> code_pages;  // known ones, that all texts must fit into
  const std_definitions* standard = nullptr;     // null: the set stands alone
};

// Adds what the rules of kind `advice` find and the sources do not silence. The number of findings
// that they do silence.
size_t add_advice(const definition_set& set, const advice_options& options, diagnostic_list& found);

// --- What the files of this room share

struct advised_event {
  const definition_set& set;
  const advice_options& options;
  const event_model& event;
  const event_model* standard;  // the STD event that it is merged into, or null
  std::vector<const code_page_repertoire*> code_pages;  // that the texts must fit into
};

// Advice on what one event says: its messages, and what they show.
void add_event_advice(const advised_event& advised, advice_list& advice);

#endif
