#include "bench/peers/record_counts.h"

#include <unistd.h>

constexpr ssize_t record_size = sizeof(peer_count_record);

peer_record_file::peer_record_file()
    : file_(std::fopen(folder_.file("counts").c_str(), "wb+")), descriptor_(fileno(file_)) {}

peer_record_file::~peer_record_file() {
  std::fclose(file_);
}

static bool put(int descriptor, peer_count_record& record, int key, off_t offset) {
  record.words[0] = static_cast<uint32_t>(key);
  ++record.words[1];
  return pwrite(descriptor, &record, sizeof record, offset) == record_size;
}

bool peer_record_at_hand::operator()(int key) const {
  peer_count_record record;
  const off_t offset = key * record_size;
  if (pread(descriptor_, &record, sizeof record, offset) < 0) return false;
  return put(descriptor_, record, key, offset);
}

bool peer_record_search::operator()(int key) const {
  peer_count_record record;
  off_t offset = 0;
  while (pread(descriptor_, &record, sizeof record, offset) == record_size) {
    if (record.words[0] == static_cast<uint32_t>(key)) return put(descriptor_, record, key, offset);
    offset += record_size;
  }
  record = {};
  return put(descriptor_, record, key, offset);
}

bool peer_stream_search::operator()(int key) const {
  peer_count_record record;
  off_t offset = 0;
  std::fflush(file_);
  std::rewind(file_);
  while (std::fread(&record, sizeof record, 1, file_) == 1) {
    if (record.words[0] == static_cast<uint32_t>(key)) break;
    offset += record_size;
    record = {};
  }
  record.words[0] = static_cast<uint32_t>(key);
  ++record.words[1];
  return fseeko(file_, offset, SEEK_SET) == 0 &&
         std::fwrite(&record, sizeof record, 1, file_) == 1 && std::fflush(file_) == 0;
}
