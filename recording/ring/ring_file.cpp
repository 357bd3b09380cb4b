#include "recording/ring/ring_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/text/number.h"

static constexpr std::string_view ring_ending = ".ring.";
static constexpr std::string_view unfinished_ring_ending = ".new";
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

// Of this process and no other that this machine has had or has, in any container; also of what it
// was before an exec.
static std::string process_token() {
  struct stat space {};
  static_cast<void>(KP_stat("/proc/self/ns/pid", &space));
  const std::string text = std::to_string(getpid()) + start_of_process() + " " +
                           std::to_string(space.st_ino) + " " +
                           first_line_of("/proc/sys/kernel/random/boot_id");
  return hexadecimal(ring_sum(0, text.data(), text.size()), 16);
}

static std::string new_identity() {
  std::random_device random;
  std::string identity;
  for (int part = 0; part < 4; ++part) identity += hexadecimal(random(), 8);
  return identity;
}

static bool is_hexadecimal(std::string_view text) {
  return text.find_first_not_of("0123456789ABCDEF") == std::string_view::npos;
}

// What the name of a ring, "….ring.TOKEN-IDENTITY[.new]", says.
struct ring_name {
  // Raises file_error for another name.
  explicit ring_name(const std::string& path);

  std::string end;  // from ".ring." to the identity
  std::string token, identity;
  bool is_unfinished;
};

ring_name::ring_name(const std::string& path)
    : end(place_of(path).name), is_unfinished(end.ends_with(unfinished_ring_ending)) {
  static constexpr size_t token_size = 16, identity_size = 32;
  static constexpr size_t size = ring_ending.size() + token_size + 1 + identity_size;
  if (is_unfinished) end.resize(end.size() - unfinished_ring_ending.size());
  if (end.size() > size) end.erase(0, end.size() - size);
  const bool is_shaped =
      end.size() == size && end.starts_with(ring_ending) && end[size - identity_size - 1] == '-';
  if (is_shaped) {
    token = end.substr(ring_ending.size(), token_size);
    identity = end.substr(size - identity_size);
  }
  if (!is_shaped || !is_hexadecimal(token) || !is_hexadecimal(identity))
    throw file_error(file_use::reading, take_action, path, "its name is that of no ring");
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

// Whether the file that is open has the path still: its last owner may have finished it meanwhile.
static bool is_named(int file, const std::string& path) {
  struct stat open {};
  struct stat named {};
  return KP_fstat(file, &open) == 0 && KP_lstat(path.c_str(), &named) == 0 &&
         open.st_ino == named.st_ino && open.st_dev == named.st_dev;
}

// ---- making ----

// A hole in the file would end the process when the disk is full at the time it is written to, and
// so would a file that is larger than the process's limit.
static void allocate(int file, const char* action, const std::string& path, size_t size) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < size)
    throw file_error(file_use::writing, action, path, EFBIG);
  int error = EINTR;
  while (error == EINTR) error = posix_fallocate(file, 0, static_cast<off_t>(size));
  if (error != 0) throw file_error(file_use::writing, action, path, error);
}

// A new file that is this process's; none is open where another process took it for one that was
// left behind, before it was.
static open_descriptor open_own(const std::string& path) {
  static constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
  open_descriptor file(KP_open(path.c_str(), flags, ring_mode));
  if (!file.is_open()) raise_write_error(make_action, path);
  const bool is_own = take_ownership(file.get());
  const int error = errno;
  if (is_own && is_named(file.get(), path)) return file;
  KP_unlink(path.c_str());
  if (!is_own && error != EAGAIN && error != EACCES)
    throw file_error(file_use::writing, make_action, path, error);
  return open_descriptor();
}

std::unique_ptr<ring_file> ring_file::make(const std::string& stem, uint64_t size,
                                           const ring_info& info) {
  static constexpr int most_attempts = 100;
  const std::string start = stem + std::string(ring_ending) + process_token() + "-";
  for (int attempt = 0; attempt < most_attempts; ++attempt) {
    const std::string identity = new_identity();
    const std::string path = start + identity;
    const std::string unfinished = path + std::string(unfinished_ring_ending);
    open_descriptor file = open_own(unfinished);
    if (!file.is_open()) continue;
    try {
      std::unique_ptr<ring_file> ring(new ring_file(path, std::move(file)));
      ring->finish(size, identity, info, unfinished);
      return ring;
    } catch (...) {
      KP_unlink(unfinished.c_str());
      throw;
    }
  }
  throw file_error(file_use::writing, make_action, stem, "others take it away");
}

// The file has its name only when everything stands in it.
void ring_file::finish(uint64_t size, const std::string& identity, const ring_info& info,
                       const std::string& unfinished) {
  const size_t whole = ring_head_size + size / ring_block_size * ring_block_size;
  static_cast<void>(KP_fchmod(file_.get(), ring_mode));
  allocate(file_.get(), make_action, path_, whole);
  map(whole);
  set_up(identity, info);
  own_rings::add(&head().start, unfinished);
  if (KP_rename(unfinished.c_str(), path_.c_str()) != 0) raise_write_error(make_action, path_);
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

void ring_file::let_go() noexcept {
  const std::unique_lock hold = own_rings::taking();
  static constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED;
  if (mmap(memory_, size_, PROT_READ | PROT_WRITE, flags, -1, 0) == MAP_FAILED) return;
  own_rings::remove(&head().start);
  file_ = open_descriptor();
}

// ---- taking ----

// Whether the process has mapped a file whose path ends so. Where the system does not tell, it may
// have.
static bool is_mapped(const std::string& end) {
  std::ifstream maps("/proc/self/maps");
  if (!maps.is_open()) return true;
  for (std::string line; std::getline(maps, line);)
    if (line.ends_with(end)) return true;
  return false;
}

// The process may have another copy of the library, which tells of its rings by their names alone.
// What has such a name and is not mapped was left behind by an exec.
static bool is_of_this_process(const ring_name& name, const struct stat& status) {
  if (own_rings::has_file(status.st_dev, status.st_ino)) return true;
  return name.token == process_token() && (name.is_unfinished || is_mapped(name.end));
}

static void check_owner(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1)
    throw file_error(file_use::reading, take_action, path, "it is no regular file with one name");
  if (status.st_uid != geteuid())
    throw file_error(file_use::reading, take_action, path, "it belongs to another user");
}

std::unique_ptr<ring_file> ring_file::take(const std::string& path, bool& has_owner) {
  has_owner = false;
  const std::unique_lock hold = own_rings::taking();
  struct stat status {};
  if (KP_lstat(path.c_str(), &status) != 0) return nullptr;
  const ring_name name(path);
  has_owner = is_of_this_process(name, status);
  if (has_owner) return nullptr;
  check_owner(path, status);
  open_descriptor file(
      KP_open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!file.is_open() && errno == ENOENT) return nullptr;
  if (!file.is_open()) throw file_error(file_use::reading, take_action, path, errno);
  has_owner = !take_ownership(file.get());
  if (has_owner || !is_named(file.get(), path)) return nullptr;
  if (KP_fstat(file.get(), &status) != 0)
    throw file_error(file_use::reading, take_action, path, errno);
  check_owner(path, status);
  if (name.is_unfinished) {  // nothing was recorded in it
    KP_unlink(path.c_str());
    return nullptr;
  }
  std::unique_ptr<ring_file> ring(new ring_file(path, std::move(file)));
  ring->read_head(static_cast<size_t>(status.st_size));
  if (name.identity != ring->head().start.identity())
    throw file_error(file_use::reading, take_action, path, "it is a copy of another ring");
  own_rings::add(&ring->head().start, path);
  return ring;
}

void ring_file::read_head(size_t size) {
  const auto refuse = [this](const char* reason) {
    throw file_error(file_use::reading, take_action, path_, reason);
  };
  if (size < ring_head_size || size > ring_head_size + most_size)
    refuse("its size is that of no ring");
  allocate(file_.get(), take_action, path_, size);
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
  for (const uint64_t delivered : head.start.delivered)
    if (delivered > head.assigned) refuse("its head is damaged");
  info_ = std::move(*info);
}
