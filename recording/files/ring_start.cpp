#include "recording/files/ring_start.h"

#include <pthread.h>
#include <sys/stat.h>

#include <memory>
#include <mutex>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"

struct own_ring {
  ring_start* ring;
  file_identity file;  // inode 0: not known
  own_ring* next;
};

// Neither is ever destroyed: a recorder may be a static object, and go when the process ends.
static std::mutex own_rings_mutex;
static own_ring* first_own_ring = nullptr;

// A child of fork must not find the mutex held by a thread that it does not have.
static void survive_forks() {
  static std::once_flag once;
  std::call_once(once, [] {
    pthread_atfork([] { own_rings_mutex.lock(); }, [] { own_rings_mutex.unlock(); },
                   [] { own_rings_mutex.unlock(); });
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
