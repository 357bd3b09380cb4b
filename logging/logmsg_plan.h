// What a template comes to, worked out once for the process.
#ifndef KP_LOG_LOGMSG_PLAN_H
#define KP_LOG_LOGMSG_PLAN_H

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logging/icu_text.h"
#include "logging/logmsg_icu_pattern.h"
#include "logging/logmsg_numbers.h"
#include "logging/logmsg_placeholder.h"
#include "logging/logmsg_text.h"

// How the bytes of a template read.
enum class logmsg_form {
  bytes,    // by the byte renderer
  text,     // in ICU's default code page
  catalog,  // as UTF-16
};

// The settings under which a template was planned. What shows that they are the same is cheap:
// equal texts of kp_log_kept_text share their address, and so do equal current locales.
struct logmsg_setting {
  // Those of the byte renderer.
  logmsg_setting() noexcept = default;
  // Those of now, for values in the code page `input` and messages in `output`, kept texts both;
  // for a null `output` messages are wanted in UTF-16.
  logmsg_setting(const char* input, const char* output);

  const icu::Locale* locale = nullptr;
  const char* input = "";
  const char* output = "";
  const char* default_page = "";  // which "" stands for
};

// A plan that others share. Immutable but for the count of its shares.
class logmsg_plan {
 public:
  struct step {
    logmsg_placeholder placeholder;
    size_t before_size = 0;  // of the literal text before it
    bool is_shown = false;   // false inside quotes, and without a meaning
    // Of the attribute; unknown where it has to be resolved for each message.
    kp_AttributeType type = TypeUnknown;
    // How a number is written; null when ICU has to show it. The plan's.
    const logmsg_number_style<char>* style = nullptr;
  };

  // Raises KPX_memory_alloc, and what the tokenizers raise.
  logmsg_plan(std::string_view text, logmsg_form form, const logmsg_setting& setting,
              const _kp_LOG_log_definition& definition);

  bool is_under(const logmsg_setting& setting) const noexcept {
    if (setting.locale != setting_.locale) return false;
    if (form_ == logmsg_form::bytes) return true;  // the byte renderer has no locale, nor pages
    return setting.output == setting_.output &&
           (setting.input == setting_.input || !reads_texts_) &&
           std::strcmp(setting.default_page, setting_.default_page) == 0;
  }
  bool is_for(std::string_view text, logmsg_form form, const logmsg_setting& setting,
              const _kp_LOG_log_definition& definition) const noexcept {
    return form == form_ && is_under(setting) && text == text_ && has_types_of(definition);
  }

  logmsg_road taken() const noexcept { return road_; }
  const std::vector<step>& steps() const noexcept { return steps_; }
  // Whether the type of every attribute is known.
  bool is_resolved() const noexcept { return is_resolved_; }
  // The literal texts of all steps, and the one behind them, one after the other, and padding. In
  // the code page of the output, or in UTF-8 where the message has to be converted as a whole.
  const std::string& literals() const noexcept { return literals_; }
  bool is_converted_whole() const noexcept { return is_converted_whole_; }
  const char* page() const noexcept { return page_; }  // a kept text, or "UTF-8"
  // The code page of the values, and what need not be converted of them.
  const char* input() const noexcept { return input_; }
  const icu_text_copying& copying() const noexcept { return copying_; }
  const icu::Locale& locale() const noexcept { return *setting_.locale; }
  // The whole as a message pattern of ICU.
  const icu::UnicodeString& pattern() const noexcept { return pattern_; }

  // About what it takes.
  size_t bytes() const noexcept;
  // Too long to be kept.
  bool is_long() const noexcept { return text_.size() > longest_kept; }

 private:
  friend class logmsg_plan_ref;

  static constexpr size_t longest_kept = 32768;  // bytes of the template

  bool has_types_of(const _kp_LOG_log_definition& definition) const noexcept;
  void take_types_of(const _kp_LOG_log_definition& definition) noexcept;
  void plan_bytes();
  void plan_units();
  void choose_page();
  const logmsg_number_style<char>* style_of(logmsg_kind kind);
  icu::UnicodeString template_units() const;
  bool encode(const icu::UnicodeString& text, std::string& bytes) const;
  size_t take_literal(const icu::UnicodeString& literal);

  const std::string text_;
  const logmsg_form form_;
  std::string default_page_;
  logmsg_setting setting_;
  const char* input_ = "";
  const char* page_ = "UTF-8";
  bool is_converted_whole_ = false;
  bool is_resolved_ = true;
  bool reads_texts_ = false;
  icu_text_copying copying_;
  logmsg_road road_ = logmsg_road::refused;
  std::vector<step> steps_;
  std::array<std::unique_ptr<const logmsg_number_style<char>>, 8> styles_;  // by kind
  std::string literals_;
  icu::UnicodeString pattern_;
  mutable std::atomic<unsigned> shares_{0};
};

// The literal texts of a plan, on their way into a message.
class logmsg_literals {
 public:
  explicit logmsg_literals(const logmsg_plan& plan) noexcept
      : at_(plan.literals().data()), end_(at_ + plan.literals().size() - logmsg_text::padding) {}

  void append_before(const logmsg_plan::step& step, logmsg_text& message) {
    message.append_padded(at_, step.before_size);
    at_ += step.before_size;
  }
  void append_rest(logmsg_text& message) {
    message.append_padded(at_, static_cast<size_t>(end_ - at_));
  }

 private:
  const char* at_;
  const char* const end_;
};

// A share of a plan, or none. The last one that is given up destroys the plan.
class logmsg_plan_ref {
 public:
  logmsg_plan_ref() noexcept = default;
  explicit logmsg_plan_ref(const logmsg_plan* plan) noexcept : plan_(plan) {
    if (plan_ != nullptr) plan_->shares_.fetch_add(1, std::memory_order_relaxed);
  }
  logmsg_plan_ref(const logmsg_plan_ref& other) noexcept : logmsg_plan_ref(other.plan_) {}
  logmsg_plan_ref(logmsg_plan_ref&& other) noexcept : plan_(std::exchange(other.plan_, nullptr)) {}
  logmsg_plan_ref& operator=(logmsg_plan_ref other) noexcept {
    std::swap(plan_, other.plan_);
    return *this;
  }
  ~logmsg_plan_ref() {
    if (plan_ != nullptr && plan_->shares_.fetch_sub(1, std::memory_order_acq_rel) == 1)
      delete plan_;
  }

  const logmsg_plan* get() const noexcept { return plan_; }
  const logmsg_plan* operator->() const noexcept { return plan_; }
  const logmsg_plan& operator*() const noexcept { return *plan_; }

 private:
  const logmsg_plan* plan_ = nullptr;
};

#endif
