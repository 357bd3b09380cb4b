// Any template and any values, through both renderers. The first 16 bytes are the values; the rest,
// as far as the first NUL, is the template, in UTF-8.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kp_LOG_errors.h"
#include "logging/log_definition.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_token.h"

#include <unicode/unistr.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char* const names[] = {"BOOL", "U1", "S1", "U2", "S2", "U4", "S4", "REAL"};

// Only what is described may come out of a renderer.
template <class Render>
static void attempt(Render render) {
  try {
    render();
  } catch (const KPX_logging_all&) {
    return;
  } catch (const KPX_index_out_of_bounds&) {
    return;
  }
}

static void declare_attributes(_kp_LOG_log_definition& definition) {
  unsigned char type = TypeBool;
  for (const char* name : names) definition.add_attr_info(name, type++, false, nullptr);
  definition.add_attr_info("TEXT", TypeChar2K, false, nullptr);
  definition.add_attr_info("MBTEXT", TypeMBChar2K, false, nullptr);
  definition.add_attr_info("STAMP", TypeTimestamp, false, nullptr);
}

// Values go straight into the store: the entry has no definition of its own here.
static void add_values(_kp_LOG_log_entry_imp& entry, const uint8_t* data) {
  int integer = 0;
  double real = 0;
  std::memcpy(&integer, data, sizeof integer);
  std::memcpy(&real, data + 4, sizeof real);
  const std::string text(reinterpret_cast<const char*>(data + 4), 12);
  entry._add_attribute("S4", new _kp_LOG_datatype<int, TypeSInt4>(integer));
  entry._add_attribute("REAL", new _kp_LOG_datatype<double, TypeFloat>(real));
  entry._add_attribute("TEXT",
                       new _kp_LOG_datatype<kp_String, TypeChar2K>(kp_String(text.c_str())));
  entry._add_attribute(
      "MBTEXT", new _kp_LOG_datatype<_kp_LOG_ustring, TypeMBChar2K>(_kp_LOG_ustring(text.c_str())));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t value_bytes = 16;
  if (size < value_bytes) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + value_bytes, size - value_bytes);
  _kp_LOG_log_definition definition;
  declare_attributes(definition);
  definition.set_default_msg_text(text.c_str());
  _kp_LOG_log_entry_imp entry;
  add_values(entry, data);
  attempt([&] { _kp_LOG_log_message::get_kpString_message(entry, &definition, true, 0); });
  attempt([&] { _kp_LOG_log_message::get_message(entry, &definition, true, 0); });
  return 0;
}
