// Definition files for tests, written byte by byte from the layout, without the library's own
// writer.
#ifndef TESTS_SUPPORT_LDF_BYTES_H
#define TESTS_SUPPORT_LDF_BYTES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kp_LOG_AttributeType.h"

struct ldf_attribute {
  std::string name;
  unsigned type = 0;
  std::string redirection = {};
};

struct ldf_message {
  unsigned index = 0;
  unsigned value = 0;
  std::string id;
  std::string text;
};

struct ldf_entry {
  unsigned id = 0;
  unsigned second_word = 0;
  unsigned flags = 0;
  std::string msg_id = {};
  std::string msg_text = {};
  std::string selector = {};
  std::vector<ldf_attribute> attributes = {};
  std::vector<ldf_message> messages = {};
};

struct ldf_file {
  std::string log_version = "2.0";
  std::vector<ldf_attribute> globals = {};
  std::vector<ldf_entry> entries = {};

  // Header, globals, mapping table, entry records, in this order.
  std::string bytes() const;
};

std::string ldf_int4(uint32_t value);           // four bytes, most significant first
std::string ldf_string(std::string_view text);  // length with the NUL, bytes, NUL; empty: length 0

// A file whose one entry, ID 17, declares an attribute "A1" to "A24" of every type, and whose
// globals are the built-in fields. Its default message text is `template_text`.
ldf_file ldf_with_every_type(std::string_view template_text = "");

// The built-in fields with their types, as global attributes.
std::vector<ldf_attribute> ldf_builtin_fields();

#endif
