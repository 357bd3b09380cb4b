// A run of kplog ship: what the command line asks for, and the run itself.
#ifndef TOOLS_COMMAND_SHIP_RUN_H
#define TOOLS_COMMAND_SHIP_RUN_H

#include <string>
#include <vector>

#include "recording/journal/segment_work.h"
#include "recording/records/event_set.h"
#include "tools/report/outcome.h"
#include "tools/ship/engine.h"

// How an engine is reached.
struct engine_access {
  std::string address;
  std::string user;
  std::string password_file;  // empty: none
  std::string tls_ca;
  std::string stream = "KPLOG";
  std::string tenant;  // empty: the user's own
  unsigned replicas = 1;
  bool has_live_index = false;
};

// Raises file_error for the password's file.
engine_options options_of(const engine_access& access);

struct ship_options {
  std::string journal;                   // DIR/NAME
  std::vector<std::string> definitions;  // of versions; the last is that of records without one
  event_set_options events;              // all but these
  engine_access engine;
  std::string host;
  bool is_once = false;
  std::string metrics;  // a file; empty: none
  std::string count;    // DIR/NAME of the counter file; empty: none
  std::string since;    // a day, "20261115"; empty: all
  report_options report;
};

// The journal, whose lock is taken by these rules.
journal_place place_of_journal(const ship_options& options, append_rules rules);

// The identity of the journal, which is the same by whatever path it is reached.
journal_identity identity_of(const ship_options& options);

// Sends what the journal has, and what comes, until a signal ends it; with `is_once` what is there.
command_outcome run_ship(const ship_options& options);

#endif
