// A question as conditions of SQL: what it asks for, or more of it.
#ifndef ENGINES_POSTGRESQL_QUESTION_H
#define ENGINES_POSTGRESQL_QUESTION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engines/postgresql/connection.h"
#include "tools/ship/archive_query.h"

// A statement that is put together; whatever comes from outside is a value of it.
class pg_statement {
 public:
  pg_statement& text(const std::string& text) {
    text_ += text;
    return *this;
  }
  // A value, and where it is meant in the text: "$3".
  std::string value(std::string value);
  pg_statement& add(std::string value) { return text(this->value(std::move(value))); }

  const std::string& text() const { return text_; }
  const pg_values& values() const { return values_; }

 private:
  std::string text_;
  pg_values values_;
};

// Which segments may hold what is asked for, as conditions behind others: " and ...".
void add_segment_conditions(pg_statement& statement, const archive_query& query);

// Which records of a segment, but for the groups, and by these. `has_unknown_events`: the segment
// holds some.
void add_record_conditions(pg_statement& statement, const archive_query& query);
void add_group_conditions(pg_statement& statement, const archive_query& query,
                          bool has_unknown_events);

// Objects of JSON of which one is in the attributes of every record that is asked for; nothing
// where there are no such.
std::optional<std::vector<std::string>> contained_attributes(const archive_query& query);

#endif
