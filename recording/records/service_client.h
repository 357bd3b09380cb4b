// One of the clients of a service: its connection, the lines that come through it, and what it is
// answered.
#ifndef RECORDING_RECORDS_SERVICE_CLIENT_H
#define RECORDING_RECORDS_SERVICE_CLIENT_H

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "recording/files/client_numbers.h"
#include "recording/files/descriptor.h"
#include "recording/records/input.h"
#include "recording/records/origin.h"
#include "recording/records/service_hello.h"
#include "recording/records/user_limits.h"

// Who is at the other end of a stream socket. Raises std::system_error.
record_peer peer_of(int descriptor);

// A user of a service: whose clients they are, and what these may send.
struct service_user {
  record_rate rate;
  bad_record_limit bad;
  size_t clients = 0;                              // connections
  std::deque<class service_client*> waiting = {};  // those that may send no more for now
};

class service_client : public client_hearing, public line_sender {
 public:
  using clock = limit_clock;
  // Who the client of a hello is: null, and why in `refusal`, where it cannot be that.
  using naming = std::function<numbered_client*(const service_client& who,
                                                const service_hello& hello, std::string& refusal)>;
  static constexpr size_t piece = size_t{64} << 10;  // of what it has sent, that is read at a time
  // Told that the client is closed, and why.
  using closing = std::function<void(const std::string& text)>;
  struct answering {
    naming name_of;
    closing tell_closed = [](const std::string&) {};
    std::function<std::string()> status = [] { return std::string("{}"); };  // an object of JSON
  };

  // Who it is, and where it belongs.
  struct place {
    std::string name;  // "unix:PATH#3"
    uint64_t number;   // 3
    record_peer peer;
    service_user& user;
    int wait;  // an epoll
  };

  // Is watched for until it is closed. Raises std::system_error.
  service_client(open_descriptor accepted, place where, const answering& answers);
  ~service_client() override;
  service_client(const service_client&) = delete;
  service_client& operator=(const service_client&) = delete;

  int descriptor() const { return descriptor_.get(); }
  uint64_t number() const { return place_.number; }
  const record_peer& peer() const { return place_.peer; }
  service_user& user() const { return place_.user; }
  numbered_client* client() const { return client_; }  // null: it has no name

  // What it may take at a time.
  struct share {
    uint64_t records = UINT64_MAX;
    size_t bytes = piece;
  };
  // Does what the events of its descriptor ask for: hands over what it has kept, reads once, into
  // that memory unless it has kept some, and hands over what is whole. False when it is to be
  // closed.
  bool serve(uint32_t events, const record_taker& take, std::vector<char>& memory, share may_take);
  // Whether it has had its share of records, and may have more.
  bool is_over_rate() const { return records_left_ == 0; }
  // It waits until it may send more, and is not watched for meanwhile.
  void wait_for_rate();
  bool is_waiting() const { return is_waiting_; }
  // Whether it is closed for bad records.
  bool is_too_bad() const { return source_->is_closed; }
  void end_waiting();
  // When the line began that has not ended; far in the future when there is none.
  clock::time_point line_began() const { return line_began_; }
  // That line's end is not waited for any more; where it may be a record, it is handed over.
  void give_up_line(const record_taker& take);
  // Nothing can be sent any more; what was sent can be read.
  void stop_sending() const;
  // Answers it without reading more, where its first line is there and asks how the service is.
  void answer_status();
  // Everything that it sent was read.
  bool has_ended() const { return has_ended_ || is_closing_ || is_told_; }
  bool has_unread() const;
  std::string unread() const { return unread_text(place_.name, lines_.line_count()); }
  // It is not heard any more, and nothing unread of it is taken.
  void close();

  void hear_refused(uint64_t number, const char* code, const std::string& text) override;
  void hear_written() override;
  void hear_bad(const record_line& line) override;

 private:
  record_line blank_line();
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
  bool may_take() const { return !is_closing_ && !is_told_ && !is_held_up() && !is_over_rate(); }
  void tell_status();
  void watch();

  open_descriptor descriptor_;
  place place_;
  const answering& answering_;
  std::shared_ptr<line_source> source_;  // of its lines
  record_lines lines_;
  clock::time_point line_began_ = clock::time_point::max();

  numbered_client* client_ = nullptr;  // null: it is told nothing
  uint64_t next_number_ = 0;           // of its next line
  std::string answers_;                // that it has not taken yet
  uint32_t watched_ = 0;               // events
  uint64_t records_left_ = 0;          // of its share
  bool is_waiting_ = false;            // for more of them
  bool has_lines_left_ = false;        // that were read, and could not be handed over yet
  bool is_told_ = false;               // how the service is; then it is closed
  bool has_begun_ = false;             // its first line was read
  bool has_ended_ = false;             // it sends no more
  bool is_closing_ = false;
};

#endif
