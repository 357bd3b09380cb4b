// The folder that a run writes its logs and counts to.
#ifndef PACKAGE_HISTORY_FOLDER_H
#define PACKAGE_HISTORY_FOLDER_H

#include <string>

// Text logs, the counter file and the lock all begin with it.
constexpr char history_file_prefix[] = "package_history";

// A folder for one run alone: while it lives, a second one of the same path is refused.
class history_folder {
 public:
  // Makes the folder where it does not exist. Null stands for a fresh folder among the system's
  // temporary ones, removed with the object. Raises std::runtime_error when it cannot be written
  // to or another run uses it.
  explicit history_folder(const char* path);
  ~history_folder();
  history_folder(const history_folder&) = delete;
  history_folder& operator=(const history_folder&) = delete;

  const std::string& path() const { return path_; }
  bool is_temporary() const { return is_temporary_; }

 private:
  std::string path_;
  bool is_temporary_;
  int lock_ = -1;  // descriptor of the lock file; -1: a temporary folder needs none
};

#endif
