// What is done to one segment of a journal: an index is made of it, or a compressed form.
#ifndef RECORDING_JOURNAL_SEGMENT_WORK_H
#define RECORDING_JOURNAL_SEGMENT_WORK_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "recording/files/compression.h"
#include "recording/files/descriptor.h"
#include "recording/files/folder_lock.h"
#include "recording/files/shared_file.h"
#include "recording/journal/segment_index.h"
#include "recording/journal/segments.h"

// Where a journal is, and how its lock is taken.
struct journal_place {
  std::string folder;
  std::string name;
  append_rules rules = {};

  std::string path(const std::string& file) const { return folder + "/" + file; }
};

// The index that is beside the segment, whether it fits or not; nothing where there is none.
std::optional<segment_index> read_segment_index(int folder, const journal_place& journal,
                                                const journal_segment& segment);

// Bytes of the segment's lines: of a compressed one as its index tells, and UINT64_MAX without one.
uint64_t bytes_of_lines(int folder, const journal_place& journal, const journal_segment& segment);

// Holds the journal's lock when it begins and when it ends, each for a moment, and never between:
// what it found at its begin, all of which is there for good, it holds against what is there at its
// end. What others did meanwhile has them do it again. A process that dies in it leaves nothing but
// an unfinished file. Raises file_error.
class segment_work {
 public:
  // With `compresses` the segment, to which nobody writes any more, gets a compressed form in its
  // place. Where it has one already that is compared: what is left of a process that died goes.
  segment_work(const journal_place& journal, const journal_segment& segment, bool compresses);
  ~segment_work();
  segment_work(const segment_work&) = delete;
  segment_work& operator=(const segment_work&) = delete;

  // Does the next part. False where that was the last.
  bool advance();

 private:
  void open_source();
  void open_unfinished();
  void go_on_behind_index();
  void compare(std::string_view bytes);
  [[noreturn]] void refuse_compressed() const;
  bool is_unchanged(const append_batch& batch) const;
  bool is_as_it_was(const append_batch& batch) const;
  void finish();
  void finish_compressed();
  void write_index(const append_batch& batch, const std::string& file, uint64_t size) const;
  bool name_compressed(const append_batch& batch);
  void replace(const append_batch& batch);

  const journal_place& journal_;
  journal_segment segment_;
  bool compresses_;
  open_descriptor folder_;
  struct stat source_status_ {};  // of the form that is read
  std::unique_ptr<segment_reader> source_;
  uint64_t left_ = UINT64_MAX;                  // bytes of a plain one to be read
  std::unique_ptr<segment_reader> compressed_;  // to be compared with it
  lock_descriptor unfinished_;                  // held while it is written
  std::unique_ptr<segment_compressor> compressor_;
  bool is_idle_ = false;  // it is gone, or another process is at it
  std::unique_ptr<segment_scan> scan_;
};

#endif
