// Records as a request of OTLP: ExportLogsServiceRequest in the JSON encoding (docs/otlp.md).
#ifndef ENGINES_OTLP_LOG_REQUEST_H
#define ENGINES_OTLP_LOG_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engines/common/pipeline_record.h"
#include "recording/text/line_writer.h"
#include "tools/ship/shipped_record.h"

// Severities by levels, of which 0 is the most severe: the numbers of the data model for logs.
unsigned otlp_severity(unsigned level);

// Puts records together that have their resource and scope in common. Used by one thread at a time.
class otlp_log_request {
 public:
  otlp_log_request(const journal_identity& journal, std::string_view segment);

  // Appends the record. False where its time does not fit: it is then an attribute alone.
  bool add(const shipped_record& shipped, const pipeline_record& record, uint64_t now);

  size_t records() const { return records_; }
  size_t size() const { return size_; }  // bytes that it has so far, about
  std::string text() const;

 private:
  // Records of one resource and scope.
  struct group {
    std::string head;  // up to the list of records
    std::string logs;
  };

  group& group_of(const pipeline_record& record);
  void append_resource(const pipeline_record& record);
  bool append_times(const pipeline_record& record, uint64_t now);
  void append_trace(std::string_view context);
  void append_attributes(const shipped_record& shipped, const pipeline_record& record);

  const journal_identity& journal_;
  std::string segment_;
  std::vector<group> groups_;
  std::unordered_map<std::string, size_t> places_;  // of heads among the groups
  size_t records_ = 0;
  size_t size_ = 0;
  line_writer line_;  // the record that is added
  line_writer head_;  // of its group
};

#endif
