#include "logging/logcfg_file.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>

#include "base/kp_clib.h"
#include "logging/raise.h"

// ---- settings table ----

// The composite key of a section and a key, hashed once. Keys of up to 255 bytes need no heap.
class logcfg_composite_key {
 public:
  logcfg_composite_key(const char* section, const char* key);
  logcfg_composite_key(const logcfg_composite_key&) = delete;
  logcfg_composite_key& operator=(const logcfg_composite_key&) = delete;

  uint32_t hash() const { return KP_text_hash(bytes_, length_); }
  kp_String text() const { return {bytes_, length_}; }
  bool operator()(const kp_String& held) const {
    return held.length() == length_ && std::memcmp(held.c_str(), bytes_, length_) == 0;
  }

 private:
  const char* bytes_ = room_;
  unsigned length_ = 0;
  char room_[256];
  kp_String long_;
};

logcfg_composite_key::logcfg_composite_key(const char* section, const char* key) {
  const size_t section_length = section != nullptr ? KP_strlen(section) : 0;
  const size_t key_length = key != nullptr ? KP_strlen(key) : 0;
  if (section_length + key_length < sizeof room_) {
    if (section_length != 0) std::memcpy(room_, section, section_length);
    if (key_length != 0) std::memcpy(room_ + section_length, key, key_length);
    length_ = static_cast<unsigned>(section_length + key_length);
    return;
  }
  _kp_LOG_log_setting_tbl::_construct_hash_key_string(section, key, long_);
  bytes_ = long_.c_str();
  length_ = long_.length();
}

void _kp_LOG_log_setting_tbl::create_entry(const char* section, const char* key, unsigned value) {
  const logcfg_composite_key composite(section, key);
  const uint32_t hash = composite.hash();
  if (auto* held = table_.find_hashed(hash, composite))
    held->value = value;
  else
    table_.insert_hashed(hash, value, composite.text());
}

void _kp_LOG_log_setting_tbl::add_all(const _kp_LOG_log_setting_tbl& other) {
  other.table_.for_each(
      [this](const auto& held) { create_entry("", held.key.c_str(), held.value); });
}

// A handful of keys is looked through faster than one key is hashed.
static constexpr unsigned handful_of_keys = 16;

static const unsigned* look_through(const kp_MISC_hash_tbl<kp_String, unsigned>& table,
                                    const char* section, const char* key) {
  const size_t section_length = KP_strlen(section);
  const size_t key_length = KP_strlen(key);
  const auto* held = table.find_if([=](const kp_String& composite) {
    const char* const text = composite.c_str();
    return composite.length() == section_length + key_length &&
           std::memcmp(text + section_length, key, key_length) == 0 &&
           std::memcmp(text, section, section_length) == 0;
  });
  return held != nullptr ? &held->value : nullptr;
}

const unsigned* _kp_LOG_log_setting_tbl::find_entry(const char* section, const char* key) const {
  if (table_.size() <= handful_of_keys)
    return look_through(table_, section != nullptr ? section : "", key != nullptr ? key : "");
  const logcfg_composite_key composite(section, key);
  const auto* held = table_.find_hashed(composite.hash(), composite);
  return held != nullptr ? &held->value : nullptr;
}

void _kp_LOG_log_setting_tbl::_construct_hash_key_string(const char* section, const char* key,
                                                         kp_String& out) {
  out.assign("", 0);
  out.append(section);
  out.append(key);
}

// ---- lines ----

static bool is_line_end(int c) {
  return c == '\n' || c == '\r';
}

int read_file::readLine(FILE* stream, char* buffer, int max) {
  if (stream == nullptr || KP_fseek(stream, position_, SEEK_SET) != 0) return -1;
  int c = KP_getc(stream);
  if (max < 0) return -1;
  int stored = 0;
  for (; c != EOF && !is_line_end(c); c = KP_getc(stream)) {
    if (stored == max) return -1;
    buffer[stored++] = static_cast<char>(c);
  }
  const int behind = c != EOF ? KP_getc(stream) : EOF;
  if (behind == EOF && KP_ferror(stream) != 0) return -1;
  buffer[stored] = '\0';
  if (behind == EOF) return advance(stored, -2);
  return advance(int64_t{stored} + (is_line_end(behind) ? 2 : 1), 0);
}

// Moves the position and gives `result`; -1, not moving it, when it would not fit.
int read_file::advance(int64_t bytes, int result) {
  const int64_t position = position_ + bytes;
  if (position > INT32_MAX) return -1;
  position_ = static_cast<int>(position);
  return result;
}

// ---- syntax ----

static constexpr int longest_line = 128;
// What lies beyond is not read, so that no file keeps the program busy.
static constexpr int settings_file_limit = 64 << 20;

// Cuts the first token off `rest`, which is left behind it; null when there is none.
static char* cut_token(char*& rest) {
  static constexpr char delimiters[] = " \t\n=";
  rest += std::strspn(rest, delimiters);
  if (*rest == '\0') return nullptr;
  char* token = rest;
  rest += std::strcspn(rest, delimiters);
  if (*rest != '\0') *rest++ = '\0';
  return token;
}

static unsigned value_of_token(const char* token) {
  const bool is_hexadecimal = token[1] == 'x' || token[1] == 'X';
  return is_hexadecimal ? KP_hexto4u(token) : KP_strto4u(token);
}

// Takes the lines of a settings file one after the other.
class logcfg_line_parser {
 public:
  explicit logcfg_line_parser(_kp_LOG_log_setting_tbl& settings) : settings_(settings) {}

  void take_line(char* line);

 private:
  void take_header(const char* token);

  _kp_LOG_log_setting_tbl& settings_;
  bool in_section_ = false;
  char section_[longest_line + 1] = "";
};

void logcfg_line_parser::take_line(char* line) {
  const char* first = cut_token(line);
  if (first == nullptr) return;
  if (first[0] == '[') return take_header(first);
  if (!in_section_) return;
  if (const char* second = cut_token(line))
    settings_.create_entry(section_, first, value_of_token(second));
}

// The name lies between the first and the last character, whatever the last one is.
void logcfg_line_parser::take_header(const char* token) {
  const size_t length = KP_strlen(token);
  in_section_ = length >= 2;
  if (!in_section_) return;
  std::memcpy(section_, token + 1, length - 2);
  section_[length - 2] = '\0';
}

// The size to ask for when that file is read. Only a file far beyond a handful of keys gets more
// than the least, lest its reading take time by the square of its keys.
static unsigned settings_size(FILE* file) {
  constexpr off_t bytes_of_a_handful = 4096;
  constexpr off_t bytes_a_key = 64;
  struct stat status;
  if (KP_fstat(fileno(file), &status) != 0 || status.st_size <= bytes_of_a_handful) return 3;
  return static_cast<unsigned>(std::min<off_t>(status.st_size, settings_file_limit) / bytes_a_key);
}

static void read_settings(FILE* file, _kp_LOG_log_setting_tbl& settings) {
  logcfg_line_parser parser(settings);
  read_file reader;
  char line[longest_line + 1];
  while (reader.position() < settings_file_limit && reader.readLine(file, line, longest_line) == 0)
    parser.take_line(line);
}

// ---- sources ----

constinit std::atomic<uint64_t> kp_logcfg_generation{1};

static void tell_change() noexcept {
  kp_logcfg_generation.fetch_add(1, std::memory_order_release);
}

_kp_LOG_configuration::~_kp_LOG_configuration() = default;

unsigned _kp_LOG_file_configuration::bCfgReaded = 0;

// Whoever sees the announcement of a table sees the table as well.
bool _kp_LOG_file_configuration::settings_are_announced() const {
  return std::atomic_ref<unsigned>(*readed_).load(std::memory_order_acquire) != 0;
}

void _kp_LOG_file_configuration::announce_settings(unsigned announced) const {
  std::atomic_ref<unsigned>(*readed_).store(announced, std::memory_order_release);
}

_kp_LOG_file_configuration::_kp_LOG_file_configuration(const char* path)
    : _kp_LOG_file_configuration(path, true) {}

_kp_LOG_file_configuration::_kp_LOG_file_configuration(const char* path, bool shares_readed)
    : readed_(shares_readed ? &bCfgReaded : &own_readed_), path_(path) {
  announce_settings(0);
}

_kp_LOG_file_configuration::~_kp_LOG_file_configuration() = default;

bool _kp_LOG_file_configuration::get_integer_value(const char* section, const char* key,
                                                   unsigned& value) const {
  // Whoever sees the announcement of a later source sees that this one is retired. Then only what
  // it has read itself counts, and nothing that became of its file since.
  const bool is_announced = settings_are_announced();
  const bool is_known = is_retired_.load(std::memory_order_relaxed)
                            ? current_.load(std::memory_order_acquire) != nullptr
                            : is_announced;
  return is_known ? _find_value(section, key, value) : _look_up(section, key, value);
}

// Looks whether the file has to be read first.
bool _kp_LOG_file_configuration::_look_up(const char* section, const char* key,
                                          unsigned& value) const {
  struct stat status;
  if (KP_stat(path_.c_str(), &status) != 0) return false;
  {
    const kp_LOG_CReaderSentry reading(lock_);
    if (_is_up_to_date(status)) return _find_value(section, key, value);
  }
  const kp_LOG_CWriterSentry writing(lock_);
  // Another thread may have read the file while this one waited.
  return (_is_up_to_date(status) || _read_anew(status)) && _find_value(section, key, value);
}

bool _kp_LOG_file_configuration::_is_up_to_date(const struct stat& status) const {
  return was_read_ && status.st_mtime == last_changed_;
}

// A file that cannot be opened counts as read, without settings, until its time changes. When there
// is no memory for the settings the next look-up reads the file again.
bool _kp_LOG_file_configuration::_read_anew(const struct stat& status) const {
  was_read_ = false;
  const bool parsed = parse_file(nullptr);
  if (!parsed) {
    current_.store(nullptr, std::memory_order_release);
    tell_change();
  }
  last_changed_ = status.st_mtime;
  was_read_ = true;
  if (parsed && !is_retired_.load(std::memory_order_relaxed)) announce_settings(1);
  return parsed;
}

void _kp_LOG_file_configuration::retire() const {
  const kp_LOG_CWriterSentry writing(lock_);
  is_retired_.store(true, std::memory_order_relaxed);
}

bool _kp_LOG_file_configuration::_save_all_from_file() const {
  return parse_file(current_.load(std::memory_order_acquire));
}

bool _kp_LOG_file_configuration::parse_file(const _kp_LOG_log_setting_tbl* held) const {
  const kp_file file(KP_open_regular(path_.c_str()));
  if (file == nullptr) return false;
  std::forward_list<_kp_LOG_log_setting_tbl> fresh;
  kp_log_no_bad_alloc([&] { fresh.emplace_front(settings_size(file.get())); });
  if (held != nullptr) fresh.front().add_all(*held);
  read_settings(file.get(), fresh.front());
  tables_.splice_after(tables_.before_begin(), fresh);
  current_.store(&tables_.front(), std::memory_order_release);
  tell_change();
  return true;
}

bool _kp_LOG_file_configuration::_find_value(const char* section, const char* key,
                                             unsigned& value) const {
  const _kp_LOG_log_setting_tbl* settings = current_.load(std::memory_order_acquire);
  if (settings == nullptr) return false;
  const unsigned* found = settings->find_entry(section, key);
  if (found == nullptr) found = settings->find_entry("global", key);
  if (found == nullptr) return false;
  value = *found;
  return true;
}
