// Hands records back from JetStream, and what they are shown by (docs/shipping-nats.md).
#ifndef ENGINES_NATS_ARCHIVE_H
#define ENGINES_NATS_ARCHIVE_H

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engines/nats/record_filter.h"
#include "engines/nats/record_scan.h"

class nats_archive : public record_archive {
 public:
  nats_archive(engine_options options, archive_query query);

  std::vector<archived_kit> kits() override;
  bool next(archived_record& record, std::chrono::milliseconds patience) override;

 private:
  struct kit_use {
    std::string hash;
    std::vector<kit_user> users;
  };

  std::vector<kit_use> kit_uses(nats_link& link) const;
  std::optional<record_kit> kit(nats_link& link, const std::string& hash) const;
  bool next_arrival(archived_record& record, std::chrono::milliseconds patience);
  void take_arrivals(natsMsg* message);

  lasting_link link_;
  archive_query query_;
  nats_subjects subjects_;
  nats_record_filter filter_;
  nats_record_filter arriving_;  // of what comes while they are followed
  nats_record_scan scan_;
  bool is_scanned_ = false;
  nats_record_scan::found_record found_;
  // Of those that follow:
  arrival_joiner joiner_;
  uint64_t from_ = 0;  // behind all messages that were taken
  bool has_followed_ = false;
  std::unique_ptr<nats_stream_reader> reader_;
  std::deque<std::pair<record_place, std::string>> arrived_;  // the first was handed out
  bool is_first_handed_ = false;
};

#endif
