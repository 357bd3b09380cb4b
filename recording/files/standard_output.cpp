#include "recording/files/standard_output.h"

#include <unistd.h>

#include <cerrno>

#include "base/kp_clib.h"
#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"

void write_standard_output(std::string& text, bool synced) {
  std::string_view left = text;
  const bool is_whole = write_all(STDOUT_FILENO, left);
  text.erase(0, text.size() - left.size());
  if (!is_whole) raise_write_error("write to", "standard output");
  // Pipes and terminals have no disk.
  const bool is_lost = synced && KP_fsync(STDOUT_FILENO) != 0 && errno != EINVAL &&
                       errno != EROFS && errno != ENOTSUP;
  if (is_lost) raise_write_error("write to", "standard output");
}
