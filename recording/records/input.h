// Lines of records, from wherever they come: files, standard input, FIFOs, sockets
// (docs/commands/emit.md).
#ifndef RECORDING_RECORDS_INPUT_H
#define RECORDING_RECORDS_INPUT_H

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/client_numbers.h"
#include "recording/files/compression.h"
#include "recording/files/descriptor.h"
#include "recording/records/parser.h"

// Who sends lines, and hears that one of them is a bad record.
class line_sender {
 public:
  virtual ~line_sender() = default;
  virtual void hear_bad(const struct record_line& line) = 0;
};

// Where lines come from. It lives as long as somebody has a line of it.
struct line_source {
  std::string name = {};                 // what messages call it
  std::optional<record_peer> peer = {};  // who sends, where a service takes the lines
  line_sender* sender = nullptr;         // who minds bad records; null: nobody, or it has left
  bool is_closed = false;                // for bad records: nothing more of it is to be taken
};

// A line that is to hold a record. Its text lives until its input reads again.
struct record_line {
  std::string_view text;  // without its end: LF, or CR LF
  std::shared_ptr<line_source> source = {};
  uint64_t number = 0;               // in that input, from 1
  bool too_long = false;             // the text is the first `limit` bytes
  size_t limit = record_size_limit;  // what a line that begins so may have
  bool is_given_up = false;          // its end did not come in time
  // Which of the clients that a service acknowledges to sent it.
  numbered_client* client = nullptr;
  uint64_t client_number = 0;  // among the records of that client
};

// Raises record_error for a line that is too long, or was given up.
void check_length(const record_line& line);

// The shorter of two waits, of which negative ones last for ever.
inline std::chrono::milliseconds shorter_wait(std::chrono::milliseconds one,
                                              std::chrono::milliseconds other) {
  return one.count() >= 0 && (other.count() < 0 || one < other) ? one : other;
}

// What an input has up to a line end, or its own end, as a line: the text without CR and without
// the byte order mark in front of the first line, what is too long cut off. No line may have more
// than `most` bytes, whatever it is. False for a line of blanks, which is none; source and number
// are left alone.
bool take_as_line(std::string_view bytes, bool is_first, size_t most, record_line& line);

using record_taker = std::function<void(const record_line& line)>;

// The bytes of one input that have been read, cut into lines. Lines of blanks are counted and
// passed over, as is a byte order mark in front of the first. Holds no more than one line and a
// piece.
class record_lines {
 public:
  // Room for the bytes of one read. No line may have more than `most` bytes, whatever it is.
  explicit record_lines(size_t room, size_t most = stored_record_size_limit)
      : room_(room), most_(most) {}

  // Bytes that were read in another way.
  void add(std::string_view bytes);
  // One read, which may wait, of at most `most` bytes. What read(2) returns, with errno.
  ssize_t read_from(int descriptor, size_t most = SIZE_MAX);
  // The next line; `source` is left alone. False when none is whole.
  bool next(record_line& line) { return next(line, false); }
  // At the end of the input: the next line, also one without an end. What comes after that is a new
  // line.
  bool next_at_end(record_line& line);
  // Whether bytes were read that are no whole line yet.
  bool has_rest() const { return begin_ != end_; }
  size_t rest_size() const { return end_ - begin_; }
  // Whether a line has begun and not ended, though all that there is of it may be handed out.
  bool is_inside_line() const { return inside_ || has_rest(); }
  // Takes that memory in place of its own while nothing is left in that, or gives it away.
  void exchange_memory(std::vector<char>& other) {
    if (has_rest()) return;
    begin_ = end_ = 0;
    bytes_.swap(other);
  }
  // Lines handed out or passed over.
  uint64_t line_count() const { return number_; }
  // The lines to come are those behind so many.
  void count_from(uint64_t lines) { number_ = lines; }

 private:
  // What stands up to the next line end, or is taken without one.
  struct piece {
    std::string_view text;
    bool has_end = false;
  };

  bool next(record_line& line, bool at_end);
  bool take_piece(piece& taken, bool at_end);
  void make_room();

  size_t room_;
  size_t most_;
  std::vector<char> bytes_;
  size_t begin_ = 0;    // of what has not been handed out
  size_t end_ = 0;      // of what was read
  size_t scanned_ = 0;  // behind begin_: there is no line end before it
  uint64_t number_ = 0;
  bool inside_ = false;  // of a line of which the beginning was handed out
};

// When a run that a signal ends has no time left for what was sent before it.
using record_deadline = std::chrono::steady_clock::time_point;

// An input that waits for what is to come.
class record_input {
 public:
  virtual ~record_input() = default;

  virtual bool at_end() const = 0;      // nothing will ever come again
  virtual bool is_lasting() const = 0;  // its end is not known: somebody may write at any time
  // Appends what to wait for; the number of descriptors is that which `read` takes.
  virtual void watch(std::vector<pollfd>& descriptors) const = 0;
  // How long to wait for these at most, as something is to be done then; negative: any time.
  virtual std::chrono::milliseconds patience() const { return std::chrono::milliseconds(-1); }
  // Reads of each descriptor that is ready once, and hands over the lines.
  virtual void read(std::span<const pollfd> watched, const record_taker& take) = 0;
  // At the end of a run before the input's own: hands over what others had sent by now, also a last
  // line without an end, and nothing that comes later. Of files nothing more is read. Does not
  // wait.
  virtual void read_last(const record_taker& take, record_deadline deadline) = 0;
  // Behind that: what was there and was not read, in a text for each file or sender.
  virtual std::vector<std::string> unread() const = 0;
};

// Files, one behind the other, compressed ones too: "FILE.zst". A FIFO that has a name never ends:
// it is opened again when its writers have left.
class record_files : public record_input {
 public:
  // "-" is standard input. Raises file_error, also while reading.
  explicit record_files(std::vector<std::string> paths);

  bool at_end() const override { return next_ > paths_.size(); }
  // The files behind the one that is open.
  std::vector<std::string> behind() const;
  bool is_lasting() const override { return is_fifo_; }
  void watch(std::vector<pollfd>& descriptors) const override;
  void read(std::span<const pollfd> watched, const record_taker& take) override;
  void read_last(const record_taker& take, record_deadline deadline) override;
  std::vector<std::string> unread() const override;

 private:
  void open_next();
  void hand_over_lines(const record_taker& take);
  void hand_over_end(const record_taker& take);
  bool reads_last_of_file(const record_taker& take, record_deadline deadline);  // true: at its end
  void read_waiting(const record_taker& take, record_deadline deadline);
  void open_again();
  void read_compressed(const record_taker& take);
  int descriptor() const;
  const std::string& path() const { return paths_[next_ - 1]; }

  std::vector<std::string> paths_;
  size_t next_ = 0;             // index of the file behind the one that is open
  open_descriptor descriptor_;  // of the file that is open; closed for standard input
  std::unique_ptr<segment_reader> compressed_;  // where it is compressed
  bool is_fifo_ = false;
  bool has_rest_ = false;  // read_last left bytes of that file
  std::shared_ptr<line_source> source_ = std::make_shared<line_source>();  // that file
  record_lines lines_;
};

// Where the records of that path are: a journal's segment may have been compressed since somebody
// found it.
std::string record_file_at(const std::string& path);

// That one file, open, without waiting for the writer of a FIFO. Raises file_error.
open_descriptor open_record_file(const std::string& path);

// Raises the file_error of a file that cannot be read, for errno's reason.
[[noreturn]] void raise_record_file_error(const std::string& path);

// Raises file_error for the first file that cannot be read.
void check_record_files(const std::vector<std::string>& paths);

// The bytes that a pipe, socket or terminal holds.
size_t waiting_bytes(int descriptor);

// "FILE was read to line 3 only"
std::string unread_text(const std::string& name, uint64_t lines);

// Whether the path leads to a FIFO that has a name; pipes of shells (/dev/fd/63) have none.
bool is_named_fifo(const std::string& path);

#endif
