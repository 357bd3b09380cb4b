// Which messages, and which of the records in them, may fit a question.
#ifndef ENGINES_NATS_RECORD_FILTER_H
#define ENGINES_NATS_RECORD_FILTER_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engines/nats/subject.h"
#include "tools/ship/archive_query.h"

// Records of unknown events and levels may always fit.
class nats_record_filter {
 public:
  nats_record_filter(const nats_subjects& subjects, const archive_query& query);

  // Subjects that together hold all records that may fit. Where hosts, events and levels make too
  // many, there are fewer, which hold more.
  std::vector<std::string> subjects() const;
  // One subject that holds them.
  std::string subject() const;
  // Whether records of a message may fit, by its subject.
  bool may_fit(std::string_view subject) const;
  bool is_host(std::string_view host) const;

 private:
  bool has_patterns() const;

  const nats_subjects& subjects_;
  std::vector<std::string> hosts_;            // none: any
  std::optional<std::set<uint32_t>> events_;  // nothing: any
  unsigned lowest_level_;
  unsigned highest_level_;
};

#endif
