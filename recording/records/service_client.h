// One of the clients of a service: its connection, the lines that come through it, and what it is
// answered.
#ifndef RECORDING_RECORDS_SERVICE_CLIENT_H
#define RECORDING_RECORDS_SERVICE_CLIENT_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "recording/files/client_numbers.h"
#include "recording/files/descriptor.h"
#include "recording/records/input.h"
#include "recording/records/origin.h"
#include "recording/records/service_hello.h"

// Who is at the other end of a stream socket. Raises std::system_error.
record_peer peer_of(int descriptor);

class service_client : public client_hearing {
 public:
  using clock = std::chrono::steady_clock;
  // Who the client of a hello is: null, and why in `refusal`, where it cannot be that.
  using naming = std::function<numbered_client*(const service_client& who,
                                                const service_hello& hello, std::string& refusal)>;
  static constexpr size_t piece = size_t{64} << 10;  // of what it has sent, that is read at a time

  // Is watched for by `wait`, an epoll, until it is closed. Raises std::system_error.
  service_client(open_descriptor accepted, std::string name, uint64_t number, record_peer peer,
                 int wait, naming name_of);
  ~service_client() override;
  service_client(const service_client&) = delete;
  service_client& operator=(const service_client&) = delete;

  int descriptor() const { return descriptor_.get(); }
  uint64_t number() const { return number_; }
  const record_peer& peer() const { return peer_; }
  numbered_client* client() const { return client_; }  // null: it has no name

  // Does what the events of its descriptor ask for: reads once, at most `most` bytes, into that
  // memory unless it has kept some, and hands over what is whole. False when it is to be closed.
  bool serve(uint32_t events, const record_taker& take, std::vector<char>& memory,
             size_t most = piece);
  // When the line began that has not ended; far in the future when there is none.
  clock::time_point line_began() const { return line_began_; }
  // That line's end is not waited for any more; where it may be a record, it is handed over.
  void give_up_line(const record_taker& take);
  // Nothing can be sent any more; what was sent can be read.
  void stop_sending() const;
  // Everything that it sent was read.
  bool has_ended() const { return has_ended_ || is_closing_; }
  bool has_unread() const;
  std::string unread() const { return unread_text(name_, lines_.line_count()); }
  // It is not heard any more, and nothing unread of it is taken.
  void close();

  void hear_refused(uint64_t number, const char* code, const std::string& text) override;
  void hear_written() override;

 private:
  record_line blank_line() const;
  bool read(const record_taker& take, size_t most);
  void hand_over(const record_taker& take, bool at_end);
  void hand_over(record_line& line, const record_taker& take);
  void greet(std::string_view line);
  void refuse(const std::string& text);
  void note_line_begin(uint64_t lines_before);
  void answer(const std::string& line);
  void send_answers();
  void close_when_done();
  void stop_hearing();
  bool is_held_up() const;
  void watch();

  open_descriptor descriptor_;
  std::string name_;  // "unix:PATH#3"
  uint64_t number_;   // 3
  record_peer peer_;
  int wait_;
  naming name_of_;
  record_lines lines_;
  clock::time_point line_began_ = clock::time_point::max();

  numbered_client* client_ = nullptr;  // null: it is told nothing
  uint64_t next_number_ = 0;           // of its next line
  std::string answers_;                // that it has not taken yet
  uint32_t watched_ = 0;               // events
  bool has_begun_ = false;             // its first line was read
  bool has_ended_ = false;             // it sends no more
  bool is_closing_ = false;
};

#endif
