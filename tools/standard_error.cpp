#include "tools/standard_error.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <system_error>

#include "tools/command_options.h"
#include "tools/diagnostics.h"

static constexpr size_t kept_limit = size_t{64} << 10;
static constexpr int last_patience = 1000;  // milliseconds

int standard_error_buffer::overflow(int character) {
  if (character != traits_type::eof()) text_ += static_cast<char>(character);
  return traits_type::not_eof(character);
}

std::streamsize standard_error_buffer::xsputn(const char* text, std::streamsize size) {
  text_.append(text, static_cast<size_t>(size));
  return size;
}

// False, with errno, when something is left.
bool standard_error_buffer::is_written() {
  while (!text_.empty()) {
    const ssize_t written = write(descriptor_, text_.data(), text_.size());
    if (written >= 0)
      text_.erase(0, static_cast<size_t>(written));
    else if (errno != EINTR)
      return false;
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
  std::string text = "cannot write to standard error: " + std::generic_category().message(error_) +
                     ": what stands above this line came late";
  if (lost_lines_ != 0) text += ", and " + counted(lost_lines_, "line") + " did not come";
  const source_text nowhere = source_text::unopened("kplog");
  diagnostic_list found;
  found.add(diagnostic_rule::unwritable, {&nowhere, 0, 0}, text);
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
  sync();
  for (size_t left = 0; !text_.empty() && text_.size() != left;) {
    left = text_.size();
    pollfd room{descriptor_, POLLOUT, 0};
    poll(&room, 1, last_patience);
    sync();
  }
}
