#include "recording/files/folder.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"

struct directory_closer {
  void operator()(DIR* directory) const { closedir(directory); }
};

void for_each_name(int folder, const std::string& path,
                   const std::function<void(const char* name)>& visit) {
  static constexpr const char* action = "read the folder";
  open_descriptor opened(KP_openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened.is_open()) raise_write_error(action, path);
  const std::unique_ptr<DIR, directory_closer> directory(KP_fdopendir(opened.get()));
  if (directory == nullptr) raise_write_error(action, path);
  opened.release();
  errno = 0;
  while (const dirent* const file = KP_readdir(directory.get())) {
    visit(file->d_name);
    errno = 0;
  }
  if (errno != 0) raise_write_error(action, path);
}
