// Notes of deliveries: what is read is what was written, or less.
#include "recording/files/delivery_note.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "recording/files/descriptor.h"
#include "recording/files/folder_lock.h"
#include "tests/support/temp_folder.h"

class DeliveryNote : public testing::Test {
 protected:
  DeliveryNote() {
    std::fill(std::begin(ring_.recorder), std::end(ring_.recorder), '7');
    delivery_note_lines lines(of_);
    lines.add({.name = "a %\n\x7f b.20261115.0001",
               .device = 1,
               .inode = 2,
               .size = 3,
               .appended = 4,
               .is_new = true});
    lines.add({.name = "b",
               .device = UINT64_MAX,
               .inode = UINT64_MAX,
               .size = UINT64_MAX,
               .replaced = {{32, "", std::string("\x00\xff", 2)}, {64, "abc", "def"}}});
    text_ = lines.take();
  }

  ring_start ring_{};
  const delivery of_{&ring_, "/a b\t%41/ring", 3, 17, UINT64_MAX};
  std::string text_;
};

TEST_F(DeliveryNote, IsReadAsItWasWritten) {
  const auto note = delivery_note::read(text_);
  ASSERT_TRUE(note);
  EXPECT_TRUE(note->is_sound);
  EXPECT_EQ(note->ring_path, of_.ring_path);
  EXPECT_EQ(note->recorder, std::string(32, '7'));
  EXPECT_EQ(note->output, 3U);
  EXPECT_EQ(note->first, 17U);
  EXPECT_EQ(note->last, UINT64_MAX);
  ASSERT_EQ(note->files.size(), 2U);
  const noted_file& log = note->files[0];
  EXPECT_EQ(log.name, "a %\n\x7f b.20261115.0001");
  EXPECT_TRUE(log.device == 1 && log.inode == 2 && log.size == 3 && log.appended == 4);
  EXPECT_TRUE(log.is_new && log.replaced.empty());
  const noted_file& counter = note->files[1];
  EXPECT_TRUE(counter.inode == UINT64_MAX && counter.size == UINT64_MAX && !counter.is_new);
  ASSERT_EQ(counter.replaced.size(), 2U);
  EXPECT_EQ(counter.replaced[0].before, "");
  EXPECT_EQ(counter.replaced[0].after, std::string("\x00\xff", 2));
  EXPECT_EQ(counter.replaced[1].offset, 64U);
  EXPECT_EQ(counter.replaced[1].before, "abc");
}

// What a lock holds can be shown.
TEST_F(DeliveryNote, IsReadable) {
  for (const char byte : text_) EXPECT_TRUE(byte == '\n' || (byte >= ' ' && byte < '\x7f'));
  EXPECT_THAT(text_, testing::StartsWith("delivery 1 3 17 18446744073709551615 " +
                                         std::string(32, '7') + " /a%20b%09%2541/ring "));
}

TEST_F(DeliveryNote, ThatIsTornSaysWhatItsWholeLinesSay) {
  for (size_t size = 1; size < text_.size(); ++size) {
    const auto note = delivery_note::read(text_.substr(0, size));
    ASSERT_TRUE(note) << size;
    EXPECT_TRUE(note->is_sound) << size;
    const auto lines =
        std::count(text_.begin(), text_.begin() + static_cast<ptrdiff_t>(size), '\n');
    EXPECT_EQ(note->last == 0, lines == 0) << size;
    EXPECT_EQ(note->files.size(), static_cast<size_t>(std::clamp(lines - 1, 0L, 2L))) << size;
    if (lines >= 3) {
      EXPECT_EQ(note->files[1].replaced.size(), static_cast<size_t>(lines - 3)) << size;
    }
  }
}

TEST_F(DeliveryNote, WithAnyOtherByteIsNotSoundOrLacksItsLastLine) {
  const size_t last_line = text_.rfind('\n', text_.size() - 2) + 1;
  const size_t word = std::string_view("delivery 1 ").size();
  for (size_t at = word; at < text_.size(); ++at)
    for (const char other : {'x', '\n', ' ', '0', '\0'}) {
      if (text_[at] == other) continue;
      std::string text = text_;
      text[at] = other;
      const auto note = delivery_note::read(text);
      ASSERT_TRUE(note) << at;
      const bool is_damaged = at < last_line - 1 || (other == '\n' && at != text.size() - 1);
      EXPECT_EQ(note->is_sound, !is_damaged) << at;
      const size_t read = note->is_sound ? note->files[1].replaced.size() : 0;
      EXPECT_LE(read, 1U) << at;
    }
}

TEST_F(DeliveryNote, OfAnotherBatchIsNoPartOfIt) {
  delivery other = of_;
  other.last = 18;
  delivery_note_lines lines(other);
  lines.add({.name = "b"});
  const std::string second = lines.take();
  const auto note = delivery_note::read(text_.substr(0, text_.find('\n') + 1) +
                                        second.substr(second.find('\n') + 1));
  ASSERT_TRUE(note);
  EXPECT_EQ(note->files.size(), 0U);
}

TEST_F(DeliveryNote, IsNoNoteOfAnotherKind) {
  for (const char* text : {"app.20261115.0001", "delivery 2 ", "x", "Delivery"})
    EXPECT_FALSE(delivery_note::read(text)) << text;
}

// --- Locks and children ---

// A process takes the lock, starts another and ends: the other does not keep the lock.
TEST(FolderLock, IsNotHeldByAChild) {
  const temp_folder folder;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    folder_lock* const lock = new folder_lock(folder.path(), "app");
    lock->keep();
    if (fork() == 0) {
      char byte = 0;
      close(ends[1]);
      static_cast<void>(!read(ends[0], &byte, 1));
    }
    _exit(0);
  }
  ASSERT_EQ(waitpid(holder, nullptr, 0), holder);
  folder_lock lock(folder.path(), "app", {.is_to_end = [] { return true; }});
  EXPECT_EQ(lock.read_note(), "");
  close(ends[0]);
  close(ends[1]);
}

// A child that goes on with the lock takes it as another process does.
TEST(FolderLock, IsTakenByAChildAgain) {
  const temp_folder folder;
  folder_lock lock(folder.path(), "app");
  lock.keep();
  lock.release();
  const pid_t child = fork();
  if (child == 0) {
    lock.take_again();
    const open_descriptor other(open(folder.file("app_lock").c_str(), O_RDWR | O_CLOEXEC));
    _exit(flock(other.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  lock.take_again();
}
