#include "recording/files/ring_start.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"

struct own_ring {
  ring_start* ring;
  file_identity file;  // inode 0: not known
  own_ring* next;
};

// Neither is ever destroyed: a recorder may be a static object, and go when the process ends.
static std::mutex own_rings_mutex;
static std::mutex taking_mutex;  // taken first
static own_ring* first_own_ring = nullptr;

// A child of fork must not find the mutex held by a thread that it does not have.
static void survive_forks() {
  static std::once_flag once;
  std::call_once(once, [] {
    static constexpr auto let_go = [] {
      own_rings_mutex.unlock();
      taking_mutex.unlock();
    };
    pthread_atfork(
        [] {
          taking_mutex.lock();
          own_rings_mutex.lock();
        },
        let_go, let_go);
  });
}

void own_rings::add(ring_start* ring, const std::string& path) {
  survive_forks();
  struct stat status {};
  file_identity file;
  if (KP_lstat(path.c_str(), &status) == 0) file = {status.st_dev, status.st_ino};
  auto own = std::make_unique<own_ring>(own_ring{ring, file, nullptr});
  const std::lock_guard hold(own_rings_mutex);
  own->next = first_own_ring;
  first_own_ring = own.release();
}

std::unique_lock<std::mutex> own_rings::taking() {
  survive_forks();
  return std::unique_lock(taking_mutex);
}

void own_rings::remove(ring_start* ring) {
  const std::lock_guard hold(own_rings_mutex);
  own_ring** at = &first_own_ring;
  while (*at != nullptr && (*at)->ring != ring) at = &(*at)->next;
  const std::unique_ptr<own_ring> found(*at);
  if (found != nullptr) *at = found->next;
}

std::optional<uint64_t> own_rings::delivered(std::string_view recorder, unsigned output) {
  const std::lock_guard hold(own_rings_mutex);
  for (const own_ring* own = first_own_ring; own != nullptr; own = own->next)
    if (own->ring->identity() == recorder) return own->ring->delivered_in(output);
  return std::nullopt;
}

bool own_rings::has_file(dev_t device, ino_t inode) {
  const std::lock_guard hold(own_rings_mutex);
  for (const own_ring* own = first_own_ring; own != nullptr; own = own->next)
    if (own->file.inode == inode && own->file.device == device) return true;
  return false;
}

// --- What is delivered ---

// Without the page on the disk a power cut might bring back a ring that knows nothing of the batch,
// when the note that tells the same is gone.
void store_delivery(const delivery* of, bool synced) {
  if (of == nullptr || of->joint != nullptr) return;
  of->ring->set_delivered(of->output, of->last);
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  char* const begin = reinterpret_cast<char*>(of->ring);
  char* const page_begin = begin - reinterpret_cast<uintptr_t>(begin) % page;
  const size_t size = static_cast<size_t>(begin - page_begin) + sizeof(ring_start);
  if (synced) static_cast<void>(msync(page_begin, size, MS_SYNC));
}

static constexpr const char* ask_action = "read the ring";

// Why such a file is nobody's ring that is to be believed; empty when it may be one.
static std::string fault_of_ring(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return "is no regular file";
  if (status.st_nlink != 1) return "has other names";
  if (status.st_uid != geteuid()) return "is another user's";
  if (own_rings::has_file(status.st_dev, status.st_ino)) return "is another recorder's by now";
  return "";
}

static ring_answer read_ring(int file, const std::string& path, std::string_view recorder,
                             unsigned output) {
  const std::string bytes = read_part(file, 0, sizeof(ring_start), ask_action, path);
  ring_start start{};
  if (bytes.size() != sizeof start) return {.fault = "is no ring"};
  memcpy(&start, bytes.data(), sizeof start);
  char mark[sizeof start.mark] = {};
  ring_start::begin.copy(mark, sizeof mark);
  if (memcmp(start.mark, mark, sizeof mark) != 0) return {.fault = "is no ring"};
  if (start.identity() != recorder) return {.fault = "is another recorder's by now"};
  return {.delivered = start.delivered[output]};
}

// Nothing is opened but a regular file: others may do something when they are, and one's own must
// not be closed.
ring_answer ask_ring(const std::string& path, std::string_view recorder, unsigned output) {
  if (const auto known = own_rings::delivered(recorder, output)) return {.delivered = known};
  if (!path.starts_with('/')) return {.fault = "has no absolute path"};
  static constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  struct stat status {};
  const bool is_there = KP_lstat(path.c_str(), &status) == 0;
  if (is_there)
    if (std::string fault = fault_of_ring(status); !fault.empty()) return {.fault = fault};
  const open_descriptor file(is_there ? KP_open(path.c_str(), flags) : -1);
  if (!file.is_open() && !says_no_file(errno)) raise_write_error(ask_action, path);
  if (!file.is_open()) return {.fault = errno == ENOENT ? "is gone" : "cannot be opened"};
  file_identity opened;
  if (!opened.take(file.get())) raise_write_error(ask_action, path);
  if (!opened.is_of(status)) return {.fault = "is another file by now"};
  return read_ring(file.get(), path, recorder, output);
}
