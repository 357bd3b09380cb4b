#include "logging/logmsg_plan.h"

#include <algorithm>

#include "logging/log_util_kept_text.h"
#include "logging/logmsg.h"
#include "logging/logmsg_token.h"
#include "logging/raise.h"
#include "logging/settings_locale.h"

logmsg_setting::logmsg_setting(const char* input_page, const char* output_page)
    : locale(&kp_log_current_locale()),
      input(input_page),
      output(output_page),
      default_page(icu_text_default_name()) {}

logmsg_plan::logmsg_plan(std::string_view text, logmsg_form form, const logmsg_setting& setting,
                         const _kp_LOG_log_definition& definition)
    : text_(text), form_(form), default_page_(setting.default_page), setting_(setting) {
  setting_.default_page = default_page_.c_str();
  if (form_ == logmsg_form::bytes)
    plan_bytes();
  else
    plan_units();
  literals_.append(logmsg_text::padding, '\0');
  take_types_of(definition);
}

void logmsg_plan::take_types_of(const _kp_LOG_log_definition& definition) noexcept {
  for (step& each : steps_) {
    each.type = each.placeholder.known_type(definition);
    is_resolved_ = is_resolved_ && each.type != TypeUnknown;
  }
}

bool logmsg_plan::has_types_of(const _kp_LOG_log_definition& definition) const noexcept {
  return std::all_of(steps_.begin(), steps_.end(), [&](const step& each) {
    return each.type == each.placeholder.known_type(definition);
  });
}

size_t logmsg_plan::bytes() const noexcept {
  return sizeof *this + text_.size() + literals_.size() + steps_.size() * (sizeof(step) + 32) +
         static_cast<size_t>(pattern_.length()) * sizeof(char16_t);
}

// --- For the byte renderer ---

void logmsg_plan::plan_bytes() {
  road_ = logmsg_road::direct;
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_kpString(kp_String(text_.c_str()), list);
  size_t taken = 0;  // of the literal texts, by the steps
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) {
    if (const auto* literal = dynamic_cast<const _kp_LOG_kpString_token*>(token)) {
      literals_ += literal->text.c_str();
    } else if (const auto* format = dynamic_cast<const _kp_LOG_fmt_spec_token*>(token)) {
      if (token->next != nullptr) token = token->next;
      steps_.push_back({.placeholder = logmsg_placeholder(*format, format->next),
                        .before_size = literals_.size() - taken,
                        .is_shown = true});
      taken = literals_.size();
    }
  }
}

// --- For the renderer through ICU ---

void logmsg_plan::plan_units() {
  choose_page();
  const logmsg_icu_pattern read(template_units());
  pattern_ = read.pattern();
  if (pattern_.isBogus()) kp_log_raise_alloc();
  road_ = read.taken();
  for (const logmsg_icu_pattern::step& shown : read.steps()) {
    steps_.push_back({.placeholder = shown.placeholder,
                      .before_size = take_literal(shown.before),
                      .is_shown = shown.is_shown,
                      .style = shown.is_shown ? style_of(shown.placeholder.kind()) : nullptr});
    reads_texts_ = reads_texts_ || shown.placeholder.kind() == logmsg_kind::string;
  }
  take_literal(read.rest());
  if (reads_texts_) copying_ = icu_text_copying(input_, page_);
}

icu::UnicodeString logmsg_plan::template_units() const {
  icu::UnicodeString units;
  if (form_ == logmsg_form::catalog) {
    const auto length = static_cast<int>(text_.size() / sizeof(char16_t));
    char16_t* const room = units.getBuffer(length);
    if (room == nullptr) kp_log_raise_alloc();
    std::memcpy(room, text_.data(), text_.size());
    units.releaseBuffer(length);
  } else {  // a default converter that ICU cannot open gives an empty template
    static_cast<void>(icu_text_decode(text_.c_str(), setting_.default_page, units));
  }
  return units;
}

void logmsg_plan::choose_page() {
  const auto named = [this](const char* page) {
    return *page != '\0' ? page : setting_.default_page;
  };
  input_ = named(setting_.input);
  is_converted_whole_ =
      setting_.output == nullptr || !icu_text_is_piecewise(named(setting_.output));
  if (!is_converted_whole_) page_ = kp_log_kept_text(named(setting_.output));
}

const logmsg_number_style<char>* logmsg_plan::style_of(logmsg_kind kind) {
  auto& style = styles_[static_cast<size_t>(kind)];
  if (style) return style.get();
  const auto symbols = logmsg_number_symbols_of(kind, *setting_.locale);
  if (symbols == nullptr) return nullptr;
  style = logmsg_number_style<char>::make(
      *symbols, [this](const auto& symbol, std::string& bytes) { return encode(symbol, bytes); });
  return style.get();
}

// False where the text cannot be written alone.
bool logmsg_plan::encode(const icu::UnicodeString& text, std::string& bytes) const {
  return icu_text_is_well_formed(text) &&
         icu_text_encode(text, page_, bytes) == icu_text_result::ok;
}

// Its size. Where it cannot be written alone ICU has to format the whole.
size_t logmsg_plan::take_literal(const icu::UnicodeString& literal) {
  std::string bytes;
  if (!encode(literal, bytes)) road_ = std::max(road_, logmsg_road::pattern);
  literals_ += bytes;
  return bytes.size();
}
