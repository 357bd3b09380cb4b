// A run: waits for records and signals, and ends the batch when there is nothing to be done.
#ifndef TOOLS_EMIT_LOOP_H
#define TOOLS_EMIT_LOOP_H

#include <csignal>
#include <functional>
#include <memory>
#include <vector>

#include "recording/records/input.h"
#include "tools/emit/pipeline.h"
#include "tools/emit/service_manager.h"
#include "tools/emit/watch.h"

// Holds SIGTERM, SIGINT and SIGHUP back for a scope, to be taken when there is time for them, and
// ignores SIGPIPE: a reader of the output that has left is an error of the write.
class emit_signals {
 public:
  emit_signals();  // raises std::system_error
  ~emit_signals();
  emit_signals(const emit_signals&) = delete;
  emit_signals& operator=(const emit_signals&) = delete;

  int descriptor() const { return descriptor_; }  // can be read while a signal waits
  int take();                                     // the signal that waits; 0: none
  // SIGTERM or SIGINT, from the moment it was sent on; 0: neither came.
  int ending() const;

 private:
  sigset_t before_{};
  struct sigaction pipe_before_ {};
  int descriptor_ = -1;
  int ending_ = 0;  // SIGTERM or SIGINT, taken
};

// How a run ended.
struct emit_end {
  int signal = 0;                        // that ended it; 0: none did
  bool is_cut_short = false;             // files, or standard input, had not ended
  std::vector<std::string> unread = {};  // a text for each input of which something was left
};

class emit_loop {
 public:
  // `reload` is called at SIGHUP, behind the batch; the files have been told to open anew. All must
  // live as long as the loop.
  emit_loop(emit_signals& signals, std::vector<std::unique_ptr<record_input>>& inputs,
            emit_pipeline& pipeline, metrics_file& metrics, service_manager& manager,
            std::function<void()> reload);

  // Runs until all inputs have ended, the pipeline has stopped, or SIGTERM or SIGINT came; what had
  // been sent by then is taken as well, as far as there is time for it. The last batch is left to
  // the caller. Raises what inputs and pipeline raise.
  emit_end run();

 private:
  bool is_running() const;
  std::chrono::milliseconds patience() const;
  bool wait(std::chrono::milliseconds patience);
  void read_ready();
  void answer(int signal);
  emit_end take_what_was_sent();

  emit_signals& signals_;
  std::vector<std::unique_ptr<record_input>>& inputs_;
  emit_pipeline& pipeline_;
  metrics_file& metrics_;
  service_manager& manager_;
  std::function<void()> reload_;
  std::vector<pollfd> watched_;  // the signals, then those of each input
  std::vector<size_t> ends_;     // of each input's part of them
  int ending_ = 0;               // the signal that ends the run
};

#endif
