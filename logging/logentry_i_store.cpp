// The attribute store of an entry: checks, typed adds and gets, removal, and run-time declarations.
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "logging/def_read.h"
#include "logging/ldf_load.h"
#include "logging/logentry_i_private.h"
#include "logging/settings.h"

// --- Store --------------------------------------------------------------------------------------

const _kp_LOG_type_base* _kp_LOG_log_entry_imp::_held(
    const _kp_LOG_hashed_name& name) const noexcept {
  const held_attribute* const held = attributes_.find(name);
  return held != nullptr ? held->value : nullptr;
}

bool _kp_LOG_log_entry_imp::_holds(const char* name) const noexcept {
  return !kp_log_is_blank(name) && _held(_kp_LOG_hashed_name(name)) != nullptr;
}

void _kp_LOG_log_entry_imp::_for_each_attribute(
    const std::function<void(const char* name, kp_AttributeType type)>& visitor) const {
  attributes_.for_each([&](const held_attribute& held) {
    visitor(held.name.c_str(), static_cast<kp_AttributeType>(held.value->get_type()));
  });
}

// Entries are copied by the classes of their values: one without a class is not let in.
static bool has_class(const _kp_LOG_type_base& value) {
  return kp_log_with_class(value.get_type(), [](auto) {});
}

void _kp_LOG_log_entry_imp::_add_attribute(const char* name, _kp_LOG_type_base* value) {
  if (kp_log_is_blank(name)) {
    kp_log_raise_invalid_argument(kp_log_told(
        "%s:%d _kp_LOG_log_entry_imp::_add_attribute, name=NULL\n", kp_log_entry_source, __LINE__));
  }
  if (value == nullptr || !has_class(*value)) kp_log_raise_invalid_argument();
  modified_ = true;
  attributes_.expect_memory();
  held_attribute& held = attributes_.find_or_insert(kp_String(name), my_hashcode(name));
  if (held.value == nullptr) {
    held.value = value;
  } else if (held.value->get_type() != value->get_type()) {
    _kp_LOG_attribute_store::destroy_value(held);
    held.value = value;
  } else if (held.value != value) {
    held.value->get_and_set(value);
    delete value;
  }
}

void _kp_LOG_log_entry_imp::_clear_attribute_list() {
  modified_ = true;
  attributes_.clear();
}

void _kp_LOG_log_entry_imp::clear_attribs(bool full) {
  _clear(full);
}

bool _kp_LOG_log_entry_imp::remove_attrib(const char* name) {
  if (kp_log_is_blank(name)) {
    // Without a newline, as readers of the log know it.
    kp_log_raise_invalid_argument(kp_log_told(
        "%s:%d _kp_LOG_log_entry_imp::remove_attrib, name==NULL", kp_log_entry_source, __LINE__));
  }
  held_attribute* const held = attributes_.find(_kp_LOG_hashed_name(name));
  if (held == nullptr) return false;
  modified_ = true;
  attributes_.remove(held);
  return true;
}

// --- Checks -------------------------------------------------------------------------------------

[[gnu::cold]] void kp_log_raise_without_definition() {
  kp_log_raise<KPX_logging_misc>(
      "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
}

const _kp_LOG_log_entry_imp::held_attribute* _kp_LOG_log_entry_imp::_find(
    const char* name, const _kp_LOG_attribute_entry*& declared) const noexcept {
  declared = definition_ ? _kp_LOG_declared_attributes::find(*definition_.get(), name) : nullptr;
  return attributes_.find(declared != nullptr ? _kp_LOG_hashed_name(declared->get_name_string(),
                                                                    declared->get_name_hash())
                                              : _kp_LOG_hashed_name(name));
}

[[noreturn, gnu::cold]] static void refuse(const _kp_LOG_attribute_entry* declared,
                                           const char* name, unsigned entry_id) {
  if (declared == nullptr) {
    kp_log_raise_undeclared(
        name, entry_id,
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::_check_attribute, %s is an invalid attribute "
                    "under Entry ID\n",
                    kp_log_entry_source, __LINE__, name));
  }
  kp_log_raise_under_id<KPX_logging_attribute_type_mismatch>(
      "", "Used the wrong add method", entry_id,
      kp_log_told("%s:%d _kp_LOG_log_entry_imp::_check_attribute, attribute type is not sample as "
                  "provide\n",
                  kp_log_entry_source, __LINE__));
}

[[gnu::always_inline]] inline const _kp_LOG_attribute_entry& _kp_LOG_log_entry_imp::_declared_as(
    const char* name, kp_AttributeType type) const {
  const _kp_LOG_attribute_entry* const declared = _declared(name);
  if (declared == nullptr || declared->get_type() != type) refuse(declared, name, entry_id_);
  return *declared;
}

void _kp_LOG_log_entry_imp::_check_attribute(const char* name, kp_AttributeType type) const {
  if (kp_log_is_blank(name)) {
    kp_log_raise_invalid_argument(
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::_check_attribute, name==NULL\n",
                    kp_log_entry_source, __LINE__));
  }
  static_cast<void>(_declared_as(name, type));
}

const _kp_LOG_type_base* _kp_LOG_log_entry_imp::_get_attribute_internal(const char* name,
                                                                        unsigned char& type) const {
  kp_log_require_name(name);
  const _kp_LOG_attribute_entry* declared = nullptr;
  if (const held_attribute* const held = _find(name, declared)) {
    type = held->value->get_type();
    return held->value;
  }
  if (!definition_) kp_log_raise_without_definition();
  if (declared == nullptr) kp_log_raise_undeclared(name, entry_id_);
  type = declared->get_type();
  return nullptr;
}

void _kp_LOG_log_entry_imp::_throw_on_missing_attribute(const char* name) {
  if (kp_load(*kp_log_settings::current().operation_mode) != 1) return;
  kp_log_raise<KPX_logging_attribute_not_found>(
      {"<KPX_logging_attribute_not_found> Attribute ", name, " cannot be located."});
}

int _kp_LOG_log_entry_imp::check_attribute(const char* name, kp_AttributeType& type) {
  if (kp_log_is_blank(name)) return -1;
  const _kp_LOG_attribute_entry* declared = nullptr;
  if (const held_attribute* const held = _find(name, declared)) {
    type = static_cast<kp_AttributeType>(held->value->get_type());
    return 0;
  }
  if (!definition_) declared = _kp_LOG_log_definition::_find_global_attr_entry_by_name(name);
  type = declared != nullptr ? static_cast<kp_AttributeType>(declared->get_type()) : TypeUnknown;
  return declared != nullptr ? 1 : -1;
}

// --- Typed adds ---------------------------------------------------------------------------------

template <class T, unsigned char code>
void _kp_LOG_log_entry_imp::_add(const char* name, T value) {
  kp_log_require_name(name);
  _store_number(_declared_as(name, static_cast<kp_AttributeType>(code)), code, value);
}

void _kp_LOG_log_entry_imp::add_attrib_bool(const char* name, bool value) {
  _add<bool, TypeBool>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_1u(const char* name, unsigned char value) {
  _add<unsigned char, TypeUInt1>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_1(const char* name, char value) {
  _add<char, TypeSInt1>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_2u(const char* name, unsigned short value) {
  _add<unsigned short, TypeUInt2>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_2(const char* name, short value) {
  _add<short, TypeSInt2>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_4u(const char* name, unsigned value) {
  _add<unsigned, TypeUInt4>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_4(const char* name, int value) {
  _add<int, TypeSInt4>(name, value);
}

void _kp_LOG_log_entry_imp::add_attrib_float8(const char* name, double value) {
  _add<double, TypeFloat>(name, value);
}

// One add for dates, times and timestamps: the declared type decides. It writes no debug lines.
void _kp_LOG_log_entry_imp::add_attrib_time(const char* name, const kp_Time& value) {
  kp_log_require_name(name);
  const _kp_LOG_attribute_entry* declared = _declared(name);
  if (declared == nullptr) kp_log_raise_undeclared(name, entry_id_);
  const unsigned char code = declared->get_type();
  if (!is_time_attribute(static_cast<kp_AttributeType>(code)))
    kp_log_raise_under_id<KPX_logging_attribute_type_mismatch>("", "Use the wrong add method",
                                                               entry_id_);
  _store(*declared, code, kp_Time(value));
}

// --- Adds by key --------------------------------------------------------------------------------

// Whatever the definition does not have as the key says goes the way of the name, to its outcome
// and its errors.
template <class T, unsigned char code>
void _kp_LOG_log_entry_imp::_add_keyed(const kp_LOG_AttributeKey& key, T value) {
  const _kp_LOG_attribute_entry* const declared = _declared_at(key);
  if (declared == nullptr || declared->get_type() != code) return _add<T, code>(key.name(), value);
  _store_number(*declared, code, value);
}

void _kp_LOG_log_entry_imp::add_keyed_bool(const kp_LOG_AttributeKey& key, bool value) {
  _add_keyed<bool, TypeBool>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_1u(const kp_LOG_AttributeKey& key, unsigned char value) {
  _add_keyed<unsigned char, TypeUInt1>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_1(const kp_LOG_AttributeKey& key, char value) {
  _add_keyed<char, TypeSInt1>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_2u(const kp_LOG_AttributeKey& key, unsigned short value) {
  _add_keyed<unsigned short, TypeUInt2>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_2(const kp_LOG_AttributeKey& key, short value) {
  _add_keyed<short, TypeSInt2>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_4u(const kp_LOG_AttributeKey& key, unsigned value) {
  _add_keyed<unsigned, TypeUInt4>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_4(const kp_LOG_AttributeKey& key, int value) {
  _add_keyed<int, TypeSInt4>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_float8(const kp_LOG_AttributeKey& key, double value) {
  _add_keyed<double, TypeFloat>(key, value);
}

void _kp_LOG_log_entry_imp::add_keyed_time(const kp_LOG_AttributeKey& key, const kp_Time& value) {
  const _kp_LOG_attribute_entry* const declared = _declared_at(key);
  if (declared == nullptr ||
      !is_time_attribute(static_cast<kp_AttributeType>(declared->get_type())))
    return add_attrib_time(key.name(), value);
  _store(*declared, declared->get_type(), kp_Time(value));
}

// --- Typed gets ---------------------------------------------------------------------------------

[[noreturn]] static void raise_wrong_get(unsigned entry_id) {
  kp_log_raise_under_id<KPX_logging_attribute_type_mismatch>("", "Use the wrong get method",
                                                             entry_id);
}

template <class T, unsigned char code>
bool _kp_LOG_log_entry_imp::_get(const char* name, T& out) const {
  unsigned char type = 0;
  const _kp_LOG_type_base* held = _get_attribute_internal(name, type);
  if (type != code) raise_wrong_get(entry_id_);
  if (held == nullptr) return false;
  out = kp_log_value_in<T>(*held);
  return true;
}

template <class T, unsigned char code>
T _kp_LOG_log_entry_imp::_get(const char* name) const {
  T value{};
  if (!_get<T, code>(name, value)) _throw_on_missing_attribute(name);
  return value;
}

template <class Text, unsigned char first, unsigned char last>
bool _kp_LOG_log_entry_imp::_get_text(const char* name, const char*& out) const {
  unsigned char type = 0;
  const _kp_LOG_type_base* held = _get_attribute_internal(name, type);
  if (type < first || type > last) raise_wrong_get(entry_id_);
  if (held == nullptr) return false;
  out = kp_log_value_in<Text>(*held).c_str();
  return true;
}

bool _kp_LOG_log_entry_imp::get_attrib_bool(const char* name) const {
  return _get<bool, TypeBool>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_bool(const char* name, bool& out) const {
  return _get<bool, TypeBool>(name, out);
}

unsigned char _kp_LOG_log_entry_imp::get_attrib_1u(const char* name) const {
  return _get<unsigned char, TypeUInt1>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_1u(const char* name, unsigned char& out) const {
  return _get<unsigned char, TypeUInt1>(name, out);
}

char _kp_LOG_log_entry_imp::get_attrib_1(const char* name) const {
  return _get<char, TypeSInt1>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_1(const char* name, char& out) const {
  return _get<char, TypeSInt1>(name, out);
}

unsigned short _kp_LOG_log_entry_imp::get_attrib_2u(const char* name) const {
  return _get<unsigned short, TypeUInt2>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_2u(const char* name, unsigned short& out) const {
  return _get<unsigned short, TypeUInt2>(name, out);
}

short _kp_LOG_log_entry_imp::get_attrib_2(const char* name) const {
  return _get<short, TypeSInt2>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_2(const char* name, short& out) const {
  return _get<short, TypeSInt2>(name, out);
}

unsigned _kp_LOG_log_entry_imp::get_attrib_4u(const char* name) const {
  return _get<unsigned, TypeUInt4>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_4u(const char* name, unsigned& out) const {
  return _get<unsigned, TypeUInt4>(name, out);
}

int _kp_LOG_log_entry_imp::get_attrib_4(const char* name) const {
  return _get<int, TypeSInt4>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_4(const char* name, int& out) const {
  return _get<int, TypeSInt4>(name, out);
}

double _kp_LOG_log_entry_imp::get_attrib_float8(const char* name) const {
  return _get<double, TypeFloat>(name);
}

bool _kp_LOG_log_entry_imp::get_attrib_float8(const char* name, double& out) const {
  return _get<double, TypeFloat>(name, out);
}

const char* _kp_LOG_log_entry_imp::get_attrib_str(const char* name) const {
  const char* text = "";
  if (!get_attrib_str(name, text)) _throw_on_missing_attribute(name);
  return text;
}

bool _kp_LOG_log_entry_imp::get_attrib_str(const char* name, const char*& out) const {
  return _get_text<kp_String, TypeChar32, TypeChar2K>(name, out);
}

const char* _kp_LOG_log_entry_imp::get_attrib_mbstr(const char* name) const {
  const char* text = "";
  if (!get_attrib_mbstr(name, text)) _throw_on_missing_attribute(name);
  return text;
}

bool _kp_LOG_log_entry_imp::get_attrib_mbstr(const char* name, const char*& out) const {
  return _get_text<_kp_LOG_ustring, TypeMBChar32, TypeMBChar2K>(name, out);
}

kp_Time _kp_LOG_log_entry_imp::get_attrib_time(const char* name) const {
  kp_Time time;
  if (!get_attrib_time(name, time)) _throw_on_missing_attribute(name);
  return time;
}

bool _kp_LOG_log_entry_imp::get_attrib_time(const char* name, kp_Time& out) const {
  kp_log_require_name(name);
  if (std::strcmp(name, "TIMESTAMP") == 0) {
    out = timestamp_;
    return true;
  }
  unsigned char type = 0;
  const _kp_LOG_type_base* held = _get_attribute_internal(name, type);
  if (held == nullptr) return false;
  if (!is_time_attribute(static_cast<kp_AttributeType>(type))) raise_wrong_get(entry_id_);
  out = kp_log_value_in<kp_Time>(*held);
  return true;
}

int _kp_LOG_log_entry_imp::get_attrib_as_4(const char* name) const {
  unsigned char type = 0;
  _get_attribute_internal(name, type);
  switch (type) {
    case TypeBool:
      return 0;
    case TypeUInt1:
      return get_attrib_1u(name);
    case TypeSInt1:
      return static_cast<signed char>(get_attrib_1(name));
    case TypeUInt2:
      return get_attrib_2u(name);
    case TypeSInt2:
      return get_attrib_2(name);
    case TypeUInt4:
      return static_cast<int>(get_attrib_4u(name));
    case TypeSInt4:
      return get_attrib_4(name);
    default:
      raise_wrong_get(entry_id_);
  }
}

// --- Run-time declarations ----------------------------------------------------------------------

bool _kp_LOG_log_entry_imp::add_product_specific_attribute_definition(unsigned entry_id,
                                                                      const char* name,
                                                                      kp_AttributeType type) {
  if (kp_log_is_blank(name) || type < 0 || type > 25) {
    kp_log_raise_invalid_argument(
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::add_product_specific_attribute_definition, "
                    "invalid argument\n",
                    kp_log_entry_source, __LINE__));
  }
  const auto code = static_cast<unsigned char>(type);
  if (entry_id == 0) return _kp_LOG_log_definition::add_new_global_attr_info(name, code);
  LogDebugMessage(2,
                  "%s:%d _kp_LOG_log_entry_imp::add_product_specific_attribute_definition, id=%d, "
                  "name=%s, type=%d \n",
                  kp_log_entry_source, __LINE__, static_cast<int>(entry_id), name,
                  static_cast<int>(type));
  bool found = false;
  const bool added =
      kp_LOG_LogConfig::GetDefinitionTable()->declare_attribute(entry_id, name, code, found);
  if (found) return added;
  kp_log_raise<KPX_logging_entry_type_not_found>(
      "Entry id argument is invalid",
      kp_log_told("%s:%d _kp_LOG_log_entry_imp::add_product_specific_attribute_definition, entry "
                  "id is invalid\n",
                  kp_log_entry_source, __LINE__));
}
