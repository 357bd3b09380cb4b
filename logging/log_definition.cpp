#include "logging/log_definition.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "base/kp_hash.h"
#include "logging/attribute_store.h"
#include "logging/def_read.h"
#include "logging/log_definition_globals.h"
#include "logging/log_definition_list.h"
#include "logging/raise.h"

static const char* or_empty(const char* text) noexcept {
  return text != nullptr ? text : "";
}

static const char* text_or_null(const kp_String& text) noexcept {
  return text.has_buffer() ? text.c_str() : nullptr;
}

// A new T, owned.
template <class T, class... Args>
static std::unique_ptr<T> make_owned(Args&&... args) {
  std::unique_ptr<T> made(new (std::nothrow) T(std::forward<Args>(args)...));
  if (made == nullptr) kp_log_raise_alloc();
  return made;
}

// ---- attributes and selector messages ----

_kp_LOG_attribute_entry::_kp_LOG_attribute_entry(const char* name, const char* redirection,
                                                 unsigned char type)
    : _kp_LOG_attribute_entry(kp_String(or_empty(name)), kp_String(redirection), type) {}

_kp_LOG_attribute_entry::_kp_LOG_attribute_entry(kp_String&& name, kp_String&& redirection,
                                                 unsigned char type) noexcept
    : name_(std::move(name)),
      redirection_name_(std::move(redirection)),
      type_(type),
      name_hash_(my_hashcode(name_.c_str())),
      name_chain_(_kp_LOG_attribute_store::chain_of(name_hash_)),
      name_key_(name_.c_str(), name_.length()) {}

void _kp_LOG_attribute_entry::set_name(const char* name) {
  name_ = kp_String(or_empty(name));
  name_hash_ = my_hashcode(name_.c_str());
  name_chain_ = _kp_LOG_attribute_store::chain_of(name_hash_);
  name_key_ = _kp_LOG_name_key(name_.c_str(), name_.length());
  if (listed_in_ == nullptr) return;
  listed_in_->was_renamed = true;
  listed_in_->index_anew();
}

void _kp_LOG_attribute_entry::set_redirection_name(const char* redirection) {
  redirection_name_ = kp_String(redirection);
  if (listed_in_ != nullptr) listed_in_->was_renamed = true;
}

const char* _kp_LOG_attribute_entry::get_redirection_name() const noexcept {
  return redirection_name_.length() != 0 ? redirection_name_.c_str() : nullptr;
}

_kp_LOG_selector_message::_kp_LOG_selector_message(unsigned index, unsigned value,
                                                   const char* msg_id, const char* msg_text)
    : _kp_LOG_selector_message(index, value, kp_String(msg_id), kp_String(msg_text)) {}

_kp_LOG_selector_message::_kp_LOG_selector_message(unsigned index, unsigned value,
                                                   kp_String&& msg_id,
                                                   kp_String&& msg_text) noexcept
    : index_(index), value_(value), msg_id_(std::move(msg_id)), msg_text_(std::move(msg_text)) {}

const char* _kp_LOG_selector_message::get_msg_id() const noexcept {
  return text_or_null(msg_id_);
}

const char* _kp_LOG_selector_message::get_msg_text() const noexcept {
  return text_or_null(msg_text_);
}

// ---- a definition's own fields ----

_kp_LOG_log_definition::_kp_LOG_log_definition() noexcept = default;

_kp_LOG_log_definition::~_kp_LOG_log_definition() {
  attributes_.clear();
}

void _kp_LOG_log_definition::_unpin() const noexcept {
  if (pins_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

const char* _kp_LOG_log_definition::get_default_msg_id() const noexcept {
  return text_or_null(now().default_msg_id);
}

const char* _kp_LOG_log_definition::get_default_msg_text() const noexcept {
  return text_or_null(now().default_msg_text);
}

// The number that the digits at the start of `text` tell, moving behind them; 0 without any. At
// most 15 digits stand in a version text; more than 32 bits are the largest number.
static unsigned leading_number(const char*& text) noexcept {
  uint64_t number = 0;
  for (; *text >= '0' && *text <= '9'; ++text)
    number = number * 10 + static_cast<unsigned>(*text - '0');
  return static_cast<unsigned>(std::min<uint64_t>(number, UINT32_MAX));
}

static _kp_LOG_version_numbers numbers_of_version(const char* text) noexcept {
  _kp_LOG_version_numbers numbers;
  numbers.major_number = leading_number(text);
  text += std::strcspn(text, ".");
  numbers.has_minor = *text == '.';
  if (numbers.has_minor) numbers.minor_number = leading_number(++text);
  return numbers;
}

void _kp_LOG_log_definition::set_log_version(const char* version) noexcept {
  const char* const text = or_empty(version);
  auto& held = now().log_version;
  const size_t length = strnlen(text, sizeof held - 1);
  std::memset(held, 0, sizeof held);
  std::memcpy(held, text, length);
  now().version_numbers = numbers_of_version(held);
}

void _kp_LOG_log_definition::set_default_msg_id(const char* id) {
  set_default_msg_id(kp_String(id));
}

void _kp_LOG_log_definition::set_default_msg_text(const char* text) {
  set_default_msg_text(kp_String(text));
}

void _kp_LOG_log_definition::set_default_msg_id(kp_String&& id) noexcept {
  now().default_msg_id = std::move(id);
  now().default_msg_identity.renew();
}

void _kp_LOG_log_definition::set_default_msg_text(kp_String&& text) noexcept {
  now().default_msg_text = std::move(text);
  now().default_msg_identity.renew();
}

// ---- looking up ----

_kp_LOG_attribute_entry* _kp_LOG_declared_attributes::find_global(
    const _kp_LOG_name_key& name) noexcept {
  const _kp_LOG_global_attributes* const globals = _kp_LOG_global_attributes::current();
  return globals != nullptr ? globals->find(name) : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_declared_attributes::find_long_or_global(
    const _kp_LOG_log_definition& definition, const char* name) noexcept {
  return definition.get_attr_info_by_name(_kp_LOG_name_key(name));
}

_kp_LOG_attribute_entry* _kp_LOG_log_definition::_find_attr_entry_by_name(
    const char* name) const noexcept {
  return name != nullptr ? attributes_.find(_kp_LOG_name_key(name)) : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_log_definition::get_attr_info_by_name(
    const char* name) const noexcept {
  return name != nullptr ? get_attr_info_by_name(_kp_LOG_name_key(name)) : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_log_definition::get_attr_info_by_name(
    const _kp_LOG_name_key& name) const noexcept {
  _kp_LOG_attribute_entry* const own = attributes_.find(name);
  return own != nullptr ? own : _kp_LOG_declared_attributes::find_global(name);
}

bool _kp_LOG_log_definition::get_attr_info_by_name(const char* name, unsigned char& type,
                                                   const char*& redirection) const noexcept {
  const _kp_LOG_attribute_entry* const entry = get_attr_info_by_name(name);
  if (entry == nullptr) return false;
  type = entry->get_type();
  redirection = entry->get_redirection_name();
  return true;
}

void _kp_LOG_log_definition::get_attr_info_by_index(unsigned char i, const char*& name,
                                                    unsigned char& type,
                                                    const char*& redirection) const {
  const _kp_LOG_attribute_entry* const entry = attributes_.at(i);
  if (entry == nullptr)
    kp_log_raise<KPX_logging_internal_error>("_kp_LOG_log_definition::get_attr_info_by_index()");
  name = entry->get_name();
  type = entry->get_type();
  redirection = entry->get_redirection_name();
}

// The first message for which `matches` is true, or null.
template <class Messages, class Matches>
static _kp_LOG_selector_message* first_message(const Messages& messages, Matches matches) noexcept {
  const auto found = std::find_if(messages.begin(), messages.end(),
                                  [&](const auto& message) { return matches(*message); });
  return found != messages.end() ? found->get() : nullptr;
}

_kp_LOG_selector_message* _kp_LOG_log_definition::get_selector_msg_by_index(
    unsigned index) const noexcept {
  return first_message(now().selector_msgs,
                       [index](const auto& message) { return message.get_index() == index; });
}

_kp_LOG_selector_message* _kp_LOG_log_definition::get_selector_msg_by_value(
    unsigned value) const noexcept {
  return first_message(now().selector_msgs,
                       [value](const auto& message) { return message.get_value() == value; });
}

unsigned char _kp_LOG_log_definition::get_n_selector_msgs() const noexcept {
  return static_cast<unsigned char>(now().selector_msgs.size());
}

_kp_LOG_selector_message* _kp_LOG_log_definition::get_selector_msg(unsigned char i) const noexcept {
  const auto& messages = now().selector_msgs;
  return i < messages.size() ? messages[i].get() : nullptr;
}

// ---- changing ----

// A parked selector is given up when another attribute, or none, takes its place.
void _kp_LOG_log_definition::set_selector(_kp_LOG_attribute_entry* entry) noexcept {
  now().selector = entry;
  now().parked_selector.reset();
}

void _kp_LOG_log_definition::set_selector_attribute(const char* name) noexcept {
  const unsigned n = attributes_.size();
  for (unsigned i = 0; i < n; ++i) {
    _kp_LOG_attribute_entry* const entry = attributes_.at(static_cast<unsigned char>(i));
    if (std::strcmp(entry->get_name(), or_empty(name)) == 0) return set_selector(entry);
  }
}

void _kp_LOG_log_definition::add_selector_msg(unsigned index, unsigned value, const char* msg_id,
                                              const char* msg_text) {
  add_selector_msg(make_owned<_kp_LOG_selector_message>(index, value, msg_id, msg_text));
}

void _kp_LOG_log_definition::add_selector_msg(std::unique_ptr<_kp_LOG_selector_message>&& message) {
  auto& messages = now().selector_msgs;
  if (messages.size() == kp_ldf_max_count) kp_log_raise_corrupted_definition();
  kp_log_no_bad_alloc([&] { messages.push_back(std::move(message)); });
}

void _kp_LOG_log_definition::reserve_attributes(unsigned count) {
  attributes_.reserve(attributes_.size() + std::min(count, kp_ldf_max_count));
}

// Out of the list, with whatever it was the selector of.
std::unique_ptr<_kp_LOG_attribute_entry> _kp_LOG_log_definition::take_attribute(
    _kp_LOG_attribute_entry* entry) noexcept {
  if (entry == nullptr) return nullptr;
  auto taken = attributes_.take(entry);
  if (taken != nullptr) was_changed_ = true;
  if (taken != nullptr && taken.get() == now().selector) set_selector(nullptr);
  return taken;
}

void _kp_LOG_log_definition::add_attr_info(const char* name, unsigned char type, bool is_selector,
                                           const char* redirection) {
  // Lives to the end: the texts may be its own.
  const auto replaced = take_attribute(_find_attr_entry_by_name(or_empty(name)));
  append_attribute(make_owned<_kp_LOG_attribute_entry>(name, redirection, type), is_selector);
}

void _kp_LOG_log_definition::add_attr_info(std::unique_ptr<_kp_LOG_attribute_entry>&& entry,
                                           bool is_selector) {
  take_attribute(attributes_.find(entry->get_name_key()));
  append_attribute(std::move(entry), is_selector);
}

bool _kp_LOG_log_definition::add_new_attr_info(std::unique_ptr<_kp_LOG_attribute_entry>&& entry) {
  if (attributes_.find(entry->get_name_key()) != nullptr) return false;
  append_attribute(std::move(entry), false);
  return true;
}

void _kp_LOG_log_definition::append_attribute(std::unique_ptr<_kp_LOG_attribute_entry>&& entry,
                                              bool is_selector) {
  _kp_LOG_attribute_entry* const added = entry.get();
  attributes_.append(std::move(entry));
  was_changed_ = true;
  if (is_selector) set_selector(added);
}

bool _kp_LOG_log_definition::remove_attr_by_ptr(_kp_LOG_attribute_entry* entry) {
  return take_attribute(entry) != nullptr || _remove_global_attr_by_ptr(entry);
}

void _kp_LOG_log_definition::clear_attr_info() noexcept {
  if (auto selector = attributes_.take(now().selector)) now().parked_selector = std::move(selector);
  attributes_.clear();
  now().selector_msgs.clear();
}

// ---- replacing what it holds ----

void _kp_LOG_log_definition::copy_attributes_to(_kp_LOG_log_definition& other) const {
  const unsigned n = attributes_.size();
  other.reserve_attributes(n);
  for (unsigned i = 0; i < n; ++i) {
    const _kp_LOG_attribute_entry* const entry = attributes_.at(static_cast<unsigned char>(i));
    other.append_attribute(make_owned<_kp_LOG_attribute_entry>(
                               entry->get_name(), entry->get_redirection_name(), entry->get_type()),
                           entry == now().selector);
  }
}

std::unique_ptr<_kp_LOG_log_definition> _kp_LOG_log_definition::copy() const {
  auto made = make_owned<_kp_LOG_log_definition>();
  made->entry_id_ = entry_id_;
  made->set_second_word(get_second_word());
  made->set_property_flags(get_property_flags());
  made->set_log_version(get_log_version());
  made->set_default_msg_id(get_default_msg_id());
  made->set_default_msg_text(get_default_msg_text());
  copy_attributes_to(*made);
  for (const auto& message : now().selector_msgs)
    made->add_selector_msg(message->get_index(), message->get_value(), message->get_msg_id(),
                           message->get_msg_text());
  return made;
}

size_t _kp_LOG_log_definition::bytes() const noexcept {
  constexpr size_t fixed = 32;  // of an entry, an attribute, a message: about what each takes
  const auto length = [](const char* text) { return std::strlen(or_empty(text)); };
  size_t sum = fixed + length(get_default_msg_id()) + length(get_default_msg_text());
  const unsigned n = attributes_.size();
  for (unsigned i = 0; i < n; ++i) {
    const _kp_LOG_attribute_entry* const entry = attributes_.at(static_cast<unsigned char>(i));
    sum += fixed + length(entry->get_name()) + length(entry->get_redirection_name());
  }
  for (const auto& message : now().selector_msgs)
    sum += fixed + length(message->get_msg_id()) + length(message->get_msg_text());
  return sum;
}

// The attributes first: a message that is new finds the attributes that it names.
void _kp_LOG_log_definition::replace_content(std::unique_ptr<_kp_LOG_log_definition> changed) {
  kp_log_no_bad_alloc([this] { former_.emplace_back(); });
  was_changed_ = true;
  attributes_.exchange(changed->attributes_);
  content* const theirs = changed->content_.load(std::memory_order_relaxed);
  changed->content_.store(content_.exchange(theirs, std::memory_order_acq_rel),
                          std::memory_order_relaxed);
  former_.back() = std::move(changed);
}

// ---- global attributes ----

_kp_LOG_attribute_entry** _kp_LOG_log_definition::p_global_attr_entries = nullptr;
unsigned char _kp_LOG_log_definition::n_global_attr_entries = 0;

_kp_LOG_attribute_entry* _kp_LOG_log_definition::_find_global_attr_entry_by_name(
    const char* name) noexcept {
  return name != nullptr ? _kp_LOG_declared_attributes::find_global(_kp_LOG_name_key(name))
                         : nullptr;
}

bool _kp_LOG_log_definition::get_global_attr_info_by_name(const char* name,
                                                          unsigned char& type) noexcept {
  const _kp_LOG_attribute_entry* const entry = _find_global_attr_entry_by_name(name);
  if (entry == nullptr) return false;
  type = entry->get_type();
  return true;
}

void _kp_LOG_log_definition::get_global_attr_info_by_index(unsigned char i, const char*& name,
                                                           unsigned char& type) {
  _kp_LOG_global_attributes* const globals = _kp_LOG_global_attributes::current();
  if (globals == nullptr || i >= globals->size())
    kp_log_raise<KPX_logging_index_out_of_bound>(
        "_kp_LOG_log_definition::get_global_attr_info_by_index()");
  name = globals->entries()[i]->get_name();
  type = globals->entries()[i]->get_type();
}

void _kp_LOG_log_definition::add_global_attr_info(const char* name, unsigned char type) {
  _kp_LOG_global_change change;
  try {
    change.add(name, type);
  } catch (...) {
    change.publish_what_can_be();
    throw;
  }
  change.publish();
}

bool _kp_LOG_log_definition::add_new_global_attr_info(const char* name, unsigned char type) {
  _kp_LOG_global_change change;
  if (change.find(name) != nullptr) return false;
  change.add(name, type);
  change.publish();
  return true;
}

bool _kp_LOG_log_definition::_remove_global_attr_by_ptr(_kp_LOG_attribute_entry* entry) {
  _kp_LOG_global_change change;
  if (!change.remove(entry)) return false;
  change.publish();
  return true;
}

void _kp_LOG_log_definition::clear_global_attr_info() noexcept {
  _kp_LOG_global_attributes::clear();
}
