#include "recording/report/text_file.h"

#include <algorithm>

#include "recording/text/utf8.h"

text_file::text_file(std::string name, std::string bytes)
    : name_(std::move(name)), bytes_(std::move(bytes)) {
  had_byte_order_mark_ = bytes_.starts_with("\xEF\xBB\xBF");
  if (had_byte_order_mark_) bytes_.erase(0, 3);
  for (size_t i = 0; i < bytes_.size(); ++i)
    if (bytes_[i] == '\n') line_starts_.push_back(i + 1);
}

text_file::text_file(kinds kind, std::string name, std::string bytes)
    : name_(std::move(name)), bytes_(std::move(bytes)), kind_(kind) {}

text_file text_file::binary(std::string name, std::string bytes) {
  return {kinds::binary, std::move(name), std::move(bytes)};
}

text_file text_file::one_line(std::string name, std::string bytes, size_t number) {
  text_file source(kinds::text, std::move(name), std::move(bytes));
  source.first_line_ = number;
  return source;
}

text_file text_file::unopened(std::string name) {
  return {kinds::unopened, std::move(name), ""};
}

size_t text_file::line_start(size_t number) const {
  if (number < first_line_) return 0;
  const size_t index = number - first_line_;
  return index < line_starts_.size() ? line_starts_[index] : bytes_.size();
}

std::string_view text_file::line(size_t number) const {
  const size_t start = line_start(number);
  std::string_view rest = bytes().substr(start, line_start(number + 1) - start);
  while (rest.ends_with('\n') || rest.ends_with('\r')) rest.remove_suffix(1);
  return rest;
}

size_t text_file::line_at(size_t offset) const {
  const auto behind = std::upper_bound(line_starts_.begin(), line_starts_.end(), offset);
  return first_line_ + static_cast<size_t>(behind - line_starts_.begin()) - 1;
}

size_t text_place::offset() const {
  return std::min(at, source->bytes().size());
}

size_t text_place::line() const {
  return source->line_at(at);
}

size_t text_place::byte() const {
  return at - source->line_start(line());
}

size_t text_place::column() const {
  const std::string_view text = source->line(line());
  const size_t before = byte();
  return utf8_column(text, before) + (before > text.size() ? before - text.size() : 0);
}
