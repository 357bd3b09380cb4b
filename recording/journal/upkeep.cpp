#include "recording/journal/upkeep.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <numeric>
#include <utility>

#include "base/kp_clib.h"
#include "recording/journal/sent_positions.h"
#include "recording/text/escape.h"

using std::chrono::milliseconds;

static constexpr std::chrono::seconds between_looks(60);
static constexpr std::chrono::seconds between_hurried_looks(1);

// A segment of a day that is not the last one's is done when nobody has written to it for that
// time.
static constexpr std::chrono::seconds rest_of_done(600);

// Times of files may be ahead of the clock by less than that.
static constexpr std::chrono::seconds clock_step(60);

// --- What is to be done ---

static std::chrono::nanoseconds since(const timespec& then, const timespec& now) {
  return std::chrono::seconds(now.tv_sec - then.tv_sec) +
         std::chrono::nanoseconds(now.tv_nsec - then.tv_nsec);
}

static timespec now_by_the_clock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

std::vector<journal_segment> outlived(
    std::vector<journal_segment> segments, const journal_rules& rules, timespec now,
    const std::function<bool(const journal_segment&)>& is_awaited) {
  std::erase_if(segments, [](const journal_segment& segment) { return !segment.is_there(); });
  // What a clock that was wrong called later than now is not the last that was written to.
  const auto is_later_than_now = [now](const journal_segment& segment) {
    return since(now, segment.written()) > clock_step;
  };
  std::ranges::sort(segments, [&](const journal_segment& one, const journal_segment& other) {
    const bool is_one_later = is_later_than_now(one);
    return is_one_later == is_later_than_now(other) ? is_older(one, other) : is_one_later;
  });
  uintmax_t size = std::accumulate(
      segments.begin(), segments.end(), uintmax_t{0},
      [](uintmax_t sum, const journal_segment& segment) { return sum + segment.size(); });
  size_t count = 0;
  for (; count + 1 < segments.size(); ++count) {
    const journal_segment& oldest = segments[count];
    const bool is_old = rules.keep && since(oldest.written(), now) > *rules.keep;
    const bool is_too_much = rules.keep_size && size > *rules.keep_size;
    if (!is_too_much && (!is_old || (is_awaited && is_awaited(oldest)))) break;
    size -= oldest.size();
  }
  segments.resize(std::min(count, segments.size()));
  return segments;
}

// Those to which nobody writes any more: there is a later one of the day, or the day is over. One
// that was written to last is not done, nor the last that a day can have.
static std::vector<bool> are_done(const std::vector<journal_segment>& segments, timespec now) {
  std::vector<bool> done(segments.size(), false);
  const auto last = std::ranges::max_element(segments, [](const auto& one, const auto& other) {
    return !one.is_there() || (other.is_there() && is_older(one, other));
  });
  const log_day* later_day = nullptr;  // of the segment behind, which is there
  for (size_t at = segments.size(); at-- > 0;) {
    const journal_segment& segment = segments[at];
    if (!segment.is_there()) continue;
    const bool is_of_same_day = later_day != nullptr && *later_day == segment.day;
    const bool is_last = segments.begin() + static_cast<std::ptrdiff_t>(at) == last;
    const bool may_be_written_to = is_last || segment.serial == last_dated_serial;
    done[at] =
        is_of_same_day || (!may_be_written_to && since(segment.written(), now) >= rest_of_done);
    later_day = &segment.day;
  }
  return done;
}

// --- Removing ---

void journal_upkeep::remove_file(int folder, const std::string& name) const {
  if (KP_unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT)
    raise_write_error("remove", journal_.path(name));
}

// Unless somebody is at it.
void journal_upkeep::remove_unfinished(int folder, const std::string& name) const {
  static constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  lock_descriptor file;
  if (file.open(folder, name, flags) && KP_flock(file.get(), LOCK_EX | LOCK_NB) == 0)
    remove_file(folder, name);
}

// The index goes last: where this ends before, it is a stray, and goes at the next look.
void journal_upkeep::remove(const journal_segment& segment,
                            const std::vector<sent_positions>& given_up_by) {
  append_batch batch(journal_.folder, journal_.name, journal_.rules);
  note_given_up(batch.folder(), journal_, given_up_by, segment);
  if (segment.plain) remove_file(batch.folder(), segment.name);
  if (segment.compressed) remove_file(batch.folder(), segment.compressed_name());
  if (segment.has_index) remove_file(batch.folder(), segment.index_name());
  batch.commit();
}

// Engines that have not got all of a segment are waited for, as long as there is room.
void journal_upkeep::remove_outlived(int folder, const std::vector<journal_segment>& segments) {
  const std::vector<sent_positions> engines = all_sent_positions(folder, journal_);
  const auto is_awaited = [&](const journal_segment& segment) {
    const uint64_t bytes = bytes_of_lines(folder, journal_, segment);
    return !std::ranges::all_of(
        engines, [&](const sent_positions& engine) { return is_sent(engine, segment, bytes); });
  };
  for (const journal_segment& segment :
       outlived(segments, rules_, now_by_the_clock(), is_awaited)) {
    const bool is_given_up = is_awaited(segment);
    remove(segment, is_given_up ? engines : std::vector<sent_positions>{});
    if (is_given_up && tell_)
      tell_(terminal_text(journal_.path(segment.name)) +
            " is removed to keep the journal's size, before all of it was sent");
  }
}

// Under the lock nobody makes an index.
void journal_upkeep::clear_up(const journal_segment& segment) {
  append_batch batch(journal_.folder, journal_.name, journal_.rules);
  const auto is_gone = [&batch](const std::string& name) {
    struct stat status {};
    return KP_fstatat(batch.folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 &&
           errno == ENOENT;
  };
  if (segment.has_unfinished) remove_unfinished(batch.folder(), segment.unfinished_name());
  if (segment.has_unfinished_index) remove_file(batch.folder(), segment.unfinished_index_name());
  if (segment.has_index && is_gone(segment.name) && is_gone(segment.compressed_name()))
    remove_file(batch.folder(), segment.index_name());
  batch.commit();
}

// --- Looking ---

bool journal_upkeep::is_indexed(int folder, const journal_segment& segment) {
  const std::string name = segment.file_name();
  const uint64_t size = segment.plain ? segment.plain->size : segment.compressed->size;
  if (!segment.has_index) return false;
  if (const auto known = indexed_.find(name); known != indexed_.end() && known->second == size)
    return true;
  const auto index = read_segment_index(folder, journal_, segment);
  if (!index || !index->fits(name, size)) return false;
  indexed_[name] = size;
  return true;
}

void journal_upkeep::add_job(int folder, const journal_segment& segment, bool is_done) {
  const bool compresses = segment.plain && is_done && rules_.compresses;
  const bool has_both = segment.plain && segment.compressed;
  if (!compresses && !has_both && is_indexed(folder, segment)) return;
  if (failed_.contains(segment.name))
    jobs_.push_back({segment, compresses});
  else
    jobs_.push_front({segment, compresses});
}

std::vector<journal_segment> journal_upkeep::found_in(int folder) const {
  return segments_of(folder, journal_.folder, journal_.name);
}

// What processes left that died goes, and what has outlived its time. What could not be worked on
// comes last.
void journal_upkeep::look() {
  looked_ = clock::now();
  next_look_ = looked_ + between_looks;
  const open_descriptor folder(
      KP_open(journal_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.is_open()) raise_write_error("open the folder", journal_.folder);
  std::vector<journal_segment> segments = found_in(folder.get());
  for (const journal_segment& segment : segments)
    if (segment.has_unfinished || segment.has_unfinished_index || !segment.is_there())
      clear_up(segment);
  remove_outlived(folder.get(), segments);
  segments = found_in(folder.get());
  if (indexed_.size() > 2 * segments.size()) indexed_.clear();
  const std::vector<bool> done = are_done(segments, now_by_the_clock());
  for (size_t at = segments.size(); at-- > 0;)
    if (segments[at].is_there()) add_job(folder.get(), segments[at], done[at]);
  failed_.clear();
}

void journal_upkeep::hurry() {
  next_look_ = std::min(next_look_, looked_ + between_hurried_looks);
}

// --- Part by part ---

void journal_upkeep::begin_job() {
  const job next = std::move(jobs_.front());
  jobs_.pop_front();
  working_on_ = next.segment.name;
  work_ = std::make_unique<segment_work>(journal_, next.segment, next.compresses);
}

milliseconds journal_upkeep::step() {
  try {
    if (work_ != nullptr) {
      if (!work_->advance()) work_.reset();
    } else if (!jobs_.empty()) {
      begin_job();
    } else if (clock::now() >= next_look_) {
      working_on_.clear();
      look();
    }
  } catch (const file_error&) {
    work_.reset();
    failed_.insert(working_on_);
    throw;
  }
  if (work_ != nullptr || !jobs_.empty()) return milliseconds(0);
  const auto left = std::chrono::ceil<milliseconds>(next_look_ - clock::now());
  return std::max(left, milliseconds(0));
}
