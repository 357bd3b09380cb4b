// Advice on what one event says: its messages, and what they show.
#ifndef TOOLS_ADVICE_EVENT_H
#define TOOLS_ADVICE_EVENT_H

#include "tools/advice_sink.h"
#include "tools/definition_advice.h"

struct advised_event {
  const definition_set& set;
  const advice_options& options;
  const event_model& event;
  const event_model* standard;  // the STD event that it is merged into, or null
  std::vector<const code_page_repertoire*> code_pages;  // that the texts must fit into
};

void add_event_advice(const advised_event& advised, advice_sink& sink);

#endif
