#include "tests/support/counter_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/support/ldf_bytes.h"

std::string counter_record(int year, int month, int day, int entry_id, unsigned count,
                           const std::string& reserved) {
  std::string bytes = ldf_int4(32);
  for (int word : {year, month, day, entry_id}) bytes += ldf_int4(static_cast<uint32_t>(word));
  bytes += ldf_int4(count) + reserved;
  bytes.resize(32, '\0');
  return bytes;
}

std::string free_counter_slot(const std::string& reserved) {
  return counter_record(0, 0, 0, 0, 0, reserved);
}

static uint32_t word_at(const std::string& bytes, size_t offset) {
  uint32_t word = 0;
  for (size_t i = 0; i < 4; ++i)
    word = word << 8 | static_cast<unsigned char>(bytes.at(offset + i));
  return word;
}

long long count_in(const std::string& bytes, int year, int month, int day, int entry_id) {
  const std::string key = counter_record(year, month, day, entry_id, 0).substr(4, 16);
  for (size_t at = 0; at + 32 <= bytes.size(); at += 32)
    if (bytes.compare(at + 4, 16, key) == 0) return word_at(bytes, at + 20);
  return -1;
}

counter_folder::counter_folder(const std::string& content) {
  if (!content.empty()) folder_.write("c.cnt", content);
  counter.OpenEntryCounterFile(folder_.path().c_str(), "c");
}

void counter_folder::write_from_outside(size_t offset, const std::string& bytes) const {
  const int descriptor = open(path().c_str(), O_WRONLY | O_CLOEXEC);
  const ssize_t done = pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  close(descriptor);
  if (done != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("write failed");
}
