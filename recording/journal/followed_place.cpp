#include "recording/journal/followed_place.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/files/path_watch.h"
#include "recording/journal/compressed_lines.h"
#include "recording/journal/followed_journal.h"
#include "recording/records/growing_file.h"
#include "recording/text/escape.h"

static std::string told_name(const std::string& path) {
  return terminal_text(input_name(path));
}

// --- What has no name, or is no file ---

// Lines are kept as they came by one read.
class followed_stream : public followed_place {
 public:
  followed_stream(const std::string& path, const follow_rules& rules)
      : rules_(rules), input_({path}) {}

  bool next(record_line& line) override;
  bool at_end() const override { return is_over() && lines_.empty(); }
  pollfd watched() const override;
  std::chrono::milliseconds patience() const override { return input_.patience(); }
  void look(const pollfd& ready) override;

 private:
  struct kept_line {
    std::string text;
    record_line line;
  };
  bool is_over() const { return is_given_up_ || input_.at_end(); }
  void read(pollfd ready);

  follow_rules rules_;
  record_files input_;
  bool is_given_up_ = false;
  std::deque<kept_line> lines_;
  kept_line last_;  // that was handed out
};

pollfd followed_stream::watched() const {
  std::vector<pollfd> watched;
  if (!is_over()) input_.watch(watched);
  return watched.empty() ? pollfd{-1, POLLIN, 0} : watched.front();
}

void followed_stream::read(pollfd ready) {
  try {
    input_.read({&ready, 1}, [this](const record_line& line) {
      lines_.push_back({std::string(line.text), line});
    });
  } catch (const file_error& error) {
    is_given_up_ = true;
    rules_.fail(error);
  }
}

void followed_stream::look(const pollfd& ready) {
  if (lines_.empty() && !is_over()) read(ready);
}

bool followed_stream::next(record_line& line) {
  for (pollfd ready = watched(); lines_.empty() && ready.fd >= 0; ready = watched()) {
    if (poll(&ready, 1, 0) != 1) return false;
    read(ready);
  }
  if (lines_.empty()) return false;
  last_ = std::move(lines_.front());
  lines_.pop_front();
  line = last_.line;
  line.text = last_.text;
  return true;
}

// --- A file, by its name ---

class followed_file : public followed_place {
 public:
  followed_file(std::string path, const follow_rules& rules)
      : path_(std::move(path)),
        source_(std::make_shared<line_source>(line_source{.name = path_})),
        rules_(rules) {
    read_name();
  }

  bool next(record_line& line) override;
  pollfd watched() const override { return {watch_.descriptor(), POLLIN, 0}; }
  std::chrono::milliseconds patience() const override {
    return is_put_off_ ? path_watch::asking_interval : watch_.patience();
  }
  void look(const pollfd& ready) override;

 private:
  bool next_of_file(record_line& line);
  void read_name();
  bool open();
  bool open_successor();
  void give_up(const file_error& error);
  void tell(const char* what) const { rules_.tell(told_name(path_) + what); }

  std::string path_;
  std::shared_ptr<line_source> source_;
  follow_rules rules_;
  path_watch watch_;
  file_identity file_;  // that is read
  std::unique_ptr<growing_file> plain_;
  std::unique_ptr<compressed_lines> compressed_;
  bool is_read_ = false;        // all of what is compressed
  bool is_gone_ = false;        // the name leads to another file by now, or to none
  bool is_waited_for_ = false;  // there was none
  bool is_due_ = false;         // something may be to be read
  bool is_put_off_ = false;     // until there is a descriptor for it
  std::string fault_;           // that was told
};

void followed_file::look(const pollfd& /*ready*/) {
  const std::string name = place_of(path_).name;
  bool is_name_changed = is_put_off_;
  watch_.take([&](std::string_view changed, path_change change) {
    const bool is_own = changed == name || change == path_change::anything;
    is_due_ |= is_own;
    is_name_changed |= is_own && change != path_change::written;
  });
  if (is_name_changed) read_name();
}

// Whether the name still leads to the file that is read.
void followed_file::read_name() {
  watch_.watch_file(path_);
  struct stat status {};
  is_gone_ = KP_stat(path_.c_str(), &status) != 0 || !file_.is_of(status);
  is_due_ = true;
}

// False where there is no file of that name at the moment.
bool followed_file::open() {
  open_descriptor file(KP_open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.is_open() && says_no_file(errno) && errno != EACCES) return false;
  if (!file.is_open() || KP_fstat(file.get(), &status) != 0)
    throw file_error(file_use::reading, "read", told_name(path_), errno);
  if (!S_ISREG(status.st_mode))
    throw file_error(file_use::reading, "read", told_name(path_), "it is no regular file");
  static_cast<void>(file_.take(file.get()));
  if (std::exchange(is_put_off_, false)) fault_.clear();
  is_gone_ = false;
  is_read_ = false;
  if (path_.ends_with(compressed_ending))
    compressed_ = std::make_unique<compressed_lines>(std::move(file), path_);
  else
    plain_ = std::make_unique<growing_file>(std::move(file), path_);
  return true;
}

bool followed_file::next_of_file(record_line& line) {
  if (compressed_ != nullptr && !is_read_) {
    is_read_ = !compressed_->next(line);
    return !is_read_;
  }
  if (plain_ == nullptr) return false;
  const bool has_line = plain_->next(line);
  if (plain_->take_cut()) tell(" became shorter; what comes from there on is shown");
  return has_line || (is_gone_ && plain_->next_at_end(line));
}

// False when there is no other file to be read. One that is made may have the number of the one
// that is closed.
bool followed_file::open_successor() {
  if (!is_gone_) return false;
  const bool was_open = plain_ != nullptr || compressed_ != nullptr;
  plain_.reset();
  compressed_.reset();
  file_ = {};
  const bool is_open = open();
  if (is_open && was_open) tell(" was replaced; the new file is shown");
  if (is_open && is_waited_for_) tell(" is there");
  if (!is_open && was_open) tell(" was removed; a new one is waited for");
  is_waited_for_ = !is_open;
  return is_open;
}

// One that lacks a descriptor keeps none from others, and is asked for again.
void followed_file::give_up(const file_error& error) {
  plain_.reset();
  compressed_.reset();
  if (fault_ != error.what()) rules_.fail(error);
  fault_ = error.what();
  is_put_off_ = says_no_descriptor(error.error());
  if (is_put_off_) watch_ = path_watch();
}

bool followed_file::next(record_line& line) {
  line.source = source_;
  try {
    while (is_due_) {
      if (next_of_file(line)) return true;
      is_due_ = open_successor();
    }
  } catch (const file_error& error) {
    is_due_ = false;
    give_up(error);
  }
  return false;
}

// --- What may be a file or a journal ---

// Whichever comes first under that name.
class followed_path : public followed_place {
 public:
  followed_path(std::string path, const follow_rules& rules)
      : path_(std::move(path)), place_(place_of(path_)), rules_(rules) {
    find();
  }

  bool next(record_line& line) override { return found_ != nullptr && found_->next(line); }
  pollfd watched() const override {
    return found_ != nullptr ? found_->watched() : pollfd{watch_.descriptor(), POLLIN, 0};
  }
  std::chrono::milliseconds patience() const override {
    if (found_ != nullptr) return found_->patience();
    return fault_.empty() ? watch_.patience() : path_watch::asking_interval;
  }
  void look(const pollfd& ready) override;

 private:
  void find();
  void find_journal();

  std::string path_;
  file_place place_;
  follow_rules rules_;
  path_watch watch_;
  std::unique_ptr<followed_place> found_;  // null: not yet
  std::string fault_;                      // of the folder, that was told, while it is so
  bool is_told_ = false;                   // that there is nothing by now
};

void followed_path::find() {
  watch_.watch_folder(place_.folder);
  struct stat status {};
  if (KP_stat(path_.c_str(), &status) == 0)
    found_ = std::make_unique<followed_file>(path_, rules_);
  else
    find_journal();
  // One of a folder that cannot be read keeps no descriptor from others meanwhile.
  if (found_ != nullptr || !fault_.empty()) watch_ = path_watch();
  if (found_ != nullptr || !fault_.empty() || is_told_) return;
  rules_.tell(told_name(path_) + " is no file, and no journal, by now; it is waited for");
  is_told_ = true;
}

void followed_path::find_journal() {
  follow_rules rules = rules_;
  rules.fail = [this](const file_error& error) {
    if (error.what() != fault_) rules_.fail(error);
  };
  auto journal =
      std::make_unique<followed_journal>(journal_place{place_.folder, place_.name}, rules);
  fault_ = journal->fault();
  if (journal->has_segments()) found_ = std::move(journal);
}

void followed_path::look(const pollfd& ready) {
  if (found_ != nullptr) return found_->look(ready);
  bool may_be_there = !fault_.empty();
  watch_.take([&](std::string_view name, path_change change) {
    may_be_there |= change == path_change::anything || name.starts_with(place_.name);
  });
  if (may_be_there) find();
}

// --- Any place ---

// Descriptors come and go with every segment of every place.
static follow_rules telling_lacks_once(follow_rules rules) {
  rules.fail = [fail = rules.fail,
                is_told = std::make_shared<bool>(false)](const file_error& error) {
    if (!says_no_descriptor(error.error()) || !std::exchange(*is_told, true)) fail(error);
  };
  return rules;
}

std::unique_ptr<followed_place> followed_place_of(const std::string& path,
                                                  const follow_rules& given) {
  const follow_rules rules = telling_lacks_once(given);
  struct stat status {};
  if (path == "-") return std::make_unique<followed_stream>(path, rules);
  const bool is_there = KP_stat(path.c_str(), &status) == 0;
  if (is_there && S_ISREG(status.st_mode)) return std::make_unique<followed_file>(path, rules);
  if (is_there && !S_ISDIR(status.st_mode)) return std::make_unique<followed_stream>(path, rules);
  if (is_there) throw file_error(file_use::reading, "read", told_name(path), EISDIR);
  const std::string folder = place_of(path).folder;
  if (KP_access(folder.c_str(), R_OK | X_OK) != 0 && errno != ENOENT && errno != ENOTDIR)
    throw file_error(file_use::reading, "read", told_name(path), errno);
  return std::make_unique<followed_path>(path, rules);
}
