// Advice on what one event says: its messages, and what they show.
#ifndef TOOLS_SOURCE_ADVICE_EVENT_H
#define TOOLS_SOURCE_ADVICE_EVENT_H

#include "tools/source/advice.h"
#include "tools/source/silences.h"

struct advised_event {
  const definition_set& set;
  const advice_options& options;
  const event_model& event;
  const event_model* standard;  // the STD event that it is merged into, or null
  std::vector<const code_page_repertoire*> code_pages;  // that the texts must fit into
};

void add_event_advice(const advised_event& advised, advice_sink& sink);

#endif
