#include "recording/files/path_watch.h"

#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/kp_clib.h"
#include "recording/files/path.h"

static constexpr uint32_t names_of_folder = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM |
                                            IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
static constexpr uint32_t bytes_of_file = IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

// What other machines do there is not told.
static bool is_shared_by_machines(const std::string& path) {
  static constexpr auto kinds =
      std::to_array<uint32_t>({NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, SMB2_SUPER_MAGIC, CIFS_SUPER_MAGIC,
                               CEPH_SUPER_MAGIC, AFS_SUPER_MAGIC, AFS_FS_MAGIC, CODA_SUPER_MAGIC,
                               V9FS_MAGIC, FUSE_SUPER_MAGIC, OCFS2_SUPER_MAGIC});
  struct statfs system {};
  return statfs(path.c_str(), &system) == 0 &&
         std::ranges::find(kinds, static_cast<uint32_t>(system.f_type)) != kinds.end();
}

static bool is_folder(const std::string& folder) {
  struct stat status {};
  return KP_stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The folder, or the nearest above it that is there.
static std::string nearest_folder(std::string folder) {
  while (!is_folder(folder) && folder != "/" && folder != ".") {
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    folder = place_of(folder).folder;
    if (folder.empty()) folder = "/";
  }
  return folder;
}

static bool is_link(const std::string& path) {
  struct stat status {};
  return KP_lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool path_watch::is_telling() {
  if (!inotify_.is_open() && !is_asking_)
    inotify_ = open_descriptor(KP_inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!inotify_.is_open()) is_asking_ = true;
  return inotify_.is_open();
}

// What is there no more has no watch. The new one comes before the old one goes.
void path_watch::set(watch& one, const std::string& path, uint32_t events) {
  const int number = inotify_add_watch(inotify_.get(), path.c_str(), events);
  if (number < 0 && errno != ENOENT && errno != ENOTDIR) is_asking_ = true;
  if (one.number >= 0 && one.number != number)
    static_cast<void>(inotify_rm_watch(inotify_.get(), one.number));
  one = {path, number};
}

// A folder that comes while the one above it begins to be watched is not told.
void path_watch::watch_folder(const std::string& folder, uint32_t events) {
  is_asking_ = false;
  if (!is_telling()) return;
  for (std::string nearest = nearest_folder(folder), before; nearest != before;
       nearest = nearest_folder(folder)) {
    before = nearest;
    is_of_folder_ = nearest == folder;
    set(folder_, nearest, is_of_folder_ ? events : names_of_folder);
  }
  if (folder_.number < 0 || is_shared_by_machines(folder_.path)) is_asking_ = true;
  watch_above();
}

// A path leads elsewhere when one of the folders in it is renamed.
void path_watch::watch_above() {
  static constexpr uint32_t events = IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR | IN_MASK_ADD;
  std::vector<int> before;
  before.swap(above_);
  for (std::string above = folder_.path; above != "/" && above != ".";) {
    if (is_link(above)) is_asking_ = true;
    above = place_of(above).folder;
    const int number = inotify_add_watch(inotify_.get(), above.c_str(), events);
    if (number >= 0) above_.push_back(number);
  }
  for (const int number : before)
    if (!is_of(number)) static_cast<void>(inotify_rm_watch(inotify_.get(), number));
}

bool path_watch::is_of(int number) const {
  return number == folder_.number || number == file_.number ||
         std::ranges::find(above_, number) != above_.end();
}

void path_watch::watch_folder(const std::string& folder) {
  watch_folder(folder, names_of_folder | IN_MODIFY);
}

// The file's own watch is told what is written through other names, too.
void path_watch::watch_file(const std::string& path) {
  watch_folder(place_of(path).folder, names_of_folder);
  if (!inotify_.is_open()) return;
  set(file_, path, bytes_of_file);
  if (is_link(path)) is_asking_ = true;
}

static path_change change_of(uint32_t event) {
  if ((event & (IN_DELETE | IN_MOVED_FROM)) != 0) return path_change::gone;
  return (event & IN_MODIFY) != 0 ? path_change::written : path_change::came;
}

void path_watch::hand_over(const inotify_event& event, const char* name,
                           const path_change_taker& tell) const {
  const bool is_lost = (event.mask & IN_Q_OVERFLOW) != 0;
  if (event.wd == folder_.number && is_of_folder_ && event.len != 0)
    tell(name, change_of(event.mask));
  else if (event.wd == file_.number && event.mask == IN_MODIFY)
    tell(place_of(file_.path).name, path_change::written);
  else if (is_lost || is_of(event.wd))
    tell("", path_change::anything);
}

void path_watch::take(const path_change_taker& tell) {
  if (is_asking_) tell("", path_change::anything);
  if (!inotify_.is_open()) return;
  std::array<char, 16384> events;
  ssize_t size = 0;
  while ((size = KP_read(inotify_.get(), events.data(), events.size())) > 0) {
    inotify_event event{};
    for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(sizeof event + event.len)) {
      std::memcpy(&event, events.data() + at, sizeof event);
      hand_over(event, events.data() + at + sizeof event, tell);
    }
  }
}
