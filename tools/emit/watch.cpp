#include "tools/emit/watch.h"

#include <algorithm>
#include <utility>

#include "recording/files/file_error.h"
#include "recording/files/whole_file.h"

metrics_file::metrics_file(std::string path, std::function<std::string()> text, emit_report& report)
    : path_(std::move(path)), text_(std::move(text)), report_(report) {
  if (path_.empty()) return;
  check_written_path("write", path_);
  written_ = text_();
  write_whole_file(path_, written_, false);
  next_ = clock::now() + interval;
}

void metrics_file::look(clock::time_point now) {
  if (path_.empty()) return;
  is_due_ = now < next_;
  if (!is_due_) write(now);
}

std::chrono::milliseconds metrics_file::patience(clock::time_point now) const {
  if (!is_due_) return std::chrono::milliseconds(-1);
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(next_ - now),
                  std::chrono::milliseconds(0));
}

void metrics_file::end() {
  if (!path_.empty()) write(clock::now());
}

void metrics_file::write(clock::time_point now) {
  next_ = now + interval;
  std::string text = text_();
  if (text == written_ && trouble_.empty()) return;
  try {
    write_whole_file(path_, text, false);
    written_ = std::move(text);
    trouble_.clear();
  } catch (const file_error& error) {
    is_due_ = true;
    const bool is_told = trouble_ == error.what();
    trouble_ = error.what();
    if (!is_told) report_.problem("unwritable"_rule, trouble_);
  }
}
