#include "logging/ldf_load_record.h"

#include <memory>
#include <new>
#include <utility>

#include "logging/def_read_items.h"
#include "logging/raise.h"

void kp_ldf_raise_file_error(int line) {
  kp_log_raise_unreadable_definition(
      kp_log_told("%s:%d _throw_file_io_error()\n", kp_ldf_load_source, line));
}

// What stands in a record before its lists.
struct _kp_LOG_ldf_record_head {
  unsigned id = 0;
  unsigned second_word = 0;
  unsigned property_flags = 0;
  kp_String default_msg_id;
  kp_String default_msg_text;
  kp_String selector_attribute;
  unsigned n_attributes = 0;
};

static void read_head(_kp_LOG_ldf_view& view, _kp_LOG_ldf_record_head& head) {
  const bool done =
      kp_ldf_read_entry_info(view, head.id, head.second_word, head.property_flags,
                             head.default_msg_id, head.default_msg_text, head.selector_attribute) &&
      kp_ldf_read_int4(view, head.n_attributes);
  if (!done) kp_ldf_raise_file_error(__LINE__);
}

// An AUX record names the selector attribute that the definition has, or none.
static void require_same_selector(const _kp_LOG_log_definition& def, const kp_String& name) {
  const _kp_LOG_attribute_entry* const selector = def.get_selector_attribute();
  if (selector == nullptr || name.length() == 0 || name.compare(selector->get_name()) == 0) return;
  kp_log_raise<KPX_logging_invalid_definition>(
      "<KPX_logging_invalid_definition> selector_attribute name conflict.");
}

// Only the selector attribute may be declared again.
static void add_attribute(_kp_LOG_log_definition& def, kp_String&& name, kp_AttributeType type,
                          kp_String&& redirection, bool is_selector) {
  std::unique_ptr<_kp_LOG_attribute_entry> entry(new (std::nothrow) _kp_LOG_attribute_entry(
      std::move(name), std::move(redirection), static_cast<unsigned char>(type)));
  if (entry == nullptr) kp_log_raise_alloc();
  if (is_selector) return def.add_attr_info(std::move(entry), true);
  if (def.add_new_attr_info(std::move(entry))) return;
  // NOLINTNEXTLINE(bugprone-use-after-move): it was not taken over
  const char* const held = entry->get_name();
  kp_log_raise<KPX_logging_invalid_definition>(
      {"<KPX_logging_invalid_definition> attribute ", held, " already exist."});
}

// Whether there was none but the selector attribute.
static bool load_attributes(_kp_LOG_ldf_view& view, const _kp_LOG_ldf_record_head& head,
                            _kp_LOG_log_definition& def) {
  const kp_String& selector = head.selector_attribute;
  bool are_selectors = true;
  def.reserve_attributes(head.n_attributes);
  for (unsigned i = 0; i < head.n_attributes; ++i) {
    kp_String name, redirection;
    kp_AttributeType type = TypeUnknown;
    if (!kp_ldf_read_attribute(view, name, type, redirection)) kp_ldf_raise_file_error(__LINE__);
    const bool is_selector = selector.length() != 0 && name == selector;
    add_attribute(def, std::move(name), type, std::move(redirection), is_selector);
    are_selectors = are_selectors && is_selector;
  }
  return are_selectors;
}

// An AUX message must differ in index and value from the first `n_held` messages of the definition,
// those that it held before.
static void require_new_message(const _kp_LOG_log_definition& def, unsigned n_held, unsigned index,
                                unsigned value) {
  for (unsigned i = 0; i < n_held; ++i) {
    const auto* const held = def.get_selector_msg(static_cast<unsigned char>(i));
    if (held->get_index() == index || held->get_value() == value)
      kp_log_raise<KPX_logging_invalid_definition>(
          "<KPX_logging_invalid_definition> selector message index in AUX definition file conflict "
          "with STD definition");
  }
}

// In a selector message an empty text counts as none.
static kp_String&& none_if_empty(kp_String& text) noexcept {
  if (text.length() == 0) text = kp_String();
  return std::move(text);
}

static void load_message(_kp_LOG_ldf_view& view, unsigned n_held, _kp_LOG_log_definition& def) {
  unsigned index = 0, value = 0;
  kp_String msg_id, msg_text;
  if (!kp_ldf_read_selector_msg(view, index, value, msg_id, msg_text))
    kp_ldf_raise_file_error(__LINE__);
  require_new_message(def, n_held, index, value);
  std::unique_ptr<_kp_LOG_selector_message> message(new (std::nothrow) _kp_LOG_selector_message(
      index, value, none_if_empty(msg_id), none_if_empty(msg_text)));
  if (message == nullptr) kp_log_raise_alloc();
  def.add_selector_msg(std::move(message));
}

// Whether there was none.
static bool load_messages(_kp_LOG_ldf_view& view, bool is_aux, _kp_LOG_log_definition& def) {
  const unsigned n_held = is_aux ? def.get_n_selector_msgs() : 0;
  unsigned count = 0;
  if (!kp_ldf_read_int4(view, count)) kp_ldf_raise_file_error(__LINE__);
  for (unsigned i = 0; i < count; ++i) load_message(view, n_held, def);
  return count == 0;
}

// A file that adds to another keeps the other's property flags and, unless it brings a whole one of
// its own, its default message.
static void apply_head(_kp_LOG_ldf_record_head& head, const _kp_LOG_ldf_record_source& source,
                       _kp_LOG_log_definition& def) {
  def.set_entry_id(head.id);
  def.set_second_word(head.second_word);
  if (def.get_property_flags() == 0) def.set_property_flags(head.property_flags);
  const bool is_whole = head.default_msg_id.length() != 0 && head.default_msg_text.length() != 0;
  if (!source.is_aux || is_whole) {
    def.set_default_msg_id(std::move(head.default_msg_id));
    def.set_default_msg_text(std::move(head.default_msg_text));
  }
  def.set_log_version(source.log_version);
}

bool kp_ldf_load_record(_kp_LOG_ldf_view& view, const _kp_LOG_ldf_record_source& source,
                        unsigned id, _kp_LOG_log_definition& def) {
  _kp_LOG_ldf_record_head head;
  read_head(view, head);
  if (head.id != id) kp_log_raise_corrupted_definition();
  if (source.is_aux) require_same_selector(def, head.selector_attribute);
  const bool are_selectors = load_attributes(view, head, def);
  const bool has_no_messages = load_messages(view, source.is_aux, def);
  apply_head(head, source, def);
  return are_selectors && has_no_messages;
}
