// Engines that records are sent to, and asked for: what kplog wants of them, whatever they are.
//
// The command itself links none of their libraries: kplog-ship does, and tells of its engines here.
#ifndef TOOLS_SHIP_ENGINE_H
#define TOOLS_SHIP_ENGINE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ship/archive_query.h"
#include "tools/ship/shipped_record.h"

// What the engine refuses, or why it cannot be reached: in one line, without a password.
class engine_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Where it is, and how it is spoken to.
struct engine_options {
  std::string address;                   // a URL; it holds no password
  std::string user;                      // empty: that of the address, or the engine's default
  std::optional<std::string> password;   // nothing: none
  std::string tls_ca;                    // a file; empty: what the system trusts
  std::string stream = "KPLOG";          // JetStream's
  unsigned replicas = 1;                 // of that stream, where it is made
  std::string tenant;                    // whose records these are; empty: the user's own
  bool has_live_index = false;           // over attributes, while a day is written to
  std::function<bool()> is_to_end = {};  // asked while it is waited for; empty: never
  std::function<void(const std::string& text)> tell = {};  // of what people may want to know
  std::function<void()> put_off = {};  // called for each try that the engine itself tries again
};

// A record that the engine will never take; or several, of which it does not say which they are.
struct refused_record {
  uint64_t line = 0;  // of several, from there on they may be
  std::string text = {};
  uint64_t records = 1;  // so many they are
};

// What became of the oldest of the batches that an engine was handed.
struct store_result {
  size_t batches = 1;   // so many of them are there now
  uint64_t known = 0;   // records of these that it had before
  uint64_t pruned = 0;  // of days that were removed there
  std::vector<refused_record> refused = {};
};

// How a journal is, as its sender last told.
struct journal_state {
  uint64_t waiting_bytes = 0;     // of lines that are not confirmed
  uint64_t given_up = 0;          // records that were removed before they were confirmed
  bool is_given_up_exact = true;  // otherwise there are more of these
};

// Takes records. Every operation raises engine_error; behind that batches that were on their way
// count for nothing, and it connects again with the next. Used by one thread at a time.
class ship_engine {
 public:
  virtual ~ship_engine() = default;

  // A batch has about so many bytes of lines at most.
  virtual size_t batch_bytes() const { return size_t{4} << 20; }
  // How far it has the journal's segments; nothing where it keeps no positions. Called while no
  // batch is on its way.
  virtual std::optional<std::vector<segment_position>> positions(
      const journal_identity& journal) = 0;
  // Keeps the kit, which the records behind this are shown by, under its hash. Called before the
  // first batch, and again behind an error.
  virtual void offer(const record_kit& kit) = 0;
  // Takes the batch, and says which are there: this one and all before it, or, where the engine
  // has several on their way at a time, some of those before it. Records of a batch that is there
  // are there once each, and so is the position behind them. One that is not is as it was, or as it
  // will be.
  virtual store_result store(const ship_batch& batch) = 0;
  // Waits until those on their way are there.
  virtual store_result settle() { return {.batches = 0}; }
  // Called at times; where the engine keeps no states nothing happens.
  virtual void tell(const journal_identity& journal, const journal_state& state) = 0;
};

// A kit, and the journals whose records were sent with it. Records are shown by the kits of their
// own journal: two products may call what differs version 2.0.
struct kit_user {
  journal_identity journal;
  uint64_t since = 0;  // of two kits of a journal the one that it began to use later has more
};
struct archived_kit {
  record_kit kit;
  std::vector<kit_user> users;
};

// Hands records back: by host, journal, segment and line; those that follow as they arrive. Raises
// engine_error. Used by one thread at a time.
class record_archive {
 public:
  virtual ~record_archive() = default;

  // Kits of the records that are asked for, the newest last.
  virtual std::vector<archived_kit> kits() = 0;
  // The next record; it lives until the next call. False: there is none, or, where they are
  // followed, none came within the time.
  virtual bool next(archived_record& record, std::chrono::milliseconds patience) = 0;
};

// How many records there are of a day and an event. Days are those of the segments.
struct day_event {
  std::string day;  // "20261115"
  uint32_t event = 0;

  auto operator<=>(const day_event&) const = default;
};
using day_counts = std::map<day_event, uint64_t>;

// "2026-11-15" of "20261115".
std::string day_with_dashes(std::string day);

// The event under which a record counts whose event its sender's definitions did not know: the
// number that it tells first, as the stored form does, so that definitions which come later change
// no count; 0: it tells none.
uint32_t event_of_unknown(std::string_view record);

// What is there of a journal.
struct fleet_row {
  journal_identity journal;
  uint64_t records = 0;
  std::optional<int64_t> told;    // when its sender told last, in seconds since 1970
  std::optional<int64_t> newest;  // time of its newest record, likewise
  journal_state state;
};

// The whole of what an engine has. Raises engine_error.
class fleet_view {
 public:
  virtual ~fleet_view() = default;

  virtual day_counts counts(const journal_identity& journal, const std::string& since_day) = 0;
  virtual std::vector<fleet_row> rows() = 0;
  // Removes all days before that one; says what it removed, a line for each day.
  virtual std::vector<std::string> prune(const std::string& before_day) = 0;
};

// An engine by the scheme of its address, "postgresql".
struct engine_row {
  std::string_view scheme;
  // Raises engine_error for an address that is none, whether or not anything is there.
  void (*check)(const std::string& address) = nullptr;
  std::unique_ptr<ship_engine> (*open)(const engine_options& options) = nullptr;
  // What those that keep no records lack.
  std::unique_ptr<record_archive> (*ask)(const engine_options& options,
                                         const archive_query& query) = nullptr;
  std::unique_ptr<fleet_view> (*view)(const engine_options& options) = nullptr;
  // What has to be there before, as text, and made.
  std::string (*schema)(const engine_options& options) = nullptr;
  void (*create)(const engine_options& options) = nullptr;
  // Why it takes neither a user nor a password; empty: it does.
  std::string_view fault_of_users = {};
};

// Those of this program: none, before a program tells of its own.
void use_engines(std::span<const engine_row> engines);
std::span<const engine_row> engines();

#endif
