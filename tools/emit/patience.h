// What a run does when an output cannot be written: a disk is full, a folder is gone.
#ifndef TOOLS_EMIT_PATIENCE_H
#define TOOLS_EMIT_PATIENCE_H

#include <functional>

#include "recording/files/file_error.h"
#include "tools/emit/figures.h"
#include "tools/emit/loop.h"
#include "tools/emit/run_report.h"

// Holds the batch, while nothing is read, and has it tried again; or ends the run.
class emit_patience : public batch_patience {
 public:
  // Meanwhile, at each try, that is called.
  emit_patience(bool is_patient, emit_signals& signals, emit_report& report,
                std::function<void()> meanwhile)
      : is_patient_(is_patient),
        signals_(signals),
        report_(report),
        meanwhile_(std::move(meanwhile)) {}

  // Says what is wrong, once for each text, and waits a while. False when the run is to end: it is
  // not patient, a signal came, or nobody reads its standard output.
  bool tries_again(const file_error& error) override;
  // Says that it is written, where it was not.
  void was_written() override;
  const failure_figures& figures() const { return figures_; }

 private:
  bool is_patient_;
  emit_signals& signals_;
  emit_report& report_;
  std::function<void()> meanwhile_;
  failure_figures figures_;  // its trouble was told
};

#endif
