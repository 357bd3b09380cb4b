// Any UTF-16 as a template, split by the Unicode tokenizer.
#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kp_LOG_errors.h"
#include "logging/logmsg.h"
#include "logging/logmsg_token.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<char16_t> units(size / 2);
  if (!units.empty()) std::memcpy(units.data(), data, 2 * units.size());
  const icu::UnicodeString text(units.data(), static_cast<int>(units.size()));
  _kp_LOG_msg_token_list list;
  try {
    _kp_LOG_log_message::_tokenize_string(text, list);
  } catch (const KPX_logging_internal_error&) {
    return 0;  // a name that does not fit in two bytes a unit
  }
  size_t tokens = 0;
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) ++tokens;
  if (tokens > units.size() + 1) std::abort();
  return 0;
}
