#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/kp_clib.h"
#include "kp_LOG_filenames.h"
#include "logging/raise.h"

// Assertions are reported under fixed lines, by which support tells them apart in every version.
static constexpr const char* assertion_source = "logging/log_util";
static constexpr int line_of_recognising = 47;
static constexpr int line_of_naming = 102;
static constexpr int line_of_cleaning = 125;

// --- Names of text logs ---

static constexpr size_t suffix_length = 14;  // ".YYYYMMDD.NNNN"

char* make_text_log_filename(const char* log_prefix, int year, int month, unsigned int day,
                             unsigned int serial, const char* directory) {
  if (log_prefix == nullptr) {
    KP_assertion_violation("log_prefix", assertion_source, line_of_naming);
    log_prefix = "";
  }
  char suffix[32];  // numbers of five digits make it longer than suffix_length
  static_cast<void>(snprintf(suffix, sizeof suffix, ".%04u%02u%02u.%04u",
                             static_cast<uint16_t>(year), static_cast<uint16_t>(month),
                             static_cast<uint16_t>(day), static_cast<uint16_t>(serial)));
  const char* const separator = directory != nullptr ? "/" : "";
  if (directory == nullptr) directory = "";

  const char* const pieces[] = {directory, separator, log_prefix, suffix};
  size_t size = 1;
  for (const char* piece : pieces) size += strlen(piece);
  char* const name = new (std::nothrow) char[size];
  if (name == nullptr) kp_log_raise_alloc();
  char* end = name;
  for (const char* piece : pieces) {
    const size_t length = strlen(piece);
    memcpy(end, piece, length);
    end += length;
  }
  *end = '\0';
  return name;
}

// Reads `count` decimal digits into `number`; false when there is anything else among them.
static bool read_digits(const char* text, size_t count, unsigned short& number) {
  unsigned value = 0;
  for (size_t i = 0; i < count; ++i) {
    const unsigned digit = static_cast<unsigned char>(text[i]) - unsigned{'0'};
    if (digit > 9) return false;
    value = value * 10 + digit;
  }
  number = static_cast<unsigned short>(value);
  return true;
}

static void store_number(unsigned short* target, unsigned short number) {
  if (target != nullptr) *target = number;
}

int is_a_valid_text_log(const char* filename, const char* log_prefix, unsigned short* year,
                        unsigned short* month, unsigned short* day, unsigned short* serial) {
  if (filename == nullptr || log_prefix == nullptr) {
    KP_assertion_violation("filename && log_prefix", assertion_source, line_of_recognising);
    return 0;
  }
  const size_t prefix_length = strlen(log_prefix);
  if (strncmp(filename, log_prefix, prefix_length) != 0) return 0;
  const char* const suffix = filename + prefix_length;
  if (strlen(suffix) != suffix_length || suffix[0] != '.' || suffix[9] != '.') return 0;

  unsigned short numbers[4] = {};
  if (!read_digits(suffix + 1, 4, numbers[0]) || !read_digits(suffix + 5, 2, numbers[1]) ||
      !read_digits(suffix + 7, 2, numbers[2]) || !read_digits(suffix + 10, 4, numbers[3]))
    return 0;
  store_number(year, numbers[0]);
  store_number(month, numbers[1]);
  store_number(day, numbers[2]);
  store_number(serial, numbers[3]);
  return 1;
}

static bool is_allowed_in_component(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

void remove_pathname_dir_separators(char* pathname) {
  if (pathname == nullptr) {
    KP_assertion_violation("pathname", assertion_source, line_of_cleaning);
    return;
  }
  for (char* c = pathname; *c != '\0'; ++c)
    if (!is_allowed_in_component(*c)) *c = '_';
}

// --- Paths ---

static constexpr size_t longest_path = 4096;

// A path on its way to its absolute form; each step shortens it in place.
struct _kp_LOG_working_path {
  char text[2 * longest_path + 2];  // working directory, "/", path, NUL
  size_t length = 0;

  bool begin(const char* path);
  void drop_dot_steps();
  void collapse_separators();
  void resolve_parent_steps();
  void cut_last_parent_step();

 private:
  // Whether the text goes on with `step` at position i.
  bool goes_on_with(size_t i, const char* step) const {
    return strncmp(text + i, step, strlen(step)) == 0;
  }
  // The end of the text without its last step: the position of the last "/" before `end`, or 0.
  size_t last_slash_before(size_t end) const {
    while (end > 0 && text[--end] != '/') {
    }
    return end;
  }
  void end_at(size_t new_length) {
    length = new_length;
    text[length] = '\0';
  }
};

bool _kp_LOG_working_path::begin(const char* path) {
  end_at(0);
  if (path == nullptr) return true;
  const size_t path_length = strnlen(path, longest_path + 1);
  if (path_length > longest_path) return false;
  if (path[0] != '/') {
    if (KP_getcwd(text, longest_path + 1) == nullptr) return false;
    length = strlen(text);
    text[length++] = '/';
  }
  memcpy(text + length, path, path_length);
  end_at(length + path_length);
  return true;
}

void _kp_LOG_working_path::drop_dot_steps() {
  size_t out = 0;
  for (size_t in = 0; in < length; ++in) {
    const bool dot_step = out > 0 && text[out - 1] == '/' && goes_on_with(in, "./");
    if (dot_step)
      ++in;
    else
      text[out++] = text[in];
  }
  if (out >= 2 && text[out - 2] == '/' && text[out - 1] == '.') --out;
  end_at(out);
}

void _kp_LOG_working_path::collapse_separators() {
  size_t out = 0;
  for (size_t in = 0; in < length; ++in)
    if (!goes_on_with(in, "//")) text[out++] = text[in];
  end_at(out);
}

void _kp_LOG_working_path::resolve_parent_steps() {
  size_t out = 0;
  for (size_t in = 0; in < length; ++in) {
    if (goes_on_with(in, "/../")) {
      out = last_slash_before(out);
      in += 2;  // the second "/" begins the next step
    } else {
      text[out++] = text[in];
    }
  }
  end_at(out);
}

void _kp_LOG_working_path::cut_last_parent_step() {
  if (length < 3 || !goes_on_with(length - 3, "/..")) return;
  end_at(last_slash_before(length - 3) + 1);
}

int _get_fullpath(char* result, const char* path) {
  _kp_LOG_working_path working;
  if (result == nullptr || !working.begin(path)) return -1;
  working.drop_dot_steps();
  working.collapse_separators();
  working.resolve_parent_steps();
  working.cut_last_parent_step();
  if (working.length > longest_path) return -1;
  memcpy(result, working.text, working.length + 1);
  return 1;
}

int get_fullpath(const char* path, char* result) {
  if (result == nullptr) return 1;
  char full[longest_path + 1];
  if (_get_fullpath(full, path) != 1) {
    const size_t kept = strnlen(path, longest_path);
    memcpy(full, path, kept);
    full[kept] = '\0';
  }
  size_t length = strlen(full);
  while (length > 0 && full[length - 1] == '/') --length;
  memcpy(result, full, length);
  result[length] = '\0';
  return 1;
}

// --- Locks ---

int get_plockname(char* first, char* second, char* result) {
  if (result == nullptr) return 1;
  constexpr size_t name_size = 256;
  char name[name_size] = {};
  static_cast<void>(snprintf(name, name_size, "%s_%s", first != nullptr ? first : "",
                             second != nullptr ? second : ""));
  memcpy(result, name, name_size);
  return 1;
}
