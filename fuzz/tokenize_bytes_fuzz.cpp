// Any bytes as a template, split by the byte tokenizer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/kp_exception.h"
#include "logging/logmsg.h"
#include "logging/logmsg_token.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Tokens never hold more than the template: every token but an escape's takes its bytes from there.
static void check(const _kp_LOG_msg_token_list& list, size_t size) {
  size_t tokens = 0;
  const _kp_LOG_msg_token* last = nullptr;
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) {
    ++tokens;
    last = token;
  }
  if (tokens > size + 1 || last != list.tail) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const kp_String text(reinterpret_cast<const char*>(data), static_cast<unsigned>(size));
  _kp_LOG_msg_token_list list;
  try {
    _kp_LOG_log_message::_tokenize_kpString(text, list);
  } catch (const KPX_index_out_of_bounds&) {
    if (size == 0 || data[size - 1] != '%') std::abort();
  }
  check(list, size);
  return 0;
}
