// Counts in an SQLite table of one row for each key, with synchronous off.
#ifndef BENCH_PEERS_SQLITE_COUNTS_H
#define BENCH_PEERS_SQLITE_COUNTS_H

#include "tests/support/temp_folder.h"

struct sqlite3;
struct sqlite3_stmt;

class peer_sqlite_counts {
 public:
  peer_sqlite_counts();
  ~peer_sqlite_counts();
  peer_sqlite_counts(const peer_sqlite_counts&) = delete;
  peer_sqlite_counts& operator=(const peer_sqlite_counts&) = delete;

  // Adds 1 to the count of the key, in a transaction of its own.
  bool operator()(int key) const;

 private:
  temp_folder folder_;
  sqlite3* database_ = nullptr;
  sqlite3_stmt* add_ = nullptr;
};

#endif
