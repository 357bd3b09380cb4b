#include "tests/support/ldf_bytes.h"

std::string ldf_int4(uint32_t value) {
  std::string bytes(4, '\0');
  for (size_t i = 0; i < 4; ++i) bytes[i] = static_cast<char>(value >> (24 - 8 * i));
  return bytes;
}

std::string ldf_string(std::string_view text) {
  if (text.empty()) return ldf_int4(0);
  return ldf_int4(static_cast<uint32_t>(text.size() + 1)) + std::string(text) + '\0';
}

static std::string attribute_bytes(const ldf_attribute& a) {
  return ldf_string(a.name) + ldf_int4(a.type) + ldf_string(a.redirection);
}

static std::string entry_bytes(const ldf_entry& e) {
  std::string bytes = ldf_int4(e.id) + ldf_int4(e.second_word) + ldf_int4(e.flags) +
                      ldf_string(e.msg_id) + ldf_string(e.msg_text) + ldf_string(e.selector) +
                      ldf_int4(static_cast<uint32_t>(e.attributes.size()));
  for (const auto& a : e.attributes) bytes += attribute_bytes(a);
  bytes += ldf_int4(static_cast<uint32_t>(e.messages.size()));
  for (const auto& m : e.messages)
    bytes += ldf_int4(m.index) + ldf_int4(m.value) + ldf_string(m.id) + ldf_string(m.text);
  return bytes;
}

std::string ldf_file::bytes() const {
  std::string global_section;
  for (const auto& g : globals) global_section += attribute_bytes(g);
  const size_t mapping_offset = 128 + global_section.size();
  size_t record_offset = mapping_offset + 8 * entries.size();
  std::string mapping, records;
  for (const auto& e : entries) {
    const std::string record = entry_bytes(e);
    mapping += ldf_int4(e.id) + ldf_int4(static_cast<uint32_t>(record_offset));
    record_offset += record.size();
    records += record;
  }
  std::string version = log_version.substr(0, 8);
  version.resize(8, '\0');
  std::string header = ".LDF" + std::string(12, '\0') + version + std::string(16, '\0') +
                       ldf_int4(static_cast<uint32_t>(globals.size())) + ldf_int4(128) +
                       ldf_int4(static_cast<uint32_t>(entries.size())) + ldf_int4(0) +
                       ldf_int4(static_cast<uint32_t>(mapping_offset)) + std::string(68, '\0');
  return header + global_section + mapping + records;
}

std::vector<ldf_attribute> ldf_builtin_fields() {
  return {{"SEVERITY_CODE", TypeUInt1},         {"PRODUCT_CODE", TypeUInt2},
          {"PRODUCT_PLATFORM_CODE", TypeUInt2}, {"TIMEZONE_DIFFERENCE", TypeSInt2},
          {"DAYLIGHT_SAVING_ACTIVE", TypeBool}, {"PRODUCT_LANGUAGE_CODE", TypeUInt4},
          {"COMPONENT_CODE", TypeUInt4},        {"REASON_CODE_SOURCE", TypeUInt4},
          {"REASON_CODE", TypeSInt4},           {"COMPUTER_NAME", TypeMBChar64},
          {"PRODUCT_VERSION", TypeMBChar32}};
}

ldf_file ldf_with_every_type(std::string_view template_text) {
  ldf_entry entry{.id = 17, .flags = 1, .msg_id = "M17", .msg_text = std::string(template_text)};
  for (unsigned type = 1; type <= 24; ++type)
    entry.attributes.push_back({std::string("A") + std::to_string(type), type});
  return {.globals = ldf_builtin_fields(), .entries = {entry}};
}
