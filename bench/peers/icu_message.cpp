#include "bench/peers/icu_message.h"

#include <stdexcept>
#include <utility>

static void check(UErrorCode status) {
  if (U_FAILURE(status)) throw std::runtime_error(u_errorName(status));
}

static icu::MessageFormat build(const icu::UnicodeString& pattern) {
  UErrorCode status = U_ZERO_ERROR;
  icu::MessageFormat format(pattern, icu::Locale::getUS(), status);
  check(status);
  return format;
}

struct peer_to_formattable {
  icu::Formattable operator()(const std::string& text) const {
    return icu::Formattable(icu::UnicodeString::fromUTF8(text));
  }
  icu::Formattable operator()(uint16_t number) const {
    return icu::Formattable(static_cast<int32_t>(number));
  }
  icu::Formattable operator()(uint32_t number) const {
    return icu::Formattable(static_cast<int64_t>(number));
  }
  icu::Formattable operator()(int32_t number) const { return icu::Formattable(number); }
  icu::Formattable operator()(double number) const { return icu::Formattable(number); }
};

static icu::Formattable time_of(const peer_event<peer_std_map>& event) {
  using milliseconds = std::chrono::duration<UDate, std::milli>;
  const milliseconds since_1970 = event.made_at().time_since_epoch();
  return {since_1970.count(), icu::Formattable::kIsDate};
}

peer_icu_message::peer_icu_message(const char* pattern, std::vector<std::string_view> names)
    : pattern_(icu::UnicodeString::fromUTF8(pattern)),
      names_(std::move(names)),
      format_(build(pattern_)) {}

std::string peer_icu_message::render_anew(const peer_event<peer_std_map>& event) const {
  return render_with(build(pattern_), event);
}

std::string peer_icu_message::render(const peer_event<peer_std_map>& event) const {
  return render_with(format_, event);
}

std::string peer_icu_message::render_with(const icu::MessageFormat& format,
                                          const peer_event<peer_std_map>& event) const {
  std::vector<icu::Formattable> arguments;
  arguments.reserve(names_.size());
  for (std::string_view name : names_)
    arguments.push_back(name == peer_event_time
                            ? time_of(event)
                            : std::visit(peer_to_formattable(), event.get(name)));
  icu::UnicodeString text;
  icu::FieldPosition nowhere(icu::FieldPosition::DONT_CARE);
  UErrorCode status = U_ZERO_ERROR;
  format.format(arguments.data(), static_cast<int32_t>(arguments.size()), text, nowhere, status);
  check(status);
  std::string bytes;
  text.toUTF8String(bytes);
  return bytes;
}
