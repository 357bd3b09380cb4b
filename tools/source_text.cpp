#include "tools/source_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "tools/utf8_text.h"

source_text::source_text(std::string name, std::string bytes)
    : name_(std::move(name)), bytes_(std::move(bytes)) {
  if (bytes_.starts_with("\xEF\xBB\xBF")) bytes_.erase(0, 3);
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

size_t source_place::offset() const {
  return std::min(source->line_start(line) + byte, source->bytes().size());
}

size_t source_place::column() const {
  const std::string_view text = source->line(line);
  size_t column = 1;
  for (size_t i = 0; i < std::min(byte, text.size()); ++column) i += utf8_at(text, i).size;
  return column + (byte > text.size() ? byte - text.size() : 0);
}

// How a piece of a scalar's notation and the value that it stands for differ in size.
struct scalar_step {
  size_t notation = 1;  // bytes in the source
  size_t value = 1;     // bytes in the value
};

static scalar_step escape_step(std::string_view notation) {
  if (notation.size() < 2) return {};
  const char kind = notation[1];
  const size_t digits = kind == 'x' ? 2 : kind == 'u' ? 4 : kind == 'U' ? 8 : 0;
  if (digits != 0) {
    const std::string hex(notation.substr(2, digits));
    return {2 + digits, utf8_size(static_cast<uint32_t>(std::strtoul(hex.c_str(), nullptr, 16)))};
  }
  if (kind == 'N' || kind == '_') return {2, 2};  // U+0085, U+00A0
  if (kind == 'L' || kind == 'P') return {2, 3};  // U+2028, U+2029
  return {2, 1};
}

static scalar_step next_step(std::string_view notation, char quote) {
  if (quote == '"' && notation.front() == '\\') return escape_step(notation);
  if (quote == '\'' && notation.starts_with("''")) return {2, 1};
  return {};
}

static source_place place_in_line(const source_place& scalar, size_t offset) {
  const std::string_view line = scalar.source->line(scalar.line);
  const char first = scalar.byte < line.size() ? line[scalar.byte] : '\0';
  const char quote = first == '"' || first == '\'' ? first : '\0';
  size_t at = scalar.byte + (quote != '\0' ? 1 : 0);
  for (size_t value = 0; value < offset;) {
    if (at >= line.size()) return scalar;
    const scalar_step step = next_step(line.substr(at), quote);
    at += step.notation;
    value += step.value;
  }
  return {scalar.source, scalar.line, at};
}

static source_place place_in_block(const source_place& scalar, std::string_view value,
                                   size_t offset) {
  const std::string_view before = value.substr(0, offset);
  const size_t lines = static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
  const size_t line_begin = before.rfind('\n') + 1;  // npos + 1 is 0
  const size_t line = scalar.line + 1 + lines;
  const std::string_view content =
      value.substr(line_begin, value.find('\n', line_begin) - line_begin);
  const size_t indent = scalar.source->line(line).size() - content.size();
  if (!scalar.source->line(line).ends_with(content)) return scalar;
  return {scalar.source, line, indent + offset - line_begin};
}

source_place place_in_scalar(const source_place& scalar, std::string_view value, size_t offset) {
  const std::string_view rest = scalar.source->bytes().substr(scalar.offset());
  if (rest.starts_with('|')) return place_in_block(scalar, value, offset);
  if (rest.starts_with('>')) return scalar;
  return place_in_line(scalar, offset);
}

static bool read_descriptor(int descriptor, std::string& bytes, size_limit_function limit) {
  std::array<char, 65536> buffer{};
  while (bytes.size() <= limit(bytes)) {
    const ssize_t got = read(descriptor, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    bytes.append(buffer.data(), static_cast<size_t>(got));
  }
  bytes.resize(limit(bytes) + 1);
  return true;
}

bool read_source_bytes(const std::string& path, std::string& bytes, size_limit_function limit) {
  if (path == "-") return read_descriptor(STDIN_FILENO, bytes, limit);
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool good = read_descriptor(descriptor, bytes, limit);
  const int error = errno;
  close(descriptor);
  errno = error;
  return good;
}
