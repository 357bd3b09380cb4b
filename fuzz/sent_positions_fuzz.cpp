// Any bytes as the file beside a journal that tells how far it was sent, without the check sum
// that it ends with, and as the notes of what was given up: what is read is written as it was, and
// notes that were counted are not counted again.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "recording/journal/sent_positions.h"
#include "recording/text/summed_json.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void require(bool holds) {
  if (!holds) std::abort();
}

static void check_positions(const std::string& text) {
  const auto positions = sent_positions_of(text);
  if (!positions) return;
  const std::string written = text_of(*positions);
  const auto again = sent_positions_of(written);
  require(again.has_value() && text_of(*again) == written);
}

// A folder for a journal's notes.
class notes_folder {
 public:
  notes_folder() {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
    folder_ = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }
  ~notes_folder() {
    close(folder_);
    std::filesystem::remove_all(path_);
  }
  notes_folder(const notes_folder&) = delete;
  notes_folder& operator=(const notes_folder&) = delete;

  int get() const { return folder_; }
  journal_place journal() const { return {path_, "app", {}}; }
  void write(std::string_view notes) const {
    const int file = openat(folder_, name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    require(::write(file, notes.data(), notes.size()) == static_cast<ssize_t>(notes.size()));
    close(file);
  }
  bool has_notes() const { return faccessat(folder_, name, F_OK, 0) == 0; }

 private:
  static constexpr const char* name = "app.sent.X.given_up";

  // In memory, where there is such a place: that is several times as quick.
  std::string path_ =
      std::string(faccessat(AT_FDCWD, "/dev/shm", W_OK, 0) == 0 ? "/dev/shm" : "/tmp") +
      "/kplog-fuzz-XXXXXX";
  int folder_ = -1;
};

static given_up_notes notes_behind(const notes_folder& folder, const counted_notes& counted) {
  return notes_of_given_up(folder.get(), folder.journal(), "app.sent.X", counted);
}

// Read at once, or in two parts.
static void check_notes(std::string_view notes, size_t first_part) {
  static const notes_folder folder;
  folder.write(notes.substr(0, first_part));
  given_up_notes in_parts = notes_behind(folder, {});
  folder.write(notes);
  const given_up_notes more = notes_behind(folder, in_parts.all);
  const given_up_notes at_once = notes_behind(folder, {});
  require(more.all == at_once.all);
  for (const auto& [segment, lines] : more.segments) in_parts.segments[segment] = lines;
  require(in_parts.segments == at_once.segments);
  require(notes_behind(folder, at_once.all).segments.empty());
  require(remove_notes_of_given_up(folder.get(), folder.journal(), "app.sent.X", at_once.all));
  require(folder.has_notes() == (at_once.all.bytes == 0));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const size_t choice = data[0];
  if (choice == 0) {
    check_positions(text);
    check_positions(summed_object(text));
  } else {
    check_notes(text, text.size() * (choice - 1) / UINT8_MAX);
  }
  return 0;
}
