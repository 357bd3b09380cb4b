// Records as the pipelines of others take them: every value with its type, times as moments.
#ifndef ENGINES_COMMON_PIPELINE_RECORD_H
#define ENGINES_COMMON_PIPELINE_RECORD_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "recording/records/parser.h"
#include "tools/ship/shipped_record.h"

struct pipeline_record {
  // What the line says. An attribute of the type Float is of the kind `real`, also where it is
  // written as a whole number; "NaN" and its like are of that kind, too.
  const parsed_record* said = nullptr;
  std::string_view name = {};          // of the event; empty: it has none
  std::optional<uint32_t> event = {};  // its ID
  std::optional<unsigned> level = {};
  std::optional<int64_t> time = {};      // seconds since 1970-01-01T00:00:00Z
  std::optional<int64_t> recorded = {};  // likewise
  std::string fraction = {};             // of the second of `recorded`: up to nine digits
};

// Reads one record after the other. Used by one thread at a time.
class pipeline_record_reader {
 public:
  pipeline_record_reader();
  ~pipeline_record_reader();

  // What it points to lives until the next call. Null for a line that is no record: then fault()
  // says why.
  const pipeline_record* read(const shipped_record& record);
  const std::string& fault() const { return fault_; }

 private:
  struct state;

  std::unique_ptr<state> state_;
  pipeline_record record_;
  std::string fault_;
};

// Seconds since 1970-01-01T00:00:00Z, of years from 0000 to 9999; nothing for what is not written
// as the stored form has its times, with or without a fraction: "2026-11-15T17:02:56.125+08:00".
std::optional<int64_t> told_moment_of(std::string_view text);

// The name by which a journal is known: what stands behind the last slash.
std::string_view name_of_journal(const journal_identity& journal);

// A text that is another one for every record: "host:/var/log/shop/shop:SEGMENT:LINE:DIGEST".
std::string identity_text(const journal_identity& journal, std::string_view segment,
                          const shipped_record& record);

#endif
