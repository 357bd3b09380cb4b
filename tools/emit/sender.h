// Sends records to a service until it has acknowledged them all, whatever becomes of the connection
// (docs/service.md).
#ifndef TOOLS_EMIT_SENDER_H
#define TOOLS_EMIT_SENDER_H

#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/records/input.h"
#include "recording/records/service_hello.h"
#include "tools/emit/loop.h"

// What the service refused to take at all.
class sender_refused : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class record_sending {
 public:
  // Told of each record that the service says is bad.
  using bad_taker = std::function<void(uint64_t number, const service_answer& answer)>;

  // All must live as long as it.
  record_sending(std::string socket_path, std::string client, record_input& input,
                 emit_signals& signals, bad_taker take_bad);

  // Sends the whole input, and returns when all of it is acknowledged: true; or when a signal came.
  // Refuses a service that says that it had more records of the client than the input has.
  // Waits for the service as long as it takes. Raises file_error for the input, sender_refused, and
  // std::system_error.
  bool run();
  uint64_t acknowledged() const { return acknowledged_; }
  uint64_t read() const { return read_; }  // records of the input, so far
  // Of these: left out, because they had been acknowledged before this run.
  uint64_t left_out() const { return left_out_; }

 private:
  bool require_own_numbers() const;
  bool is_done() const { return input_.at_end() && lines_.empty(); }
  bool has_room() const { return held_bytes_ < most_held && !input_.at_end(); }
  void connect();
  void pause() const;
  void lose_connection();
  void greet();
  void take(const record_line& line);
  void wait_and_serve();
  void fill_piece();
  void send_piece();
  void hear();
  void answer(std::string_view line);
  void send_as_told(uint64_t acknowledged);
  void forget_up_to(uint64_t number);

  static constexpr size_t most_held = size_t{4} << 20;  // bytes of lines without acknowledgement

  std::string socket_path_;
  service_hello hello_;
  record_input& input_;
  emit_signals& signals_;
  bad_taker take_bad_;

  open_descriptor socket_;
  bool is_greeted_ = false;        // the service has answered the hello of this connection
  bool was_greeted_ = false;       // of some connection
  std::deque<std::string> lines_;  // sent or to be sent, with their ends, behind `acknowledged_`
  size_t held_bytes_ = 0;          // of these
  size_t unsent_ = 0;              // the first of them that is not in the piece
  std::string piece_;              // that is being sent
  std::string heard_;              // of the service's answers, not yet a line
  uint64_t acknowledged_ = 0;
  uint64_t sent_ = 0;     // the number of the last record that was, by this run or before it
  uint64_t had_ = 0;      // what the service had of it before this run
  uint64_t refused_ = 0;  // of the last one that was told to be bad
  uint64_t read_ = 0;
  uint64_t left_out_ = 0;
};

#endif
