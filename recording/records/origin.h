// Where a record came from: what a recorder, a service or the sender tells beside the event.
#ifndef RECORDING_RECORDS_ORIGIN_H
#define RECORDING_RECORDS_ORIGIN_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "recording/text/line_writer.h"

// The process at the other end of a socket, as the system tells it.
struct record_peer {
  uint64_t user = 0;     // its ID
  uint64_t process = 0;  // its ID at the moment at which it connected

  bool operator==(const record_peer&) const = default;
};

// What is empty, or nothing, is not known, and no record tells it. The texts belong to whoever made
// this: the parser's live until its next record.
struct record_origin {
  std::string_view recorded;  // when, as record_origin_time_example
  std::string_view host;
  std::string_view recorder;  // the identity of one
  std::optional<uint64_t> pid;
  std::optional<uint64_t> thread;
  std::optional<uint64_t> sequence;  // among the events of its recorder, from 1
  std::string_view client;           // of a service, by the name that it gave
  std::optional<uint64_t> number;    // among the records of that client, from 1
  std::optional<record_peer> peer;   // who sent it through a service's socket
  std::string_view context;  // the sender's own: an object of JSON, as the stored form has it
};

// Whether the text is a time with an offset, or Z, and up to nine digits of a second's fraction.
inline constexpr char record_origin_time_example[] =
    "a time such as \"2026-11-15T17:02:56.123456789+08:00\"";
bool is_record_origin_time(std::string_view text);

// Members of the stored form that tell origins, and the context. The events of a recorder have most
// of theirs in common: that is kept from one to the next.
class record_origin_text {
 public:
  // Appends what is known, behind another member.
  void append(line_writer& line, const record_origin& origin);

 private:
  bool is_of(const record_origin& origin) const {
    return is_told_ && origin.host == host_ && origin.recorder == recorder_ && origin.pid == pid_;
  }
  void tell(const record_origin& origin);

  bool is_told_ = false;  // what follows is whole
  std::string host_, recorder_;
  std::optional<uint64_t> pid_;
  line_writer common_;  // all of these
};

#endif
