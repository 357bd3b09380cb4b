#include "tools/ship/journal_queue.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "base/kp_clib.h"
#include "recording/journal/segment_work.h"
#include "recording/records/entry.h"
#include "recording/records/stored_start.h"
#include "recording/text/check_sum.h"
#include "recording/text/escape.h"

using std::chrono::milliseconds;

static constexpr size_t batch_records = 20'000;
static constexpr size_t read_at_a_time = size_t{256} << 10;

// How long what comes bit by bit is left to become a batch.
static constexpr milliseconds between_looks(100);
// Where the journal cannot be looked at, because its folder is not there, for example.
static constexpr milliseconds before_another_try(1000);
static constexpr std::chrono::minutes before_unreadable_again(1);

journal_queue::journal_queue(journal_place journal, const event_set& events, queue_rules rules)
    : journal_(std::move(journal)), events_(events), rules_(std::move(rules)) {}

void journal_queue::begin(const std::vector<segment_position>& confirmed,
                          const sent_positions& known) {
  close();
  engine_.clear();
  for (const segment_position& position : confirmed) engine_.emplace(position.segment, position);
  if (segments_.empty()) {
    given_up_ = known.given_up;
    is_given_up_exact_ = known.is_given_up_exact;
    notes_ = known.notes;
    for (const auto& [name, segment] : known.segments) {
      queued_segment& one = segments_[name];
      one.there = segment.there;
      one.checked = segment.stamp;
      one.confirmed = segment.position;
    }
  }
  for (auto& [name, one] : segments_) {
    const auto [first, last] = engine_.equal_range(name);
    const bool has_same = std::any_of(first, last, [&one = one](const auto& row) {
      return row.second.first == one.confirmed.first && row.second.extent == one.confirmed.extent;
    });
    if (!has_same) one.checked = {};
    one.is_checked = false;
  }
  is_look_due_ = true;
  next_look_ = {};
  measured_waiting_.reset();
}

// --- What is there ---

// What others append is there for good while nobody holds the lock.
void journal_queue::look() {
  is_look_due_ = false;
  next_look_ = std::chrono::steady_clock::now() + between_looks;
  watch_.watch_folder(journal_.folder);
  std::map<std::string, queued_segment> found;
  given_up_notes noted;
  try {
    append_batch batch(journal_.folder, journal_.name, journal_.rules);
    list(batch.folder(), found);
    if (!rules_.sent_name.empty())
      noted = notes_of_given_up(batch.folder(), journal_, rules_.sent_name, notes_);
    batch.commit();
  } catch (const file_error&) {
    is_look_due_ = true;
    next_look_ = std::chrono::steady_clock::now() + before_another_try;
    throw;
  }
  notes_ = noted.all;
  // Who died between a note and removing the segment left it to others, who note it again.
  for (const auto& [name, lines] : noted.segments)
    if (!found.contains(name)) take_noted(name, lines);
  for (const auto& [name, one] : segments_)
    if (!found.contains(name) && !noted.segments.contains(name)) take_missing(one, found);
  segments_ = std::move(found);
}

void journal_queue::list(int folder, std::map<std::string, queued_segment>& found) {
  for (const journal_segment& segment : segments_of(folder, journal_.folder, journal_.name)) {
    if (!segment.is_there()) continue;
    const auto known = segments_.find(segment.name);
    queued_segment& one = found[segment.name];
    if (known != segments_.end()) one = known->second;
    one.confirmed.segment = segment.name;
    take_listed(folder, segment, one);
  }
}

static bool is_same_file(const file_stamp& one, const file_stamp& other) {
  return one.inode == other.inode && one.device == other.device;
}

void journal_queue::take_listed(int folder, const journal_segment& segment,
                                queued_segment& one) const {
  struct stat status {};
  one.listed = segment;
  if (KP_fstatat(folder, segment.file_name().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  const file_stamp stamp = stamp_of(status);
  if (stamp == one.stamp) return;
  if (!is_same_file(stamp, one.stamp)) one.is_checked = !segment.plain && stamp == one.checked;
  one.stamp = stamp;
  one.lines_there.reset();
  one.there = bytes_of_lines(folder, journal_, segment);
  const auto index = read_segment_index(folder, journal_, segment);
  if (index && index->fits(segment.file_name(), stamp.size))
    one.lines_there = index->records + index->others;
  const line_extent& taken = segment.name == open_name_ ? after_ : one.confirmed.extent;
  if (one.there < taken.bytes) one.is_checked = false;
}

// Less what the engine has got of it since this was noted.
void journal_queue::take_noted(const std::string& name, const given_up_notes::noted_lines& noted) {
  const auto known = segments_.find(name);
  if (!noted.lines || known == segments_.end()) return give_up(name, noted.lines);
  const uint64_t confirmed = known->second.confirmed.extent.lines;
  const uint64_t since = confirmed - std::min(confirmed, noted.behind);
  if (*noted.lines > since) give_up(name, *noted.lines - since);
}

// What the engine has not got of it, it gets while it is held open, or never.
void journal_queue::take_missing(const queued_segment& one,
                                 std::map<std::string, queued_segment>& found) {
  const std::string& name = one.confirmed.segment;
  if (one.confirmed.extent.bytes >= one.there) {
    if (name == open_name_) close();
    return;
  }
  if (name == open_name_) {
    found[name] = one;
    return;
  }
  const uint64_t sent = one.confirmed.extent.lines;
  give_up(name, one.lines_there ? std::optional(*one.lines_there - std::min(*one.lines_there, sent))
                                : std::nullopt);
}

// Of a segment that is gone the engine did not get so many lines.
void journal_queue::give_up(const std::string& segment, std::optional<uint64_t> lines) {
  const uint64_t more = std::min(lines.value_or(1), UINT64_MAX - given_up_);
  is_given_up_exact_ = is_given_up_exact_ && lines == more;
  given_up_ += more;
  if (rules_.tell)
    rules_.tell(terminal_text(journal_.path(segment)) + " was removed before all of it was sent");
}

journal_queue::queued_segment* journal_queue::due() {
  const auto now = std::chrono::steady_clock::now();
  for (auto& [name, one] : segments_) {
    const line_extent& extent = name == open_name_ ? after_ : one.confirmed.extent;
    const bool has_more = one.is_checked ? one.there > extent.bytes : one.there != 0;
    const bool is_left = one.stamp == one.left_at || one.next_try > now;
    if (has_more && !is_left) return &one;
  }
  return nullptr;
}

milliseconds journal_queue::patience() const {
  if (!is_look_due_) return watch_.patience();
  const auto left = std::chrono::ceil<milliseconds>(next_look_ - std::chrono::steady_clock::now());
  return std::max(left, milliseconds(0));
}

void journal_queue::look_around() {
  watch_.take([this](std::string_view name, path_change) {
    is_look_due_ |= name.empty() || dated_name_of(name, journal_.name).has_value();
  });
  is_look_due_ |= watch_.patience().count() >= 0;
}

// --- A segment ---

void journal_queue::close() {
  reader_.reset();
  open_name_.clear();
  lines_.clear();
  records_.clear();
  taken_ = 0;
  passed_over_ = 0;
}

// False where it is gone, or another file by now: a look tells, which is due then.
bool journal_queue::open(queued_segment& one) {
  close();
  const std::string path = journal_.path(one.listed.file_name());
  open_descriptor file(
      KP_open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  const bool is_gone = !file.is_open() && errno == ENOENT;
  if (!is_gone && (!file.is_open() || KP_fstat(file.get(), &status) != 0))
    throw file_error(file_use::reading, "read", path, errno);
  if (is_gone || !is_same_file(stamp_of(status), one.stamp)) {
    is_look_due_ = true;
    next_look_ = {};
    return false;
  }
  reader_ = std::make_unique<segment_reader>(std::move(file), path, !one.listed.plain);
  open_name_ = one.listed.name;
  after_ = one.confirmed.extent;
  source_->name = path;
  return true;
}

// The begin and the middle of a segment, without keeping what is passed over.
class segment_walk {
 public:
  segment_walk(segment_reader& reader, bool is_plain) : reader_(reader), is_plain_(is_plain) {}

  // The digest of the first line, where its end is among that many bytes. Of a line that is longer
  // than one may be nothing is kept: the walk is behind its begin then.
  std::optional<uint64_t> first_digest(uint64_t there) {
    uint64_t digest = check_sum_begin;
    size_t end = held_.find('\n');
    for (; end == std::string::npos; end = held_.find('\n')) {
      if (held_.size() > longest_kept) {
        digest = check_sum(held_, digest);
        dropped_ += std::exchange(held_, "").size();
      }
      if (dropped_ + held_.size() >= there || !read_more()) return std::nullopt;
    }
    if (dropped_ + end >= there) return std::nullopt;
    return check_sum(std::string_view(held_).substr(0, end), digest);
  }
  bool is_at_begin() const { return dropped_ == 0; }
  void skip(uint64_t bytes) {
    while (bytes > held_.size()) {
      bytes -= std::exchange(held_, "").size();
      if (is_plain_) reader_.skip(std::exchange(bytes, 0));
      if (!read_more()) return;
    }
    held_.erase(0, bytes);
  }
  // Fewer where the segment has no more.
  std::string take(uint64_t bytes) {
    while (held_.size() < bytes && read_more()) {
    }
    std::string taken = held_.substr(0, bytes);
    held_.erase(0, taken.size());
    return taken;
  }
  std::string take_rest() { return std::move(held_); }

 private:
  static constexpr size_t longest_kept = stored_record_size_limit;

  bool read_more() {
    const std::string_view bytes = reader_.read(read_at_a_time);
    held_ += bytes;
    return !bytes.empty();
  }

  segment_reader& reader_;
  bool is_plain_;
  std::string held_;
  uint64_t dropped_ = 0;
};

static uint64_t digest_of(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  return check_sum(line);
}

// Behind this the reader stands behind what the engine has of this very segment: at its begin where
// it has nothing, or another segment of that name.
bool journal_queue::open_behind_confirmed(queued_segment& one) {
  if (!open(one)) return false;
  auto walk = std::make_optional<segment_walk>(*reader_, one.listed.plain.has_value());
  const auto first = walk->first_digest(one.there);
  if (!first) return false;
  if (!walk->is_at_begin()) {
    if (!open(one)) return false;
    walk.emplace(*reader_, one.listed.plain.has_value());
  }
  line_extent extent;
  const auto [begin, end] = engine_.equal_range(one.listed.name);
  for (auto row = begin; row != end; ++row)
    if (row->second.first == *first && row->second.extent.last <= row->second.extent.bytes &&
        row->second.extent.bytes <= one.there)
      extent = row->second.extent;
  walk->skip(extent.bytes - extent.last);
  const std::string last = walk->take(extent.last);
  const bool is_same = last.size() == extent.last && digest_of(last) == extent.digest;
  if (!is_same) extent = {};
  one.confirmed = {one.listed.name, *first, extent};
  after_ = extent;
  one.is_checked = true;
  if (is_same && !one.listed.plain) {
    one.checked = one.stamp;
    lines_ = walk->take_rest();
    read_ = extent.bytes + lines_.size();
    return true;
  }
  return open_at(one, extent.bytes);
}

// Of a plain segment anywhere, of a compressed one at its begin.
bool journal_queue::open_at(queued_segment& one, uint64_t offset) {
  if (!open(one)) return false;
  reader_->skip(offset);
  read_ = offset;
  return true;
}

// --- A batch ---

bool journal_queue::fill() {
  for (;;) {
    if (is_look_due_ && std::chrono::steady_clock::now() >= next_look_) look();
    queued_segment* const one = due();
    if (one == nullptr || (is_ahead() && !is_open(*one))) return false;
    try {
      if (fill_from(*one)) return true;
    } catch (const file_error& error) {
      pass_over(*one, error.what());
    }
    if (is_ahead()) return false;
  }
}

// Segments behind it need not wait for one that cannot be read.
void journal_queue::pass_over(queued_segment& one, const std::string& fault) {
  close();
  one.next_try = std::chrono::steady_clock::now() + before_unreadable_again;
  if (one.fault != fault && rules_.fail) rules_.fail(fault);
  one.fault = fault;
}

bool journal_queue::has_unreadable() const {
  return std::ranges::any_of(segments_, [](const auto& row) { return !row.second.fault.empty(); });
}

bool journal_queue::is_open(const queued_segment& one) const {
  return reader_ != nullptr && open_name_ == one.listed.name && one.is_checked;
}

// Batches of the open segment were handed out, and are not confirmed: it stays open until they are.
bool journal_queue::is_ahead() const {
  const auto open = segments_.find(open_name_);
  return open != segments_.end() && after_ != open->second.confirmed.extent;
}

// False where there is nothing in it at the moment.
bool journal_queue::fill_from(queued_segment& one) {
  if (!is_open(one) && !open_behind_confirmed(one)) return leave(one);
  lines_.erase(0, std::exchange(taken_, 0));
  records_.clear();
  before_ = after_;
  read_lines(one);
  take_lines();
  if (after_ == before_) return leave(one);
  one.fault.clear();
  return true;
}

// Until it is another file, or a longer one.
bool journal_queue::leave(queued_segment& one) {
  if (is_ahead()) return false;
  one.left_at = one.stamp;
  close();
  return false;
}

// Reads a batch, with the whole of its last line where it has no more than a line may have. A line
// that is longer is passed over.
void journal_queue::read_lines(queued_segment& one) {
  bool has_more = true;
  while (has_more &&
         (lines_.size() < rules_.batch_bytes || lines_.find('\n') == std::string::npos)) {
    if (lines_.size() > stored_record_size_limit) pass_over_line();
    if (lines_.capacity() - lines_.size() < read_at_a_time) make_room();
    const uint64_t left = one.there - std::min(read_, one.there);
    const std::string_view bytes = read(std::min<uint64_t>(left, read_at_a_time));
    has_more = !bytes.empty();
    read_ += bytes.size();
    lines_ += bytes;
  }
  if (!has_more && !one.listed.plain && reader_) one.there = read_;
}

// Where a segment is damaged, the lines before that are good.
std::string_view journal_queue::read(size_t most) {
  try {
    return reader_->read(most);
  } catch (const file_error&) {
    if (lines_.find('\n') == std::string::npos) throw;
    reader_.reset();
    return "";
  }
}

// A batch, or as long a line as there may be: a text that grows by itself would double.
void journal_queue::make_room() {
  const size_t room =
      lines_.size() < rules_.batch_bytes ? rules_.batch_bytes : stored_record_size_limit;
  std::string longer;
  longer.reserve(room + 2 * read_at_a_time);
  longer += lines_;
  lines_.swap(longer);
}

// Keeps its end alone.
void journal_queue::pass_over_line() {
  if (passed_over_ == 0) passed_limit_ = size_limit_of(lines_);
  passed_over_ += lines_.size() - tail_bytes;
  lines_.erase(0, lines_.size() - tail_bytes);
}

void journal_queue::take_lines() {
  size_t begin = 0;
  for (size_t end = lines_.find('\n'); end != std::string::npos && records_.size() < batch_records;
       end = lines_.find('\n', begin)) {
    const std::string_view bytes = std::string_view(lines_).substr(begin, end + 1 - begin);
    after_.bytes += bytes.size() + passed_over_;
    ++after_.lines;
    take_line(bytes.substr(0, bytes.size() - 1));
    passed_over_ = 0;
    begin = end + 1;
  }
  taken_ = begin;
  if (begin == 0) return;
  const size_t line_begin = begin < 2 ? 0 : lines_.rfind('\n', begin - 2) + 1;
  const std::string_view line = std::string_view(lines_).substr(line_begin, begin - line_begin);
  after_.last = std::min(line.size(), tail_bytes);
  after_.digest = digest_of(line.substr(line.size() - after_.last));
}

void journal_queue::take_line(std::string_view bytes) {
  record_line line;
  line.source = source_;
  line.number = after_.lines;
  const bool is_blank = !take_as_line(bytes, line.number == 1, stored_record_size_limit, line);
  if (is_blank && passed_over_ == 0) return;
  if (passed_over_ != 0) {
    line.too_long = true;
    line.limit = passed_limit_;
  }
  try {
    check_length(line);
  } catch (const record_error& error) {
    return rules_.bad(line, error);
  }
  const parsed_record* const record =
      stored_lines_.read(line.text, stored_) ? &stored_ : parser_.try_parse(line.text);
  if (record == nullptr) return rules_.bad(line, parser_.error());
  records_.push_back(shipped(line, *record));
}

shipped_record journal_queue::shipped(const record_line& line, const parsed_record& record) const {
  shipped_record one;
  one.text = line.text;
  one.line = line.number;
  one.digest = check_sum(line.text);
  if (const known_event* const event = find_event(events_, record.event)) one.event = event->id;
  one.level = record.level.value_or(default_record_level);
  if (record.time) one.time = instant_of(record.time->text);
  return one;
}

segment_position journal_queue::before() const {
  segment_position position = segments_.at(open_name_).confirmed;
  position.extent = before_;
  return position;
}

segment_position journal_queue::after() const {
  segment_position position = before();
  position.extent = after_;
  return position;
}

void journal_queue::confirm(const segment_position& position) {
  const auto [begin, end] = engine_.equal_range(position.segment);
  const auto same =
      std::find_if(begin, end, [&](const auto& row) { return row.second.first == position.first; });
  if (same == end)
    engine_.emplace(position.segment, position);
  else
    same->second = position;
  const auto found = segments_.find(position.segment);
  if (found == segments_.end() || found->second.confirmed.first != position.first) return;
  queued_segment& one = found->second;
  one.confirmed.extent = position.extent;
  if (!one.listed.plain && one.is_checked) one.checked = one.stamp;
}

// --- What is told ---

void journal_queue::tell(sent_positions& positions) const {
  positions.given_up = given_up_;
  positions.is_given_up_exact = is_given_up_exact_;
  positions.notes = notes_;
  positions.segments.clear();
  for (const auto& [name, one] : segments_)
    positions.segments[name] = {one.confirmed, one.there, one.checked};
}

void journal_queue::remove_counted_notes() {
  if (notes_.bytes == 0) return;
  append_batch batch(journal_.folder, journal_.name, journal_.rules);
  if (remove_notes_of_given_up(batch.folder(), journal_, rules_.sent_name, notes_)) notes_ = {};
  batch.commit();
}

static uint64_t bytes_behind(uint64_t there, const line_extent& confirmed) {
  return there == UINT64_MAX ? 0 : there - std::min(there, confirmed.bytes);
}

void journal_queue::measure(const sent_positions& known) {
  const open_descriptor folder(
      KP_open(journal_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.is_open()) throw file_error(file_use::reading, "read", journal_.folder, errno);
  std::map<std::string, queued_segment> found;
  list(folder.get(), found);
  measured_waiting_ = 0;
  for (const auto& [name, one] : found) {
    const auto saved = known.segments.find(name);
    const bool is_new = !segments_.contains(name) && saved != known.segments.end();
    *measured_waiting_ +=
        bytes_behind(one.there, is_new ? saved->second.position.extent : one.confirmed.extent);
  }
}

journal_state journal_queue::state() const {
  journal_state state{.given_up = given_up_, .is_given_up_exact = is_given_up_exact_};
  for (const auto& [name, one] : segments_)
    state.waiting_bytes += bytes_behind(one.there, one.confirmed.extent);
  state.waiting_bytes = measured_waiting_.value_or(state.waiting_bytes);
  return state;
}
