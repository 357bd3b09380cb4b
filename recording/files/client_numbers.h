// How far the clients of a service are: a file beside its outputs (docs/service.md). It also tells
// which batches are in the outputs, as a ring does, so that what they and it say is one.
#ifndef RECORDING_FILES_CLIENT_NUMBERS_H
#define RECORDING_FILES_CLIENT_NUMBERS_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/files/ring_start.h"

// Hears what becomes of the records of a client.
class client_hearing {
 public:
  virtual ~client_hearing() = default;
  virtual void hear_refused(uint64_t number, const char* code, const std::string& text) = 0;
  virtual void hear_written() = 0;  // the client's number `written` is another
};

// A client that has a name. It lives as long as the numbers that it is of.
struct numbered_client {
  std::string name;
  uint64_t user = 0;
  uint64_t written = 0;  // the number of its last record that is in the outputs; 0: none is
  uint64_t taken = 0;    // of the last one that was taken for them
  client_hearing* hearing = nullptr;  // its connection; null: it has none

  int64_t seen = 0;  // when last, in seconds since 1970
  size_t slot = 0;   // in the file
  // What the file says of it: two numbers, of which one holds, and the other is written to.
  struct written_number {
    uint64_t batch = 0;
    uint64_t number = 0;
  };
  std::array<written_number, 2> in_file = {};
  size_t holding = 0;  // the one of them that holds
};

// A client, and the number of its last record in a batch.
using client_progress = std::unordered_map<numbered_client*, uint64_t>;

// One process at a time has a file of them.
class client_numbers {
 public:
  static constexpr size_t longest_name = 255;                 // bytes
  static constexpr size_t most_clients = size_t{128} << 10;   // of them half may be of one user
  static constexpr int64_t remembered = int64_t{30} * 86400;  // seconds, since it was seen
  using clock = std::function<int64_t()>;                     // seconds since 1970

  // Opens or makes the file, which has mode 0600 whatever the umask. Null where another process has
  // it. Raises file_error, also where something else has its name.
  static std::unique_ptr<client_numbers> open(const std::string& path, clock now = {});
  ~client_numbers() { own_rings::remove(&start_); }
  client_numbers(const client_numbers&) = delete;
  client_numbers& operator=(const client_numbers&) = delete;

  // The client of that name, which is new or was forgotten where its number is 0. Null, and why in
  // `refusal`, where the name is another user's, or there are too many. Raises file_error. A client
  // that `hearing` says is connected is never forgotten.
  numbered_client* find(const std::string& name, uint64_t user, std::string& refusal);
  // It was there until now. What the file does not take of that is left out.
  void see(numbered_client& client) noexcept;

  // The batch that comes next, for the notes of its outputs. A file that was moved, removed or cut
  // short is made again. Raises file_error, also where another file is in its place.
  delivery next_batch();
  // The batch is in the outputs, and so far are its clients: all of that, or nothing of it. On the
  // disk itself when `synced`. Raises file_error.
  void store(const client_progress& progress, bool synced);

 private:
  client_numbers(std::string path, open_descriptor file, clock now);
  void read();
  void read_slot(size_t slot, std::string_view bytes);
  void keep_place();
  void keep_whole() const;
  bool is_whole() const;
  void put_back();
  std::string whole_file() const;
  void write(std::string_view bytes, size_t offset) const;
  void write_batch(uint64_t batch) const;
  bool take_batch_back() const;
  void synchronize() const;
  void forget_unseen();
  bool is_forgotten(const numbered_client& client) const;
  numbered_client& add(const std::string& name, uint64_t user);
  void write_number(numbered_client& client, uint64_t number);
  [[noreturn]] void fail(const char* what) const;

  std::string path_;  // absolute
  open_descriptor file_;
  clock now_;
  ring_start start_ = {};  // as in the file
  size_t slots_ = 0;       // in the file
  std::vector<size_t> free_slots_;
  std::unordered_map<std::string, std::unique_ptr<numbered_client>> clients_;
  std::unordered_map<uint64_t, size_t> user_clients_;  // how many names each user has
  int64_t forgot_ = 0;  // when it was looked for names to be forgotten
};

#endif
