#include "tools/emit/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/dated_name.h"
#include "recording/files/shared_file.h"
#include "tools/report/outcome.h"

static bool is_one_node(const std::string& one, const std::string& other) {
  struct stat of_one = {};
  struct stat of_other = {};
  return KP_stat(one.c_str(), &of_one) == 0 && KP_stat(other.c_str(), &of_other) == 0 &&
         of_one.st_dev == of_other.st_dev && of_one.st_ino == of_other.st_ino;
}

// What the path leads to; the path itself where that is not known.
static std::string followed(const std::string& path) {
  std::error_code unknown;
  const std::string target = std::filesystem::weakly_canonical(path, unknown).string();
  return unknown ? path : target;
}

bool emit_files::is_same_folder(const file_place& one, const file_place& other) {
  return plain_path_of({one.folder, ""}) == plain_path_of({other.folder, ""}) ||
         is_one_node(one.folder, other.folder);
}

// Of a journal: compressed segments too, and what else belongs to them.
bool emit_files::is_one_of(const claimed_file& file, const claimed_file& dated) {
  const auto name = dated_name_of(file.place.name, dated.place.name);
  if (!name || !is_same_folder(file.place, dated.place)) return false;
  const std::string more = std::string(dated.ending) + ".";
  return name->ending == dated.ending || (!dated.ending.empty() && name->ending.starts_with(more));
}

// Outputs whose names differ in nothing but their endings have one lock, which they take in turn.
bool emit_files::is_same(const claimed_file& one, const claimed_file& other) {
  if (one.what == kind::lock && other.what == kind::lock) return false;
  const bool has_dated = one.what == kind::dated_files;
  const bool have_both_dated = has_dated && other.what == kind::dated_files;
  if (has_dated && !have_both_dated) return is_one_of(other, one);
  if (other.what == kind::dated_files && !have_both_dated) return is_one_of(one, other);
  if (one.place.name == other.place.name && one.ending == other.ending &&
      is_same_folder(one.place, other.place))
    return true;
  return !have_both_dated && is_one_node(one.path, other.path);
}

void emit_files::add(claimed_file file) {
  for (const claimed_file& other : files_) {
    if (!is_same(file, other)) continue;
    const claimed_file& lock = file.what == kind::lock ? file : other;
    throw wrong_usage("two outputs cannot share " + file.path +
                      (lock.what == kind::lock ? ", the lock of " + lock.owner : ""));
  }
  files_.push_back(std::move(file));
}

void emit_files::add_lock(const std::string& owner, const file_place& place) {
  const std::string name = folder_lock::name_of(place.name);
  add({kind::lock, place.folder + "/" + name, {place.folder, name}, owner, {}});
}

void emit_files::add_file(const std::string& path, const std::string& lock_owner) {
  const file_place place = place_of(path);
  add({kind::file, path, place, "", {}});
  add_lock(path, {place.folder, lock_owner});
}

void emit_files::add_dated_files(const std::string& path, std::string_view ending) {
  const file_place prefix = place_of(path);
  const std::string files = prefix.folder + "/" + prefix.name + ".";
  add({kind::dated_files, files, prefix, "", ending});
  add_lock(files, prefix);
}

void emit_files::add_standard_output() {
  static constexpr const char* path = "/dev/stdout";
  struct stat status {};
  if (KP_fstat(STDOUT_FILENO, &status) == 0 &&
      (S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode)))
    add({kind::file, path, place_of(followed(path)), "", {}});
}

void emit_files::check_input(const std::string& input_path) const {
  const std::string path = input_path == "-" ? "/dev/stdin" : input_path;
  const claimed_file input = {kind::file, path, place_of(followed(path)), "", {}};
  for (const claimed_file& output : files_)
    if (is_same(input, output)) throw wrong_usage("the output would replace the input " + path);
}
