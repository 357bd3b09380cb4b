// What a run does when an output cannot be written: a disk is full, a folder is gone.
#ifndef TOOLS_EMIT_PATIENCE_H
#define TOOLS_EMIT_PATIENCE_H

#include <string>

#include "recording/files/file_error.h"
#include "tools/emit/loop.h"
#include "tools/emit/run_report.h"

// Holds the batch, while nothing is read, and has it tried again; or ends the run.
class emit_patience : public batch_patience {
 public:
  emit_patience(bool is_patient, emit_signals& signals, emit_report& report)
      : is_patient_(is_patient), signals_(signals), report_(report) {}

  // Says what is wrong, once for each text, and waits a while. False when the run is to end: it is
  // not patient, a signal came, or nobody reads its standard output.
  bool tries_again(const file_error& error) override;
  // Says that it is written, where it was not.
  void was_written() override;

 private:
  bool is_patient_;
  emit_signals& signals_;
  emit_report& report_;
  std::string trouble_;  // that was told; empty: none
};

#endif
