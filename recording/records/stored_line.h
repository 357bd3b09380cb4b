// Lines of the stored form as they are written, read by what they look like (docs/records.md).
#ifndef RECORDING_RECORDS_STORED_LINE_H
#define RECORDING_RECORDS_STORED_LINE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "recording/records/parser.h"

// Several times as quick as the parser: most of a line is as in a line before, and is held against
// that. Used by one thread at a time.
class stored_line_reader {
 public:
  stored_line_reader();

  // Makes of the line what record_parser makes of it; what the record points to lives as long as
  // the line, and until the next call. False for a line that is not exactly as the stored form is
  // written, and for one that has an escape \uNNNN, one in a name, a context or very many
  // attributes: what is in `record` has no meaning then, and the parser tells what the line is.
  bool read(std::string_view line, parsed_record& record);

 private:
  class walk;
  // What the lines of an event have in common, as JSON.
  struct shape {
    std::vector<std::string> names;  // "USER_NAME":
    std::string types;               // {"USER_NAME":"MBChar64"}
  };
  // {"version":"2.0","event":1001,"name":"USER_LOGIN","level": and what it says.
  struct known_start {
    std::string text;
    parsed_record record;  // without its texts
    size_t version_size = 0;
    size_t event_size = 0;
    size_t name_size = 0;
  };

  std::string texts_;          // without their escapes
  std::vector<shape> shapes_;  // of events whose IDs are alike
  shape* shape_;               // of the line before
  known_start start_;          // of that line
  std::string second_, zone_;  // when that was recorded, but for the fraction
};

#endif
