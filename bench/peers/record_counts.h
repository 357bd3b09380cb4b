// Counts in a file of 32-byte records, one for each key, by the plain calls.
#ifndef BENCH_PEERS_RECORD_COUNTS_H
#define BENCH_PEERS_RECORD_COUNTS_H

#include <cstdint>
#include <cstdio>

#include "tests/support/temp_folder.h"

struct peer_count_record {
  uint32_t words[8] = {};  // key in the first, count in the second
};

class peer_record_file {
 protected:
  peer_record_file();
  ~peer_record_file();

  temp_folder folder_;
  FILE* file_;
  int descriptor_;
};

// The record of a key is known to stand at 32 * key: one pread and one pwrite.
class peer_record_at_hand : peer_record_file {
 public:
  bool operator()(int key) const;
};

// The record is searched from the beginning, one pread for each record.
class peer_record_search : peer_record_file {
 public:
  bool operator()(int key) const;
};

// The record is searched from the beginning through a buffered stream, one fread for each record.
class peer_stream_search : peer_record_file {
 public:
  bool operator()(int key) const;
};

#endif
