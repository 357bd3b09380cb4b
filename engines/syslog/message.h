// Records as messages of syslog (docs/syslog.md).
#ifndef ENGINES_SYSLOG_MESSAGE_H
#define ENGINES_SYSLOG_MESSAGE_H

#include <cstddef>
#include <string>
#include <string_view>

#include "engines/common/pipeline_record.h"
#include "tools/ship/shipped_record.h"

// Severities by levels, of which 0 is the most severe: from alert to debug.
unsigned syslog_severity(unsigned level);

// What all messages have in common.
struct syslog_form {
  unsigned facility = 16;        // local0
  std::string enterprise = "0";  // whose names those of structured data are
  size_t longest = 8192;         // bytes of a message
};

// A name of structured data, of up to 32 characters: printable ASCII without = ] " and blanks. A
// text that is none becomes one which tells a part of it, and is another one for another text.
std::string syslog_name(std::string_view text);

// A header's field: printable ASCII, and "-" for no text.
std::string syslog_field(std::string_view text, size_t longest);

class syslog_element;

// Used by one thread at a time.
class syslog_message_writer {
 public:
  syslog_message_writer(const journal_identity& journal, std::string_view segment,
                        const syslog_form& form);

  // Appends the message behind its size, as streams have them. False where it is cut, because it
  // would be longer than they may be.
  bool append(std::string& frames, const shipped_record& shipped, const pipeline_record& record);

 private:
  std::string header_of(const pipeline_record& record) const;
  void add_own(syslog_element& element, const shipped_record& shipped,
               const pipeline_record& record) const;
  bool append_elements(std::string& text, const pipeline_record& record, size_t room) const;

  const journal_identity& journal_;
  std::string segment_;
  syslog_form form_;
};

#endif
