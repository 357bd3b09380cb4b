#include "logging/logmsg_catalog_path.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include "logging/raise.h"

// --- What is there ---

// The state of a folder's files, or of a package.
struct logmsg_catalog_state {
  uint64_t mark = 0;       // of everything that changes with a file
  time_t last_change = 0;  // the latest one
  bool operator==(const logmsg_catalog_state& other) const = default;
};

static uint64_t mixed(uint64_t mark, uint64_t value) {
  mark = (mark ^ value) * 0x9E3779B97F4A7C15U;
  return mark ^ (mark >> 29);
}

static uint64_t mixed(uint64_t mark, const struct timespec& time) {
  return mixed(mixed(mark, static_cast<uint64_t>(time.tv_sec)),
               static_cast<uint64_t>(time.tv_nsec));
}

// Adds a file; the order in which files are added does not matter.
static void add_file(logmsg_catalog_state& state, int folder, const char* name) {
  uint64_t mark = 1;
  for (const char c : std::string_view(name)) mark = mixed(mark, static_cast<unsigned char>(c));
  struct stat status;
  if (fstatat(folder, name, &status, 0) == 0) {
    mark = mixed(mixed(mixed(mark, status.st_dev), status.st_ino),
                 static_cast<uint64_t>(status.st_size));
    mark = mixed(mixed(mark, status.st_mtim), status.st_ctim);
    state.last_change = std::max(state.last_change, status.st_ctim.tv_sec);
  }
  state.mark += mark;
}

struct logmsg_folder_closer {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};

static logmsg_catalog_state state_of(const char* path) {
  logmsg_catalog_state state;
  add_file(state, AT_FDCWD, path);
  add_file(state, AT_FDCWD, (std::string(path) + ".dat").c_str());
  const std::unique_ptr<DIR, logmsg_folder_closer> folder(opendir(path));
  if (folder == nullptr) return state;
  while (const dirent* file = readdir(folder.get())) {
    if (file->d_name[0] != '.') add_file(state, dirfd(folder.get()), file->d_name);
  }
  return state;
}

// --- How it is spelled ---

// The spelling of number `version`: in front of the last name stand that many bits, each as two
// characters that lead nowhere. Spellings of all paths differ, because their versions do.
static std::string spelled(std::string_view path, unsigned version) {
  static constexpr unsigned bits = 24;
  const size_t folder_end = path.rfind('/') + 1;
  std::string text(path.substr(0, folder_end));
  for (unsigned bit = bits; bit-- > 0;) text += (version >> bit & 1) != 0 ? "./" : "//";
  text += path.substr(folder_end);
  return text.size() < PATH_MAX ? text : std::string(path);
}

// What was told to ICU last, by path.
class logmsg_catalog_spellings {
 public:
  std::string of(const char* path) {
    const logmsg_catalog_state state = state_of(path);
    const std::lock_guard<std::mutex> hold(lock_);
    spelling& last = last_[path];
    if (last.version == 0 || !last.settled || !(last.state == state)) last.version = ++versions_;
    last.state = state;
    last.settled = state.last_change + 2 < time(nullptr);
    return spelled(path, last.version);
  }

 private:
  struct spelling {
    logmsg_catalog_state state;
    unsigned version = 0;  // 0: none yet
    bool settled = false;  // a later change would show in the state
  };

  std::mutex lock_;  // a leaf
  std::map<std::string, spelling, std::less<>> last_;
  unsigned versions_ = 0;  // given so far
};

static bool is_folder(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Behind the working directory, when there is one. No step of the path is left out: a ".." that
// follows a link leads where the system takes it.
static std::string absolute(const char* path) {
  char directory[PATH_MAX];
  if (path[0] == '/' || getcwd(directory, sizeof directory) == nullptr) return path;
  return std::string(directory) + '/' + path;
}

std::string logmsg_catalog_path_for_icu(const char* path) {
  return kp_log_no_bad_alloc([=] {
    const bool has_folder = std::string_view(path).find('/') != std::string_view::npos;
    if (!has_folder && !is_folder(path)) return std::string(path);
    static auto* const spellings = new logmsg_catalog_spellings;  // never destroyed
    return spellings->of(absolute(path).c_str());
  });
}
