// Counting in a counter file of any size without searching it (docs/counter-file.md).
#ifndef RECORDING_SINKS_COUNTER_INDEX_H
#define RECORDING_SINKS_COUNTER_INDEX_H

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "recording/files/delivery_note.h"
#include "recording/sinks/counter_record.h"

// What a fault in a counter file says that was attempted.
inline constexpr const char* count_action = "count in";

struct counter_key {
  counter_day day;
  uint32_t id = 0;

  auto operator<=>(const counter_key&) const = default;
};

// A record that gets another content.
struct counter_change {
  counter_key key;
  bool is_new = false;        // the record's place was free, or behind the end
  replaced_bytes bytes = {};  // of the file
};

// Remembers where the records of a counter file are. Other processes write to the file, too, so
// that every record is read again before it is changed, and the file is searched where the memory
// cannot be relied on. The caller opens the file, and holds its lock from follow() to finish().
// Every operation raises file_error.
class counter_index {
 public:
  explicit counter_index(std::string path) : path_(std::move(path)) {}

  // Takes in what was appended since the last batch, or all of another file. What is no counter
  // file is refused.
  void follow(int file, const struct stat& status);
  // What becomes of the file when entries of these keys are added, in their order: to the first
  // record of a key; where there is none, a new one goes into the first free slot or behind all
  // others. Counts end at the largest number of a record.
  std::vector<counter_change> changes(int file, const std::map<counter_key, uint64_t>& added);
  // Makes one of them. Where that fails, or another is left out, forget() comes next.
  void make(int file, const counter_change& change) const;
  // Ends a batch that has written.
  void finish(int file);
  // Knows nothing of the file any more.
  void forget() { is_filled_ = false; }

 private:
  struct place {
    counter_key key;
    uint32_t number = 0;  // of the record, from 0

    auto operator<=>(const place&) const = default;
  };
  using record_visitor = std::function<void(const counted_entries& record, uint32_t number)>;

  std::optional<uint32_t> find(const counter_key& key) const;
  void rebuild(int file);
  void read_records(int file, uint64_t from, const record_visitor& visit);
  // At most `size` bytes, fewer at the end of the file.
  std::string read_bytes(int file, uint64_t offset, size_t size) const;
  uint32_t new_place();
  std::optional<counter_change> known_change(int file, const counter_key& key,
                                             uint64_t added) const;
  counter_change new_change(int file, const counter_key& key, uint64_t added);
  [[noreturn]] void fail() const;

  std::string path_;
  bool is_filled_ = false;
  dev_t device_ = 0;  // of the file that this is about
  ino_t inode_ = 0;
  uint64_t records_ = 0;                 // read so far
  std::vector<place> places_;            // sorted, a key once: its first record
  std::map<counter_key, uint32_t> new_;  // the same, since places_ was made
  std::vector<uint32_t> free_;           // slots, the first one last
  timespec written_ = {};                // the file's time, as the last batch left it
  bool is_exact_ = false;                // nobody else has written since the file was searched
};

#endif
