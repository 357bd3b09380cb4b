#include "recording/ring/ring_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/text/number.h"

static constexpr std::string_view ring_ending = ".ring.";
static constexpr std::string_view unfinished_ending = ".new";
static constexpr mode_t ring_mode = S_IRUSR | S_IWUSR;
static constexpr const char* make_action = "make the ring";
static constexpr const char* take_action = "read the ring";

// ---- names ----

static std::string first_line_of(const char* path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// When the process began, in the system's ticks, as text. The name before it, in parentheses, may
// hold anything.
static std::string start_of_process() {
  std::string status = first_line_of("/proc/self/stat");
  status.erase(0, std::min(status.rfind(')'), status.size()));
  size_t at = 0;
  for (int field = 2; field < 22 && at != std::string::npos; ++field)
    at = status.find(' ', at + (field == 2 ? 0 : 1));
  return at == std::string::npos ? "" : status.substr(at, status.find(' ', at + 1) - at);
}

// Of this process and no other that this machine has had or has, in any container. A copy of the
// library elsewhere in the process tells by it that a ring is the process's own.
static std::string process_token() {
  struct stat space {};
  static_cast<void>(KP_stat("/proc/self/ns/pid", &space));
  const std::string text = std::to_string(getpid()) + start_of_process() + " " +
                           std::to_string(space.st_ino) + " " +
                           first_line_of("/proc/sys/kernel/random/boot_id");
  return hexadecimal(ring_sum(0, text.data(), text.size()), 16);
}

static std::string new_identity() {
  std::array<uint64_t, 2> random = {};
  static_cast<void>(getrandom(random.data(), sizeof random, 0));
  return hexadecimal(random[0], 16) + hexadecimal(random[1], 16);
}

std::vector<std::string> ring_file::paths_of(const std::string& stem) {
  const file_place place = place_of(stem);
  const std::string start = place.name + std::string(ring_ending);
  const int descriptor = KP_open(place.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) raise_write_error("read the folder", place.folder);
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(KP_fdopendir(descriptor), closedir);
  if (folder == nullptr) {
    KP_close(descriptor);
    raise_write_error("read the folder", place.folder);
  }
  std::vector<std::string> paths;
  errno = 0;
  while (const dirent* const file = KP_readdir(folder.get())) {
    if (std::string_view(file->d_name).starts_with(start))
      paths.push_back(place.folder + "/" + file->d_name);
    errno = 0;
  }
  if (errno != 0) raise_write_error("read the folder", place.folder);
  std::sort(paths.begin(), paths.end());
  return paths;
}

// ---- the owner ----

// False when another process owns it. The lock is the process's: the system lets it go with the
// process, or as soon as the process closes any descriptor of the file.
static bool take_ownership(int file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  return fcntl(file, F_SETLK, &lock) == 0;
}

// ---- making ----

static int open_new(const std::string& path) {
  return KP_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, ring_mode);
}

// A hole in the file would end the process when the disk is full at the time it is written to.
static void allocate(int file, const std::string& path, size_t size) {
  static_cast<void>(KP_fchmod(file, ring_mode));
  const int error = posix_fallocate(file, 0, static_cast<off_t>(size));
  if (error != 0) throw file_error(file_use::writing, make_action, path, error);
}

std::unique_ptr<ring_file> ring_file::make(const std::string& stem, uint64_t size,
                                           const ring_info& info) {
  const std::string identity = new_identity();
  const std::string path = stem + std::string(ring_ending) + process_token() + "-" + identity;
  const std::string unfinished = path + std::string(unfinished_ending);
  std::unique_ptr<ring_file> ring(new ring_file(path, open_descriptor(open_new(unfinished))));
  if (!ring->file_.is_open()) raise_write_error(make_action, path);
  try {
    if (!take_ownership(ring->file_.get())) raise_write_error(make_action, path);
    const size_t whole = ring_head_size + size / ring_block_size * ring_block_size;
    allocate(ring->file_.get(), path, whole);
    ring->map(whole);
    ring->set_up(identity, info);
    if (KP_rename(unfinished.c_str(), path.c_str()) != 0) raise_write_error(make_action, path);
  } catch (...) {
    KP_unlink(unfinished.c_str());
    throw;
  }
  own_rings::add(&ring->head().start, path);
  return ring;
}

void ring_file::set_up(const std::string& identity, const ring_info& info) {
  const std::string text = text_of(info);
  if (text.size() > ring_head_size - sizeof(ring_head))
    raise_write_error(make_action, path_, "its paths are too long");
  ring_head& head = this->head();
  ring_start::begin.copy(head.start.mark, ring_start::begin.size());
  identity.copy(head.start.recorder, sizeof head.start.recorder);
  head.layout = ring_layout;
  head.blocks = blocks_;
  head.info_size = static_cast<uint32_t>(text.size());
  head.info_sum = ring_sum(0, text.data(), text.size());
  text.copy(reinterpret_cast<char*>(&head + 1), text.size());
  info_ = info;
}

void ring_file::map(size_t size) {
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file_.get(), 0);
  if (memory == MAP_FAILED) raise_write_error("map the ring", path_);
  memory_ = static_cast<unsigned char*>(memory);
  size_ = size;
  blocks_ = static_cast<uint32_t>((size - ring_head_size) / ring_block_size);
}

ring_file::~ring_file() {
  if (memory_ == nullptr) return;
  own_rings::remove(&head().start);
  munmap(memory_, size_);
}

void ring_file::remove() {
  KP_unlink(path_.c_str());
}

// ---- taking ----

static bool is_of_this_process(const std::string& path, const struct stat& status) {
  const std::string name = place_of(path).name;
  return own_rings::has_file(status.st_dev, status.st_ino) ||
         name.find(std::string(ring_ending) + process_token() + "-") != std::string::npos;
}

static void check_owner(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1)
    throw file_error(file_use::reading, take_action, path, "it is no regular file with one name");
  if (status.st_uid != geteuid())
    throw file_error(file_use::reading, take_action, path, "it belongs to another user");
}

// Whether the file that is open has the path still: its last owner may have finished it meanwhile.
static bool is_named(int file, const std::string& path) {
  struct stat open {};
  struct stat named {};
  return KP_fstat(file, &open) == 0 && KP_lstat(path.c_str(), &named) == 0 &&
         open.st_ino == named.st_ino && open.st_dev == named.st_dev;
}

std::unique_ptr<ring_file> ring_file::take(const std::string& path) {
  const std::unique_lock hold = own_rings::taking();
  struct stat status {};
  if (KP_lstat(path.c_str(), &status) != 0) return nullptr;
  if (is_of_this_process(path, status)) return nullptr;
  check_owner(path, status);
  open_descriptor file(
      KP_open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!file.is_open() && errno == ENOENT) return nullptr;
  if (!file.is_open()) throw file_error(file_use::reading, take_action, path, errno);
  if (!take_ownership(file.get()) || !is_named(file.get(), path)) return nullptr;
  if (KP_fstat(file.get(), &status) != 0)
    throw file_error(file_use::reading, take_action, path, errno);
  check_owner(path, status);
  if (path.ends_with(unfinished_ending)) {  // nothing was recorded in it
    KP_unlink(path.c_str());
    return nullptr;
  }
  std::unique_ptr<ring_file> ring(new ring_file(path, std::move(file)));
  ring->read_head(static_cast<size_t>(status.st_size));
  own_rings::add(&ring->head().start, path);
  return ring;
}

void ring_file::read_head(size_t size) {
  const auto refuse = [this](const char* reason) {
    throw file_error(file_use::reading, take_action, path_, reason);
  };
  if (size < ring_head_size || (size - ring_head_size) / ring_block_size > most_size)
    refuse("its size is that of no ring");
  map(size);
  const ring_head& head = this->head();
  const std::string_view mark(head.start.mark, ring_start::begin.size());
  if (mark != ring_start::begin || head.layout != ring_layout || head.blocks != blocks_)
    refuse("it does not begin as a ring does");
  if (head.info_size > ring_head_size - sizeof(ring_head)) refuse("its head is damaged");
  const std::string text(reinterpret_cast<const char*>(&head + 1), head.info_size);
  std::optional<ring_info> info = ring_info_of(text);
  if (head.info_sum != ring_sum(0, text.data(), text.size()) || !info)
    refuse("its head is damaged");
  info_ = std::move(*info);
}
