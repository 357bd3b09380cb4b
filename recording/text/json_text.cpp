#include "recording/text/json_text.h"

#include "recording/text/escape.h"

json_text& json_text::append(char mark) {
  json_ += mark;
  return *this;
}

// Only what stands behind another member or value needs a comma.
void json_text::separate() {
  const char last = json_.empty() ? '\n' : json_.back();
  if (last != '{' && last != '[' && last != ':' && last != '\n') json_ += ',';
}

json_text& json_text::begin(char bracket) {
  separate();
  return append(bracket);
}

json_text& json_text::key(std::string_view name) {
  text(name);
  return append(':');
}

json_text& json_text::text(std::string_view text) {
  separate();
  append_json_text(json_, text);
  return *this;
}

json_text& json_text::written(std::string_view json) {
  separate();
  json_ += json;
  return *this;
}
