#include "tests/engines/support/made_batch.h"

#include "engines/common/pipeline_record.h"
#include "recording/text/check_sum.h"

made_batch::made_batch(const std::vector<std::string>& lines, uint64_t first_line)
    : lines_(lines.begin(), lines.end()) {
  before_.segment = after_.segment = "shop.20261115.0001.jsonl";
  before_.extent.lines = first_line - 1;
  after_.extent = before_.extent;
  pipeline_record_reader reader;
  for (const std::string& line : lines_) {
    shipped_record record{.text = line,
                          .line = ++after_.extent.lines,
                          .digest = check_sum(line),
                          .event = {},
                          .level = {},
                          .time = {}};
    if (const pipeline_record* const said = reader.read(record)) {
      record.event = said->event;
      record.level = said->level;
      record.time = said->time;
    }
    records.push_back(record);
    after_.extent.bytes += line.size() + 1;
    after_.extent.last = line.size() + 1;
    after_.extent.digest = record.digest;
  }
  before_.first = after_.first = records.empty() ? 0 : records.front().digest;
}

ship_batch made_batch::batch() const {
  return {.journal = journal, .kit = kit_, .before = before_, .after = after_, .records = records};
}
