// What happens to a file, or to the files of a folder: told by the system, or asked for again and
// again where it does not tell.
#ifndef RECORDING_FILES_PATH_WATCH_H
#define RECORDING_FILES_PATH_WATCH_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/descriptor.h"

struct inotify_event;

// What happened to a name in the watched folder, or to the watched file; anything may have, and the
// name is empty, where that is not told.
enum class path_change { written, came, gone, anything };
using path_change_taker = std::function<void(std::string_view name, path_change change)>;

// Used by one thread at a time.
class path_watch {
 public:
  // How often is asked where the system does not tell: on file systems of other machines, behind
  // symbolic links, of which folders above may be some, and where it has no more watches to give.
  static constexpr std::chrono::milliseconds asking_interval = std::chrono::milliseconds(250);

  // From now on tells of the names that come into the folder and leave it, and of what is written
  // to its files; where there is no such folder, when it may have come. To be called again when
  // anything may have happened: what is looked at behind this call is not missed.
  void watch_folder(const std::string& folder);
  // The same of one file: whether its name comes or leaves, and what is written to it.
  void watch_file(const std::string& path);

  // Can be read when something happened; -1: the system does not tell.
  int descriptor() const { return inotify_.get(); }
  // How long to wait for that at most; negative: for ever.
  std::chrono::milliseconds patience() const {
    return is_asking_ ? asking_interval : std::chrono::milliseconds(-1);
  }
  // Hands over what happened, as far as it is told; does not wait.
  void take(const path_change_taker& tell);

 private:
  // A watch of the system: what it is of, and its number there.
  struct watch {
    std::string path;
    int number = -1;
  };

  bool is_telling();
  void set(watch& one, const std::string& path, uint32_t events);
  void watch_folder(const std::string& folder, uint32_t events);
  void watch_above();
  bool is_of(int number) const;
  void hand_over(const inotify_event& event, const char* name, const path_change_taker& tell) const;

  open_descriptor inotify_;
  watch folder_;               // or the nearest above it that is there
  bool is_of_folder_ = false;  // itself
  std::vector<int> above_;     // the watches of the folders above that
  watch file_;
  bool is_asking_ = false;
};

#endif
