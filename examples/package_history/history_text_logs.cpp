#include "history_text_logs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

#include "history_folder.h"
#include "kp_LOG.h"

constexpr unsigned last_serial = 9999;  // four digits; names with more are not recognised

// --- Names ---

std::string text_log_name(const history_day& day, unsigned serial) {
  const std::unique_ptr<char[]> name(make_text_log_filename(
      history_file_prefix, day.year, day.month, static_cast<unsigned>(day.day), serial, nullptr));
  return name.get();
}

// Calls visit(day, serial, path) for every text log of the folder, in no particular order. What
// has the name of one and is no file is left out.
template <class Visit>
static void visit_text_logs(const std::string& folder, Visit visit) {
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    unsigned short year = 0;
    unsigned short month = 0;
    unsigned short day = 0;
    unsigned short serial = 0;
    const std::string name = file.path().filename();
    std::error_code ignored;
    if (!file.is_regular_file(ignored)) continue;
    if (is_a_valid_text_log(name.c_str(), history_file_prefix, &year, &month, &day, &serial) == 1)
      visit(history_day{year, month, day}, unsigned{serial}, file.path().string());
  }
}

// --- Writing ---

history_text_logs::history_text_logs(const std::string& folder, uintmax_t max_size)
    : folder_(folder), max_size_(max_size) {
  visit_text_logs(folder, [this](const history_day& day, unsigned serial, const std::string&) {
    unsigned& highest = serials_[day];
    highest = std::max(highest, serial);
  });
}

void history_text_logs::open(const history_day& day, unsigned serial) {
  if (serial > last_serial)
    throw std::runtime_error("no serial is left for a text log of " + to_text(day));
  path_ = folder_ + "/" + text_log_name(day, serial);
  day_ = {};
  log_ = std::ofstream(path_, std::ios::binary | std::ios::app);
  if (!log_) throw std::runtime_error("cannot open " + path_ + ": " + std::strerror(errno));
  std::error_code none;  // what is no regular file has no size
  const uintmax_t size = std::filesystem::file_size(path_, none);
  size_ = none ? 0 : size;
  serials_[day] = serial;
  day_ = day;
}

// Leaves the log open in which the next `n_bytes` of that day go.
void history_text_logs::open_for(const history_day& day, size_t n_bytes) {
  if (day != day_) {
    const auto found = serials_.find(day);
    open(day, found == serials_.end() ? 1 : found->second);
  }
  const bool fits = size_ <= max_size_ && n_bytes <= max_size_ - size_;
  if (size_ > 0 && !fits) open(day, serials_[day] + 1);
}

static std::string to_line(std::string_view message) {
  std::string line(message);
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(line.begin(), line.end(), is_control, ' ');
  return line + '\n';
}

void history_text_logs::append(const history_day& day, std::string_view message) {
  const std::string line = to_line(message);
  open_for(day, line.size());
  kept_size_ = size_;
  errno = 0;
  if (!log_.write(line.data(), std::ssize(line)).flush()) {
    const std::string why = errno != 0 ? std::strerror(errno) : "the write failed";
    take_back();
    throw std::runtime_error("cannot write " + path_ + ": " + why);
  }
  size_ += line.size();
}

// Closing comes first: it may still write what the stream holds.
void history_text_logs::take_back() noexcept {
  log_.close();
  day_ = {};
  std::error_code ignored;
  std::filesystem::resize_file(path_, kept_size_, ignored);
}

// --- Reading back ---

static size_t count_lines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const auto n_lines = std::count(std::istreambuf_iterator<char>(in), {}, '\n');
  if (!in) throw std::runtime_error("cannot read " + path);
  return static_cast<size_t>(n_lines);
}

std::map<history_day, history_day_logs> read_text_logs(const std::string& folder) {
  std::map<history_day, history_day_logs> days;
  visit_text_logs(folder,
                  [&days](const history_day& day, unsigned serial, const std::string& path) {
                    history_day_logs& logs = days[day];
                    logs.serials.insert(serial);
                    logs.n_lines += count_lines(path);
                  });
  return days;
}
