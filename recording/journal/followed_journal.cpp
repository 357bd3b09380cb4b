#include "recording/journal/followed_journal.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/text/escape.h"

static constexpr int segment_flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

// Segments that wait to be read and are open meanwhile, so that nobody takes them away.
static constexpr size_t most_waiting = 32;
// Those that were read and are open still: as many as a batch may have written to, which may be
// taken back.
static constexpr size_t most_read = 8;

followed_journal::followed_journal(journal_place journal, const follow_rules& rules)
    : journal_(std::move(journal)), rules_(rules) {
  read_folder();
}

// --- What happens in the folder ---

// The index of a segment, and what is being made, say nothing of its lines.
void followed_journal::look(const pollfd& /*ready*/) {
  bool is_to_be_read = is_asking();
  due_.merge(put_off_);
  put_off_.clear();
  watch_.take([&](std::string_view name, path_change change) {
    if (change == path_change::anything) is_to_be_read = true;
    const auto dated = dated_name_of(name, journal_.name);
    if (!dated || !dated->ending.starts_with(segment_ending)) return;
    const std::string_view form = std::string_view(dated->ending).substr(segment_ending.size());
    const segment_key key{dated->day, dated->serial};
    const auto known = segments_.find(key);
    if (form == compressed_ending) is_to_be_read = true;
    if (!form.empty()) return;
    if (known == segments_.end() || change != path_change::written)
      is_to_be_read = true;
    else
      due_.insert(key);
    if (known != segments_.end()) known->second.is_gone |= change == path_change::gone;
  });
  if (is_to_be_read) read_folder();
}

// None where it is not there.
open_descriptor followed_journal::open_folder() const {
  open_descriptor folder(
      KP_open(journal_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
  if (!folder.is_open() && !says_no_file(errno))
    raise_write_error("open the folder", journal_.folder);
  return folder;
}

// Nothing is missed between the watch and what is found behind it.
void followed_journal::read_folder() {
  watch_.watch_folder(journal_.folder);
  try {
    with_descriptors([this] {
      take_folder();
      return true;
    });
    fault_.clear();
  } catch (const file_error& error) {
    if (fault_ != error.what()) rules_.fail(error);
    fault_ = error.what();
    return;
  }
  open_waiting();
}

void followed_journal::take_folder() {
  const open_descriptor folder = open_folder();
  std::vector<journal_segment> segments;
  if (folder.is_open()) segments = segments_of(folder.get(), journal_.folder, journal_.name);
  std::erase_if(segments, [](const journal_segment& segment) { return !segment.is_there(); });
  std::set<segment_key> listed;
  for (auto segment = segments.rbegin(); segment != segments.rend(); ++segment) {
    take_listed(folder.get(), *segment);
    listed.insert({segment->day, segment->serial});
  }
  is_begun_ = true;
  take_missing(folder.get(), listed);
}

// At first: by what its index says.
bool followed_journal::is_left_out(int folder, followed_segment& one) {
  if (is_begun_ || !rules_.is_vain) return false;
  const journal_segment& segment = one.listed;
  const auto index = read_segment_index(folder, journal_, segment);
  const uintmax_t size = segment.plain ? segment.plain->size : segment.compressed->size;
  if (!index || !index->fits(segment.file_name(), size)) return false;
  const bool is_enough = rules_.last != 0 && records_ >= rules_.last && index->others == 0;
  if (is_enough) rules_.leave_out(*index);
  if (!is_enough && !rules_.is_vain(*index)) {
    records_ += index->records;
    return false;
  }
  one.shown = {index->lines, index->records + index->others};
  one.is_compressed_known = !segment.plain;
  return true;
}

void followed_journal::take_listed(int folder, const journal_segment& segment) {
  const segment_key key{segment.day, segment.serial};
  const auto [place, is_new] = segments_.try_emplace(key);
  followed_segment& one = place->second;
  removed_.erase(key);
  one.listed = segment;
  if (is_new ? !is_left_out(folder, one) : is_changed(folder, one)) due_.insert(key);
}

// Whether there may be something to be read of a segment that is known.
bool followed_journal::is_changed(int folder, followed_segment& one) const {
  if (one.plain != nullptr) {
    struct stat status {};
    const bool is_named =
        KP_fstatat(folder, one.listed.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        one.plain->is_of(status);
    one.is_gone = !is_named;
    return one.is_gone || static_cast<uint64_t>(status.st_size) != one.plain->position().offset;
  }
  if (one.listed.plain) return one.is_gone || one.listed.plain->size != one.shown.offset;
  return !one.is_compressed_known;
}

// A segment may have been overlooked that was compressed while the folder was read.
void followed_journal::take_missing(int folder, const std::set<segment_key>& listed) {
  const auto is_there = [&](const std::string& name) {
    struct stat status {};
    return folder >= 0 && KP_fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  };
  for (auto place = segments_.begin(); place != segments_.end();) {
    auto& [key, one] = *place;
    const bool is_missing = !listed.contains(key) && !is_there(one.listed.name) &&
                            !is_there(one.listed.compressed_name());
    const bool is_waiting = one.plain != nullptr || due_.contains(key);
    if (is_missing && is_waiting) {
      one.is_gone = true;
      removed_.insert(key);
      due_.insert(key);
    }
    place = is_missing && !is_waiting ? segments_.erase(place) : std::next(place);
  }
}

// --- Lines ---

bool followed_journal::next(record_line& line) {
  while (!due_.empty()) {
    const segment_key key = *due_.begin();
    followed_segment& one = segments_.at(key);
    try {
      while (next_of(one, line)) {
        if (was_shown(line.text)) continue;
        line.source = one.source;
        return true;
      }
    } catch (const file_error& error) {
      if (says_no_descriptor(error.error())) {
        put_off(key, error);
        continue;
      }
      give_up(one, error);
    }
    due_.erase(key);
    if (removed_.erase(key) != 0)
      segments_.erase(key);
    else
      rest(key);
  }
  return false;
}

void followed_journal::give_up(followed_segment& one, const file_error& error) {
  rules_.fail(error);
  one.plain.reset();
  one.compressed.reset();
  one.is_compressed_known = true;
}

void followed_journal::put_off(const segment_key& key, const file_error& error) {
  rules_.fail(error);
  put_off_.insert(key);
  due_.erase(key);
}

// Those of many batches are more than come again.
void followed_journal::take_lost(growing_file& file) {
  static constexpr size_t most = size_t{8} << 20;
  const std::string lost = file.take_lost();
  if (lost.empty()) return;
  if (lost_bytes_ + lost.size() > most) lost_.clear();
  lost_bytes_ = lost_.empty() ? lost.size() : lost_bytes_ + lost.size();
  std::istringstream lines(lost);
  for (std::string line; std::getline(lines, line);) lost_.insert(line);
}

bool followed_journal::was_shown(std::string_view line) {
  if (lost_.empty()) return false;
  const auto found = lost_.find(std::string(line));
  if (found == lost_.end()) return false;
  lost_.erase(found);
  return true;
}

bool followed_journal::next_of(followed_segment& one, record_line& line) {
  const auto open_it = [&] { return with_descriptors([&] { return open(one); }); };
  while (one.plain != nullptr || one.compressed != nullptr || open_it()) {
    if (one.compressed != nullptr) {
      if (one.compressed->next(line)) return true;
      one.compressed.reset();
      one.is_compressed_known = true;
      return false;
    }
    const bool has_line = one.plain->next(line);
    take_lost(*one.plain);
    if (one.plain->take_cut())
      rules_.tell(terminal_text(one.source->name) +
                  " became shorter; what comes from there on is shown");
    if (has_line) return true;
    if (!one.is_gone) return false;
    if (one.plain->next_at_end(line)) return true;
    // What was compressed of it holds nothing more, and a file that has its name is another one.
    one.shown = {};
    one.plain.reset();
    one.is_compressed_known = true;
    if (!one.listed.plain || removed_.contains({one.listed.day, one.listed.serial})) return false;
  }
  return false;
}

static open_descriptor open_lines(int folder, const std::string& name, const std::string& path) {
  open_descriptor file(KP_openat(folder, name.c_str(), segment_flags));
  if (!file.is_open() && errno != ENOENT && errno != ENOTDIR)
    throw file_error(file_use::reading, "read", terminal_text(path), errno);
  return file;
}

// False when there is nothing to be read of it. The plain form takes one descriptor, and not
// another one on the way: that of the segment before is enough for it.
bool followed_journal::open(followed_segment& one) {
  const std::string path = journal_.path(one.listed.name);
  open_descriptor file = open_lines(AT_FDCWD, path, path);
  if (!file.is_open()) return open_compressed(one);
  file_identity identity;
  static_cast<void>(identity.take(file.get()));
  const bool is_known = identity.inode == one.file.inode && identity.device == one.file.device;
  if (one.is_gone || (one.file.inode != 0 && !is_known)) one.shown = {};
  one.file = identity;
  one.source = std::make_shared<line_source>(line_source{.name = path});
  one.is_gone = false;
  one.is_compressed_known = false;
  one.plain =
      std::make_unique<growing_file>(std::move(file), path, one.shown, lost_lines::handed_over);
  return true;
}

// What was shown of the plain form is not shown again.
bool followed_journal::open_compressed(followed_segment& one) {
  if (one.is_compressed_known) return false;
  const open_descriptor folder = open_folder();
  if (!folder.is_open()) return false;
  const std::string name = one.listed.compressed_name();
  const std::string path = journal_.path(name);
  open_descriptor file = open_lines(folder.get(), name, path);
  if (!file.is_open())
    throw file_error(file_use::reading, "read", terminal_text(journal_.path(one.listed.name)),
                     "it was removed before");
  one.listed.has_index = true;
  struct stat status {};
  const auto index = read_segment_index(folder.get(), journal_, one.listed);
  one.is_compressed_known = index && KP_fstat(file.get(), &status) == 0 &&
                            index->fits(name, static_cast<uint64_t>(status.st_size)) &&
                            index->lines == one.shown.offset;
  if (one.is_compressed_known) return false;
  one.source = std::make_shared<line_source>(line_source{.name = path});
  one.compressed = std::make_unique<compressed_lines>(std::move(file), path, one.shown);
  return true;
}

// --- Open files ---

void followed_journal::open_waiting() {
  size_t left = most_waiting;
  for (auto key = due_.begin(); key != due_.end() && left > 0; ++key, --left) {
    followed_segment& one = segments_.at(*key);
    if (one.plain != nullptr || !one.listed.plain) continue;
    try {
      open(one);
    } catch (const file_error&) {  // which is told when it is read
    }
  }
}

void followed_journal::close(const segment_key& key) {
  const auto place = segments_.find(key);
  if (place == segments_.end() || place->second.plain == nullptr) return;
  followed_segment& one = place->second;
  if (one.plain->is_inside_line()) return;
  one.shown = one.plain->position();
  one.plain.reset();
}

// One that was read to its end, for now.
void followed_journal::rest(const segment_key& key) {
  const followed_segment& one = segments_.at(key);
  std::erase(resting_, key);
  if (one.listed.compressed) return close(key);
  if (one.plain == nullptr) return;
  resting_.push_back(key);
  if (resting_.size() <= most_read) return;
  if (!due_.contains(resting_.front())) close(resting_.front());
  resting_.erase(resting_.begin());
}

// What was read gives way to what is to be read, and then the watch, without which is asked. False:
// there is nothing more that could.
bool followed_journal::give_way() {
  bool is_any_closed = false;
  for (const segment_key& key : std::exchange(resting_, {})) {
    if (!due_.contains(key)) close(key);
    const auto place = segments_.find(key);
    is_any_closed |= place != segments_.end() && place->second.plain == nullptr;
  }
  if (is_any_closed) return true;
  if (watch_.descriptor() < 0) return false;
  watch_ = path_watch();
  return true;
}

// Again and again while it lacks descriptors, and this journal has some that it can do without.
bool followed_journal::with_descriptors(const std::function<bool()>& action) {
  while (true) {
    try {
      return action();
    } catch (const file_error& error) {
      if (!says_no_descriptor(error.error()) || !give_way()) throw;
    }
  }
}
