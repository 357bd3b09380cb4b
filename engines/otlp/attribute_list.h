// Attributes of OTLP: names, each once, with typed values.
#ifndef ENGINES_OTLP_ATTRIBUTE_LIST_H
#define ENGINES_OTLP_ATTRIBUTE_LIST_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "recording/records/parser.h"
#include "recording/text/line_writer.h"

// Appends "attributes" and its list to an object, behind another member. What comes first has the
// name: of two attributes of one name the second is left out.
class otlp_attribute_list {
 public:
  explicit otlp_attribute_list(line_writer& json) : json_(json) {
    json_.append("\"attributes\":[");
  }
  void end() { json_.append(']'); }

  void add(std::string_view name, const record_value& value);
  void add_text(std::string_view name, std::string_view text);
  void add_number(std::string_view name, uint64_t number);
  // The members of an object of JSON, those of objects in it, too: "context.k8s.pod".
  void add_members(const std::string& name, std::string_view json);

 private:
  bool begin(std::string_view name);

  line_writer& json_;
  std::unordered_set<std::string> names_;
};

#endif
