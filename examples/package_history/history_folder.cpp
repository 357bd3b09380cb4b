#include "history_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "kp_LOG.h"

static std::string make_temporary_folder() {
  std::string path = std::filesystem::temp_directory_path() / "package_history.XXXXXX";
  if (mkdtemp(path.data()) == nullptr)
    throw std::runtime_error("cannot make " + path + ": " + std::strerror(errno));
  return path;
}

static std::string make_folder(const char* path) {
  std::error_code error;
  std::error_code ignored;
  std::filesystem::create_directories(path, error);
  if (!std::filesystem::is_directory(path, ignored))
    throw std::runtime_error(std::string("cannot make ") + path + ": " + error.message());
  return path;
}

static std::string lock_path(const std::string& folder) {
  std::string prefix = history_file_prefix;
  std::string purpose = "lock";
  char name[256];
  get_plockname(prefix.data(), purpose.data(), name);
  return folder + "/" + name;
}

// The library coordinates nothing between processes: two of them would write the same serial and
// count a new key twice. The lock ends with the process, however that ends; its file stays.
static int lock_folder(const std::string& folder) {
  const std::string path = lock_path(folder);
  const int lock = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock < 0) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
  if (flock(lock, LOCK_EX | LOCK_NB) == 0) return lock;
  close(lock);
  throw std::runtime_error("another run writes to " + folder);
}

history_folder::history_folder(const char* path)
    : path_(path != nullptr ? make_folder(path) : make_temporary_folder()),
      is_temporary_(path == nullptr) {
  if (!is_temporary_) lock_ = lock_folder(path_);
}

history_folder::~history_folder() {
  if (lock_ >= 0) close(lock_);
  std::error_code ignored;
  if (is_temporary_) std::filesystem::remove_all(path_, ignored);
}
