#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "base/kp_clib.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_errors.h"
#include "logging/icu_text.h"
#include "logging/logentry_i.h"
#include "logging/logmsg_bytes.h"
#include "logging/logmsg_icu.h"
#include "logging/raise.h"
#include "logging/settings.h"

static constexpr char message_source[] = "logging/logentry_i";
static constexpr char not_supported[] =
    "kp_LOG_LogEntry::GetMessage:  this method is not yet supported.";

// Read once: what the environment says later does not count.
static bool is_rendering_disabled() {
  static const bool disabled = KP_getenv("_KP_DISABLE_READABLE_MSG") != nullptr;
  return disabled;
}

// --- The output converter ---

[[noreturn]] static void raise_no_converter(const char* code_page, const char* text) {
  kp_log_raise<KPX_logging_internal_error>(
      text,
      kp_log_told("%s:%d _kp_LOG_log_entry_imp::get_readable_message, UnicodeConverter construct "
                  "error, codepage=%s\n",
                  message_source, __LINE__, code_page));
}

static void choose_output_code_page(icu_text_kept_code_page& output_code_page,
                                    const char* code_page) {
  if (output_code_page.is_chosen()) return;
  if (*code_page == '\0' && !icu_text_default_is_usable()) {
    raise_no_converter(code_page,
                       "_kp_LOG_log_message::get_readable_message:  Default UnicodeConverter "
                       "constructor failed!");
  }
  if (!output_code_page.choose(code_page)) {
    raise_no_converter(
        code_page,
        "_kp_LOG_log_message::get_readable_message:  UnicodeConverter constructor failed!");
  }
}

// The text names the formatter although the conversion failed; callers know it so.
[[noreturn]] static void raise_not_converted() {
  kp_log_raise<KPX_logging_internal_error>(
      "_kp_LOG_log_message::get_readable_message:  MessageFormat::format() failed!",
      kp_log_told("%s:%d _kp_LOG_log_entry_imp::get_readable_message, fromUnicodeString error\n",
                  message_source, __LINE__));
}

// --- Rendering into a buffer ---

// A text that fills the buffer is followed by a NUL behind it.
static void copy_to(char* buffer, int size, std::string_view text) {
  if (buffer == nullptr || size < 0 || text.size() > static_cast<size_t>(size)) {
    raise_not_converted();
  }
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
}

static void encode_to(char* buffer, int size, const icu::UnicodeString& units,
                      const icu_text_kept_code_page& output_code_page) {
  int written = 0;
  if (buffer == nullptr ||
      output_code_page.encode(units, buffer, size, written) != icu_text_result::ok) {
    raise_not_converted();
  }
  buffer[written] = '\0';
}

// The output code page is chosen when the first message has been rendered, not before.
static void render_through_icu(const _kp_LOG_log_entry_imp& entry, bool use_default, unsigned index,
                               char* buffer, long size) {
  const kp_log_settings& settings = kp_log_settings::current();
  const char* const code_page = settings.code_page.get();
  icu_text_kept_code_page& output_code_page = settings.output_code_page;
  logmsg_message message;
  logmsg_render_icu(entry, entry.get_definition(), use_default, index,
                    {code_page, output_code_page.usable_name()}, message);
  choose_output_code_page(output_code_page, code_page);
  if (message.units)
    encode_to(buffer, static_cast<int>(size), *message.units, output_code_page);
  else
    copy_to(buffer, static_cast<int>(size), message.bytes);
}

static void render_bytes(const _kp_LOG_log_entry_imp& entry, bool use_default, unsigned index,
                         char* buffer, long size) {
  logmsg_text message;
  logmsg_render_bytes(entry, entry.get_definition(), use_default, index, message);
  if (buffer == nullptr || size <= 0) return;
  const size_t room = static_cast<size_t>(size);
  const size_t copied = std::min(message.size(), room - 1);
  std::memcpy(buffer, message.data(), copied);
  std::memset(buffer + copied, 0, room - copied);
}

const char* _kp_LOG_log_entry_imp::get_readable_message(char* buffer, long size, bool use_default,
                                                        unsigned index) const {
  if (is_rendering_disabled()) return not_supported;
  if (!modified_ && cached_message_mode_ == use_default && cached_message_index_ == index) {
    return cached_message_.c_str();
  }
  if (kp_LOG_LogConfig::IsICUEnabled()) {
    render_through_icu(*this, use_default, index, buffer, size);
  } else {
    render_bytes(*this, use_default, index, buffer, size);
  }
  return buffer;
}

// The cache is filled before the message is rendered, so callers get the empty text; programs rely
// on the faults that rendering finds, and on the text.
const char* _kp_LOG_log_entry_imp::get_readable_message(bool use_default, unsigned index) const {
  constexpr long room = 65536;
  char buffer[room + 1];  // a text of exactly `room` bytes is followed by its NUL
  buffer[0] = '\0';
  cached_message_ = _kp_LOG_ustring(buffer);
  get_readable_message(buffer, room, use_default, index);
  modified_ = false;
  cached_message_mode_ = use_default;
  cached_message_index_ = index;
  return cached_message_.c_str();
}

// --- Rendering into a string ---

static std::string encoded(const icu::UnicodeString& units, const char* code_page) {
  std::string bytes;
  switch (icu_text_encode(units, code_page, bytes)) {
    case icu_text_result::ok:
      return bytes;
    case icu_text_result::unknown_code_page:
      raise_no_converter(
          code_page,
          "_kp_LOG_log_message::get_readable_message:  UnicodeConverter constructor failed!");
    case icu_text_result::not_converted:
      break;
  }
  raise_not_converted();
}

static std::string render_through_icu(const _kp_LOG_log_entry_imp& entry, bool use_default,
                                      unsigned index, logmsg_texts texts) {
  // One code page for the values and for the message, whatever is set meanwhile.
  const char* const code_page = kp_LOG_LogConfig::GetCodePage();
  logmsg_message message;
  logmsg_render_icu(entry, entry.get_definition(), use_default, index, {code_page, code_page},
                    message, texts);
  return message.units ? encoded(*message.units, code_page) : std::string(message.bytes);
}

static std::string render(const _kp_LOG_log_entry_imp& entry, bool use_default, unsigned index,
                          logmsg_texts texts) {
  return kp_log_no_bad_alloc([&]() -> std::string {
    if (is_rendering_disabled()) return not_supported;
    if (kp_LOG_LogConfig::IsICUEnabled())
      return render_through_icu(entry, use_default, index, texts);
    logmsg_text message;
    logmsg_render_bytes(entry, entry.get_definition(), use_default, index, message);
    return std::string(message);
  });
}

std::string kp_LOG_RenderMessage(const _kp_LOG_log_entry_imp& entry, bool use_default,
                                 unsigned index) {
  return render(entry, use_default, index, logmsg_texts::catalog);
}

std::string kp_LOG_RenderDefinitionMessage(const _kp_LOG_log_entry_imp& entry, bool use_default,
                                           unsigned index) {
  return render(entry, use_default, index, logmsg_texts::definition);
}
