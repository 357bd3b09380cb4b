// Advice on a complete set of sources: what compiles, and is probably not meant.
#ifndef TOOLS_SOURCE_ADVICE_H
#define TOOLS_SOURCE_ADVICE_H

#include <vector>

#include "recording/definitions/model.h"
#include "recording/definitions/standard_set.h"
#include "recording/report/diagnostics.h"
#include "tools/definitions/code_page_repertoire.h"

struct advice_options {
  std::vector<code_page_repertoire> code_pages;  // known ones, that all texts must fit into
  const std_definitions* standard = nullptr;     // null: the set stands alone
};

// Adds what the rules of kind `advice` find and the sources do not silence. The number of findings
// that they do silence.
size_t add_advice(const definition_set& set, const advice_options& options, diagnostic_list& found);

#endif
