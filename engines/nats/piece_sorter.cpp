#include "engines/nats/piece_sorter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"

static constexpr size_t most_unwritten = size_t{256} << 10;
// What all runs together are read ahead by.
static constexpr size_t memory_of_readers = size_t{16} << 20;
static constexpr size_t least_read_ahead = size_t{4} << 10;
static constexpr size_t most_read_ahead = size_t{256} << 10;

// What stands before a piece in the file.
struct piece_head {
  uint64_t key = 0;
  uint64_t size = 0;
};

// A run from its begin to its end, of which a part is in memory.
class piece_sorter::run_reader {
 public:
  run_reader(int file, const std::string& path, const sorted_run& run, size_t ahead)
      : file_(file), path_(path), at_(run.begin), end_(run.end), ahead_(ahead) {}

  // Takes the next piece's key; false at the end.
  bool advance() {
    at_ = next_;
    if (at_ == end_) return false;
    piece_head head;
    std::memcpy(&head, part(at_, sizeof head).data(), sizeof head);
    key_ = part(at_ + sizeof head, head.key);
    size_ = head.size;
    next_ = at_ + sizeof head + head.key + head.size;
    return true;
  }
  bool begin() {
    next_ = at_;
    return advance();
  }
  const std::string& key() const { return key_; }
  // Those of the piece.
  std::string_view bytes() { return part(next_ - size_, size_); }

 private:
  std::string_view part(uint64_t offset, size_t size) {
    if (offset < begin_ || offset + size > begin_ + read_.size()) {
      const size_t wanted = std::max(size, std::min<size_t>(ahead_, end_ - offset));
      read_ = read_part(file_, offset, wanted, "read", path_);
      begin_ = offset;
      if (read_.size() < size) raise_write_error("read", path_, "it is shorter than it was");
    }
    return std::string_view(read_).substr(offset - begin_, size);
  }

  int file_;
  const std::string& path_;
  uint64_t at_;
  uint64_t end_;
  uint64_t next_ = 0;
  size_t ahead_;
  uint64_t begin_ = 0;  // of what was read
  std::string read_;
  std::string key_;
  size_t size_ = 0;
};

piece_sorter::piece_sorter(size_t memory) : memory_(memory) {}

piece_sorter::~piece_sorter() = default;

std::string_view piece_sorter::key_of(const pool_piece& piece) const {
  return std::string_view(pool_).substr(piece.offset, piece.key);
}

std::string_view piece_sorter::bytes_of(const pool_piece& piece) const {
  return std::string_view(pool_).substr(piece.offset + piece.key, piece.size);
}

void piece_sorter::add(std::string_view key, std::string_view bytes) {
  const size_t held = pool_.size() + pieces_.size() * sizeof(pool_piece);
  if (!pieces_.empty() && held + key.size() + bytes.size() > memory_) write_run();
  pieces_.push_back({.offset = pool_.size(), .key = key.size(), .size = bytes.size()});
  pool_ += key;
  pool_ += bytes;
}

void piece_sorter::sort() {
  const auto is_before = [this](const pool_piece& one, const pool_piece& other) {
    return key_of(one) < key_of(other);
  };
  if (!std::ranges::is_sorted(pieces_, is_before)) std::ranges::sort(pieces_, is_before);
}

// Where it goes on behind the run before, it is a part of that.
void piece_sorter::write_run() {
  if (!file_.is_open()) {
    const char* const folder = secure_getenv("TMPDIR");
    path_ = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/kplog.XXXXXX";
    file_ = open_descriptor(KP_mkostemp(path_.data(), O_CLOEXEC));
    if (!file_.is_open()) raise_write_error("create", path_);
    KP_unlink(path_.c_str());
  }
  sort();
  if (runs_.empty() || key_of(pieces_.front()) < last_key_)
    runs_.push_back({.begin = file_size_, .end = file_size_});
  for (const pool_piece& piece : pieces_) {
    const piece_head head{.key = piece.key, .size = piece.size};
    append({reinterpret_cast<const char*>(&head), sizeof head});
    append(key_of(piece));
    append(bytes_of(piece));
  }
  runs_.back().end = file_size_;
  last_key_ = key_of(pieces_.back());
  pieces_.clear();
  pool_.clear();
}

void piece_sorter::append(std::string_view bytes) {
  unwritten_ += bytes;
  file_size_ += bytes.size();
  if (unwritten_.size() >= most_unwritten) flush();
}

void piece_sorter::flush() {
  std::string_view left = unwritten_;
  if (!write_all(file_.get(), left)) raise_write_error("write", path_);
  unwritten_.clear();
}

void piece_sorter::begin_reading() {
  is_reading_ = true;
  if (runs_.empty()) return sort();
  if (!pieces_.empty()) write_run();
  flush();
  pool_ = {};
  pieces_ = {};
  const size_t ahead =
      std::clamp(memory_of_readers / runs_.size(), least_read_ahead, most_read_ahead);
  for (const sorted_run& run : runs_) {
    auto reader = std::make_unique<run_reader>(file_.get(), path_, run, ahead);
    if (reader->begin()) readers_.push_back(std::move(reader));
  }
}

bool piece_sorter::next(std::string_view& key, std::string_view& bytes) {
  if (!is_reading_) begin_reading();
  return runs_.empty() ? next_of_memory(key, bytes) : next_of_file(key, bytes);
}

bool piece_sorter::next_of_memory(std::string_view& key, std::string_view& bytes) {
  if (taken_ == pieces_.size()) return false;
  const pool_piece& piece = pieces_[taken_++];
  key = key_of(piece);
  bytes = bytes_of(piece);
  return true;
}

bool piece_sorter::next_of_file(std::string_view& key, std::string_view& bytes) {
  const auto is_behind = [](const auto& one, const auto& other) {
    return one->key() > other->key();
  };
  if (taken_ == 0) std::ranges::make_heap(readers_, is_behind);
  if (readers_.empty()) return false;
  taken_ = 1;
  std::ranges::pop_heap(readers_, is_behind);
  run_reader& first = *readers_.back();
  key_ = first.key();
  bytes_ = first.bytes();
  if (first.advance())
    std::ranges::push_heap(readers_, is_behind);
  else
    readers_.pop_back();
  key = key_;
  bytes = bytes_;
  return true;
}
