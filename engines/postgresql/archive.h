// Records out of a database.
#ifndef ENGINES_POSTGRESQL_ARCHIVE_H
#define ENGINES_POSTGRESQL_ARCHIVE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "engines/postgresql/connection.h"
#include "tools/ship/engine.h"

// Asks for the journals, for the segments of each that may hold what is asked for, and for the
// records of each of these in pages: nothing is held in the database between pages.
class pg_archive : public record_archive {
 public:
  pg_archive(const engine_options& options, const archive_query& query);

  std::vector<archived_kit> kits() override;
  bool next(archived_record& record, std::chrono::milliseconds patience) override;

 private:
  // Of which records are to be read: of its batches behind one up to another.
  struct segment_part {
    std::string id;
    std::string part;  // the partition's key
    std::string host;
    std::string journal;
    std::string name;
    int64_t lines_before = 0;  // of these all are shown
    int64_t batch_before = 0;
    int64_t batch = 0;
    std::optional<int64_t> first_arrival = {};  // the batch that came first while it was followed
    bool has_unknown_events = false;
  };
  // What is shown of a segment, where they are followed.
  struct shown_part {
    int64_t batch = 0;
    int64_t lines = 0;
    int64_t again = 0;
  };

  bool next_stored();
  bool next_journal();
  void list_segments(const std::string& host, const std::string& journal);
  void take_segments(const pg_result& found, bool is_moved);
  int64_t first_arrival_of(const segment_part& segment) const;
  bool may_hold(const segment_part& segment);
  const std::optional<std::set<std::string>>& candidates(const std::string& part);
  void begin_page();
  bool next_in_page();
  void list_moved();
  bool await_moved(std::chrono::milliseconds patience);
  bool is_asked_host(std::string_view host) const;
  void tell(archived_record& record) const;

  engine_options options_;
  archive_query query_;
  archive_query arriving_;  // of what comes while they are followed
  pg_connection connection_;
  std::optional<std::vector<std::string>> contained_;

  std::deque<journal_identity> journals_;  // the next ones
  std::optional<journal_identity> last_journal_;
  bool has_all_journals_ = false;
  bool is_following_ = false;  // what was there is shown

  std::deque<segment_part> segments_;  // the first of them is being read
  std::map<std::string, std::optional<std::set<std::string>>> candidates_;  // of a partition

  bool is_in_page_ = false;
  int page_rows_ = 0;
  std::string line_, digest_;  // of the last record
  pg_result row_;

  std::unordered_map<std::string, shown_part> shown_;
  std::string moved_since_;   // transactions before that are shown
  int64_t last_segment_ = 0;  // that there was when this began
};

#endif
