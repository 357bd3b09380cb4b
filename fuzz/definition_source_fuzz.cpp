// Any bytes as a definition source. Nothing crashes; every diagnostic stands at a place of the
// source; and what compiles is dumped as a source that compiles to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "tools/compiled/verify.h"
#include "tools/compiled/writer.h"
#include "tools/dump/yaml.h"
#include "tools/source/advice.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void require(bool holds) {
  if (!holds) std::abort();
}

static void require_writable(const diagnostic_list& found, const text_file& source) {
  std::ostringstream out;
  found.write(out, {&source}, diagnostic_format::text, true);
  found.write(out, {&source}, diagnostic_format::json, false);
  require(found.empty() == out.str().empty());
}

// The bytes that a source compiles to; none when it does not.
static std::string compiled(const text_file& source) {
  definition_set set;
  diagnostic_list found;
  read_definition_source(source, set, found);
  complete_definition_set(set, found);
  require(set.is_whole || !found.empty());
  std::string bytes;
  if (found.empty()) {
    bytes = definition_file_bytes(set);
    add_advice(set, {}, found);
  }
  require_writable(found, source);
  return bytes;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes =
      compiled(text_file("source", std::string(reinterpret_cast<const char*>(data), size)));
  if (bytes.empty()) return 0;
  definition_file file("file", bytes);
  diagnostic_list found;
  require(read_definition_file(file, found));
  const std::string dumped = definition_yaml(file, found);
  require(found.empty());
  require(compiled(text_file("dump", dumped)) == bytes);
  return 0;
}
