#include "tools/compiled/writer.h"

#include <limits>
#include <stdexcept>
#include <string_view>

#include "base/kp_endian.h"
#include "logging/ldf_format.h"

// Fields of a definition file, appended to one buffer.
class definition_bytes {
 public:
  void add_int4(size_t value) {
    char bytes[4];
    KP_put_big_endian(bytes, static_cast<uint32_t>(value));
    bytes_.append(bytes, sizeof bytes);
  }
  void add_zeros(size_t count) { bytes_.append(count, '\0'); }
  void add_raw(std::string_view bytes) { bytes_ += bytes; }

  // The length counts the terminating NUL; an empty text is a length of 0 alone.
  void add_string(std::string_view text) {
    add_int4(text.empty() ? 0 : text.size() + 1);
    if (!text.empty()) (bytes_ += text) += '\0';
  }

  // Offsets have 32 bits.
  size_t size() const {
    if (bytes_.size() > std::numeric_limits<uint32_t>::max()) throw std::length_error("too large");
    return bytes_.size();
  }
  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

static void add_attributes(definition_bytes& bytes,
                           const std::vector<attribute_model>& attributes) {
  for (const attribute_model& attribute : attributes) {
    bytes.add_string(attribute.name.value);
    bytes.add_int4(static_cast<unsigned>(attribute.type));
    bytes.add_string(attribute.redirection.value);
  }
}

static void add_entry_record(definition_bytes& bytes, const event_model& event) {
  bytes.add_int4(event.id.value);
  bytes.add_int4(event.second_word.value);
  bytes.add_int4(event.flags);
  bytes.add_string(event.message.id.value);
  bytes.add_string(event.message.template_bytes);
  bytes.add_string(event.selector.value);
  bytes.add_int4(event.attributes.size());
  add_attributes(bytes, event.attributes);
  bytes.add_int4(event.messages.size());
  for (const message_model& message : event.messages) {
    bytes.add_int4(message.index.value);
    bytes.add_int4(message.value.value);
    bytes.add_string(message.id.value);
    bytes.add_string(message.template_bytes);
  }
}

static void add_header(definition_bytes& bytes, const definition_set& set, size_t mapping_offset) {
  std::string version = set.log_version.value;
  version.resize(kp_ldf_version_size, '\0');
  bytes.add_int4(kp_ldf_magic);
  bytes.add_zeros(12);
  bytes.add_raw(version);
  bytes.add_zeros(16);
  bytes.add_int4(set.globals.size());
  bytes.add_int4(kp_ldf_header_size);
  bytes.add_int4(set.events.size());
  bytes.add_int4(0);
  bytes.add_int4(mapping_offset);
  bytes.add_zeros(68);
}

std::string definition_file_bytes(const definition_set& set) {
  definition_bytes globals;
  add_attributes(globals, set.globals);
  const size_t mapping_offset = kp_ldf_header_size + globals.size();
  const size_t records_offset = mapping_offset + kp_ldf_mapping_size * set.events.size();

  definition_bytes mapping;
  definition_bytes records;
  for (const event_model& event : set.events) {
    mapping.add_int4(event.id.value);
    mapping.add_int4(records_offset + records.size());
    add_entry_record(records, event);
  }

  definition_bytes file;
  add_header(file, set, mapping_offset);
  file.add_raw(globals.take());
  file.add_raw(mapping.take());
  file.add_raw(records.take());
  file.size();
  return file.take();
}
