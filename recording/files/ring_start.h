// What the files of a recorder's outputs need to know of its ring: which of its events are in them.
#ifndef RECORDING_FILES_RING_START_H
#define RECORDING_FILES_RING_START_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

// How a ring's file begins, as it lies in memory.
struct ring_start {
  static constexpr unsigned outputs = 4;
  static constexpr std::string_view begin = "kplog ring 1\n";

  char mark[16];                // `begin`, zeros behind it
  char recorder[32];            // the recorder's identity: 32 hexadecimal digits
  uint64_t delivered[outputs];  // the sequence of the last event that is in each output

  std::string_view identity() const { return {recorder, sizeof recorder}; }
  void set_delivered(unsigned output, uint64_t sequence) {
    std::atomic_ref(delivered[output]).store(sequence, std::memory_order_release);
  }
  uint64_t delivered_in(unsigned output) {
    return std::atomic_ref(delivered[output]).load(std::memory_order_acquire);
  }
};
static_assert(sizeof(ring_start) == 80);

class joint_batch;

// A batch of a ring's events on its way into one output; or of a service's records, of which its
// clients' numbers tell what rings tell of theirs.
struct delivery {
  ring_start* ring = nullptr;  // stays mapped until the batch is written
  std::string ring_path;       // absolute
  unsigned output = 0;         // 0 text, 1 JSON, 2 counts, 3 journal
  uint64_t first = 0;          // sequences of the batch's events, from 1
  uint64_t last = 0;
  joint_batch* joint =
      nullptr;  // the batch goes into several outputs as one; null: into this alone
};

// Tells the ring of a batch, if it is one's, that its events are in the output; on the disk itself
// when `synced`. A joint batch is not told of one by one.
void store_delivery(const delivery* of, bool synced);

// What a ring says of an output, or why it is not to be believed: "is gone".
struct ring_answer {
  std::optional<uint64_t> delivered = {};
  std::string fault = {};
};

// Asks the ring of that recorder, which is one of this process's own or has its file at the path.
// That must be a regular file of one name, and the user's who runs this program. Raises file_error
// where the system does not tell.
ring_answer ask_ring(const std::string& path, std::string_view recorder, unsigned output);

// The rings that this process has mapped. Their files must not be opened by others in it: closing
// one would end the lock that tells that their owner lives. Any thread may call these, and so may a
// child of fork.
class own_rings {
 public:
  // Until remove(), which comes before the mapping ends.
  static void add(ring_start* ring, const std::string& path);
  static void remove(ring_start* ring);

  // What is delivered to the output, by the ring of that recorder; nothing where this process has
  // no such ring.
  static std::optional<uint64_t> delivered(std::string_view recorder, unsigned output);
  // While it is held, no other thread of the process takes a file for nobody's.
  static std::unique_lock<std::mutex> taking();
  // Whether the file is one of theirs.
  static bool has_file(dev_t device, ino_t inode);
};

#endif
