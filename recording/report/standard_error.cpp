#include "recording/report/standard_error.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sstream>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/report/diagnostics.h"
#include "recording/text/words.h"

static constexpr size_t kept_limit = size_t{64} << 10;
static constexpr std::chrono::milliseconds longest_wait(1000);
static constexpr int patience_with_a_reader = 1000;  // milliseconds
static constexpr int signal_interval = 50;  // milliseconds until somebody looks for signals again

// Others have the descriptor, too, and expect it to wait or not as it does: it stays so. Pipes and
// terminals can be opened once more, where the user may do that.
standard_error_buffer::standard_error_buffer(int descriptor, std::function<bool()> is_to_end)
    : descriptor_(descriptor), is_to_end_(std::move(is_to_end)) {
  struct stat status {};
  if (!is_to_end_ || KP_fstat(descriptor, &status) != 0) return;
  kind_ = status.st_mode & S_IFMT;
  if (kind_ != S_IFIFO && kind_ != S_IFCHR) return;
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  unwaiting_ = open_descriptor(KP_open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
}

int standard_error_buffer::overflow(int character) {
  if (character != traits_type::eof()) text_ += static_cast<char>(character);
  return traits_type::not_eof(character);
}

std::streamsize standard_error_buffer::xsputn(const char* text, std::streamsize size) {
  text_.append(text, static_cast<size_t>(size));
  return size;
}

// One write, as write(2).
ssize_t standard_error_buffer::write_some() {
  if (kind_ == S_IFSOCK) return send(descriptor_, text_.data(), text_.size(), MSG_DONTWAIT);
  if (unwaiting_.is_open()) return KP_write(unwaiting_.get(), text_.data(), text_.size());
  if (kind_ != S_IFIFO && kind_ != S_IFCHR)
    return KP_write(descriptor_, text_.data(), text_.size());
  // A pipe that has room has it for that much.
  pollfd room{descriptor_, POLLOUT, 0};
  if (poll(&room, 1, 0) == 1)
    return KP_write(descriptor_, text_.data(), std::min<size_t>(text_.size(), PIPE_BUF));
  errno = EAGAIN;
  return -1;
}

// False when it is not, or no longer, to be waited for.
bool standard_error_buffer::waits_for_room(clock::time_point began) const {
  if (!is_to_end_ || is_to_end_()) return false;
  if (!is_finishing_ && (error_ != 0 || clock::now() - began >= longest_wait)) return false;
  pollfd room{descriptor_, POLLOUT, 0};
  poll(&room, 1, signal_interval);
  return true;
}

// False, with errno, when something is left.
bool standard_error_buffer::is_written() {
  const clock::time_point began = clock::now();
  while (!text_.empty()) {
    const ssize_t written = write_some();
    const int error = errno;
    if (written >= 0) {
      text_.erase(0, static_cast<size_t>(written));
    } else if (error != EINTR && (error != EAGAIN || !waits_for_room(began))) {
      errno = error;
      return false;
    }
  }
  return true;
}

// What came first says most.
void standard_error_buffer::keep_what_fits() {
  if (text_.size() <= kept_limit) return;
  const size_t end = text_.rfind('\n', kept_limit - 1);
  const size_t kept = end == std::string::npos ? 0 : end + 1;
  lost_lines_ += static_cast<size_t>(
      std::count(text_.begin() + static_cast<ptrdiff_t>(kept), text_.end(), '\n'));
  text_.resize(kept);
}

std::string standard_error_buffer::lack() const {
  std::string text = file_error(file_use::writing, "write to", "standard error", error_).what() +
                     std::string(": what stands above this line came late");
  if (lost_lines_ != 0) text += ", and " + counted(lost_lines_, "line") + " did not come";
  const text_file nowhere = text_file::unopened("kplog");
  diagnostic_list found;
  found.add("unwritable"_rule, {&nowhere, 0}, text);
  std::ostringstream shown;
  found.write(shown, {&nowhere}, is_json_ ? diagnostic_format::json : diagnostic_format::text,
              false);
  return shown.str();
}

// The stream stays good: the next flush tries again.
int standard_error_buffer::sync() {
  if (error_ == 0 && !text_.empty()) is_json_ = text_.starts_with("{\"");
  if (!is_written()) {
    if (error_ == 0) error_ = errno;
    keep_what_fits();
  } else if (error_ != 0) {
    text_ = lack();
    error_ = 0;
    lost_lines_ = 0;
    static_cast<void>(is_written());
  }
  return 0;
}

void standard_error_buffer::finish() {
  is_finishing_ = true;
  sync();
  for (size_t left = 0; !text_.empty() && text_.size() != left;) {
    left = text_.size();
    pollfd room{descriptor_, POLLOUT, 0};
    poll(&room, 1, patience_with_a_reader);
    sync();
  }
}
