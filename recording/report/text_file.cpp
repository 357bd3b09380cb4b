#include "recording/report/text_file.h"

#include <algorithm>

#include "recording/text/utf8.h"

source_text::source_text(std::string name, std::string bytes)
    : name_(std::move(name)), bytes_(std::move(bytes)) {
  had_byte_order_mark_ = bytes_.starts_with("\xEF\xBB\xBF");
  if (had_byte_order_mark_) bytes_.erase(0, 3);
  for (size_t i = 0; i < bytes_.size(); ++i)
    if (bytes_[i] == '\n') line_starts_.push_back(i + 1);
}

source_text::source_text(kinds kind, std::string name, std::string bytes)
    : name_(std::move(name)), bytes_(std::move(bytes)), kind_(kind) {}

source_text source_text::binary(std::string name, std::string bytes) {
  return {kinds::binary, std::move(name), std::move(bytes)};
}

source_text source_text::one_line(std::string name, std::string bytes, size_t number) {
  source_text source(kinds::text, std::move(name), std::move(bytes));
  source.first_line_ = number;
  return source;
}

source_text source_text::unopened(std::string name) {
  return {kinds::unopened, std::move(name), ""};
}

size_t source_text::line_start(size_t number) const {
  if (number < first_line_) return 0;
  const size_t index = number - first_line_;
  return index < line_starts_.size() ? line_starts_[index] : bytes_.size();
}

std::string_view source_text::line(size_t number) const {
  const size_t start = line_start(number);
  std::string_view rest = bytes().substr(start, line_start(number + 1) - start);
  while (rest.ends_with('\n') || rest.ends_with('\r')) rest.remove_suffix(1);
  return rest;
}

size_t source_text::line_at(size_t offset) const {
  const auto behind = std::upper_bound(line_starts_.begin(), line_starts_.end(), offset);
  return first_line_ + static_cast<size_t>(behind - line_starts_.begin()) - 1;
}

size_t source_place::offset() const {
  return std::min(at, source->bytes().size());
}

size_t source_place::line() const {
  return source->line_at(at);
}

size_t source_place::byte() const {
  return at - source->line_start(line());
}

size_t source_place::column() const {
  const std::string_view text = source->line(line());
  const size_t before = byte();
  return utf8_column(text, before) + (before > text.size() ? before - text.size() : 0);
}
