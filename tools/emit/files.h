// The files of a run of `kplog emit`, or another that reads records: no two of them are one.
#ifndef TOOLS_EMIT_FILES_H
#define TOOLS_EMIT_FILES_H

#include <string>
#include <string_view>
#include <vector>

#include "recording/files/path.h"

// What a run writes to, found out from the paths alone: nothing is opened or made. Paths lead to
// one file where they are the same once the folders' links are followed, and where they are two
// names of a file that is there.
class emit_files {
 public:
  // The file, and the lock of what is named `lock_owner` in its folder. Like the others: raises
  // wrong_usage where that is another of these files.
  void add_file(const std::string& path, const std::string& lock_owner);
  // The dated files of "DIR/PREFIX" with that ending, what belongs to them, and their lock.
  void add_dated_files(const std::string& path, std::string_view ending);
  // What standard output is, where that is a file or FIFO: a run that reads it would never end.
  void add_standard_output();
  // Nothing that a run writes to is one of the files that it reads; "-" is standard
  // input.
  void check_input(const std::string& input_path) const;

 private:
  enum class kind { file, dated_files, lock };

  struct claimed_file {
    kind what = kind::file;
    std::string path;              // as given; of dated files "DIR/PREFIX."
    file_place place;              // of dated files the folder and the prefix
    std::string owner;             // of a lock: whose
    std::string_view ending = {};  // of dated files
  };

  static bool is_same_folder(const file_place& one, const file_place& other);
  static bool is_one_of(const claimed_file& file, const claimed_file& dated);
  static bool is_same(const claimed_file& one, const claimed_file& other);
  void add(claimed_file file);
  void add_lock(const std::string& owner, const file_place& place);

  std::vector<claimed_file> files_;
};

#endif
