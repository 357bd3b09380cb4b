#include "bench/peers/sqlite_counts.h"

#include <sqlite3.h>

peer_sqlite_counts::peer_sqlite_counts() {
  sqlite3_open(folder_.file("counts.db").c_str(), &database_);
  sqlite3_exec(database_,
               "PRAGMA synchronous = OFF; PRAGMA journal_mode = WAL;"
               "CREATE TABLE counts (year INT, month INT, day INT, id INT, count INT,"
               " PRIMARY KEY (year, month, day, id)) WITHOUT ROWID;",
               nullptr, nullptr, nullptr);
  sqlite3_prepare_v2(database_,
                     "INSERT INTO counts VALUES (2026, 11, 15, ?, 1)"
                     " ON CONFLICT DO UPDATE SET count = count + 1",
                     -1, &add_, nullptr);
}

peer_sqlite_counts::~peer_sqlite_counts() {
  sqlite3_finalize(add_);
  sqlite3_close(database_);
}

bool peer_sqlite_counts::operator()(int key) const {
  sqlite3_reset(add_);
  sqlite3_bind_int(add_, 1, key);
  return sqlite3_step(add_) == SQLITE_DONE;
}
