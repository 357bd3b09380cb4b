// The log entry itself: what kp_LOG_LogEntry owns and forwards to.
#ifndef KP_LOG_LOGENTRY_I_H
#define KP_LOG_LOGENTRY_I_H

#include <cstdarg>
#include <cstddef>
#include <functional>
#include <new>

#include "base/kp_string.h"
#include "base/kp_time.h"
#include "kp_LOG_AttributeKey.h"
#include "kp_LOG_AttributeType.h"
#include "logging/attr_value.h"
#include "logging/attribute_store.h"
#include "logging/log_definition.h"
#include "logging/ustring.h"

class _kp_LOG_log_definition_tbl;

// The highest log level.
constexpr unsigned LOG_LEVEL_HIGH = 9;

// Whether messages may name `name` although no entry carries it as an attribute, and with which
// type: "PRODUCT_ID", "COMPONENT_ID", "VERSION_ID" and "COMPONENT_VERSION_ID" (TypeMBChar32),
// "TIMESTAMP" (TypeTimestamp). `type` is written only when the result is true.
KP_API bool is_default_info_fields(const char* name, kp_AttributeType& type);

// One event: header, attributes, and the cached readable message. See kp_LOG_LogEntry for the
// general contract; this class adds the built-in fields, the timestamp, unescaped strings, and
// rendering into a buffer. One entry is used by one thread at a time.
//
// Texts of errors name the entry where they end in "under Entry ID N !", N being the ID in decimal.
class KP_API _kp_LOG_log_entry_imp {
 public:
  // --- Life ---
  // An empty entry. Takes the process-wide log version from the first definition with ID 0 to 9.
  _kp_LOG_log_entry_imp();
  // Takes the process-wide log version from the entry's own definition. Raises
  // KPX_logging_entry_type_not_found "Entry id argument is invalid" and
  // KPX_logging_invalid_log_level "log level argument is invalid under Entry ID N !".
  _kp_LOG_log_entry_imp(unsigned entry_id, unsigned log_level);
  // An entry of a definition that the table need not know, at level 0.
  explicit _kp_LOG_log_entry_imp(_kp_LOG_definition_ref definition);
  _kp_LOG_log_entry_imp(const _kp_LOG_log_entry_imp& other);
  // Clears this entry first, also when assigned to itself, then copies. When the copy fails
  // half-way the steps before the failure stay.
  _kp_LOG_log_entry_imp& operator=(const _kp_LOG_log_entry_imp& other);
  ~_kp_LOG_log_entry_imp();

  // A thread keeps the memory of the entry that it let go last, and makes the next one in it.
  static void* operator new(size_t size);
  static void* operator new(size_t size, const std::nothrow_t&) noexcept;
  static void* operator new(size_t, void* place) noexcept { return place; }
  static void* operator new(size_t size, std::align_val_t alignment) {
    return ::operator new(size, alignment);
  }
  static void* operator new(size_t size, std::align_val_t alignment,
                            const std::nothrow_t& tag) noexcept {
    return ::operator new(size, alignment, tag);
  }
  static void operator delete(void* memory) noexcept;
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ::operator delete(memory, alignment);
  }
  // Where a constructor raises behind the second of these.
  static void operator delete(void* memory, const std::nothrow_t&) noexcept {
    operator delete(memory);
  }

  // --- Header ---
  unsigned get_entry_id() const noexcept { return entry_id_; }
  unsigned get_log_level() const noexcept { return log_level_; }
  unsigned get_property_mask() const noexcept { return property_mask_; }
  const char* get_version_text() const noexcept { return version_text_; }
  // Null while the entry is detached: made without an ID, or given an unknown one.
  const _kp_LOG_log_definition* get_definition() const noexcept { return definition_.get(); }
  // Attaches the definition and sets the level to 0; attributes stay. For an unknown ID the entry
  // keeps its ID and is detached: KPX_logging_entry_type_not_found "Entry id argument is invalid".
  void set_entry_id(unsigned id);
  void set_log_level(unsigned level);  // KPX_logging_invalid_log_level above 9

  // --- Log version: process-wide ---
  // 2 to 99, else KPX_logging_illegal_argument
  // "invalid argument:major version should >=2 && <=99".
  static void set_log_major_version(unsigned version);
  // 0 to 999, else KPX_logging_illegal_argument
  // "invalid argument:minor version should >=0 && <=999".
  static void set_log_minor_version(unsigned version);
  static void set_log_version(unsigned major, unsigned minor);  // major first; it stays set
  // The version of the first definition with ID 0 to 9, which replaces the stored one; without such
  // a definition the stored one.
  static void get_log_version(unsigned& major, unsigned& minor);
  static unsigned get_log_major_version();
  static unsigned get_log_minor_version();

  // --- Timestamp ---
  // Stores the time, told in GMT or local time as `gmt` says, and adds TIMEZONE_DIFFERENCE (minutes
  // ahead of GMT) and DAYLIGHT_SAVING_ACTIVE when they differ from the values last added; the
  // entry's kind, or all kinds, must declare these two. Raises what adding them raises; the time
  // itself is then stored all the same. Programs use kp_LOG_SetTime (kp_LOG_EntryAccess.h).
  void set_timestamp(const kp_Time& time, bool gmt);
  kp_Time get_timestamp(bool gmt) const;  // a copy, converted to the mode asked for

  // --- Built-in fields: typed adds and gets under reserved names, with their errors ---
  void set_severity_code(unsigned value);          // SEVERITY_CODE, cut to 8 bits
  void set_product_code(unsigned value);           // PRODUCT_CODE, cut to 16 bits
  void set_product_platform_code(unsigned value);  // PRODUCT_PLATFORM_CODE, cut to 16 bits
  void set_product_language_code(unsigned value);  // PRODUCT_LANGUAGE_CODE
  void set_component_code(unsigned value);         // COMPONENT_CODE
  void set_reason_code_source(unsigned value);     // REASON_CODE_SOURCE
  void set_reason_code(int value);                 // REASON_CODE
  // Null or empty: KPX_logging_illegal_argument "invalid argument:computer_info",
  // "invalid argument:product_version".
  void set_computer_info(const char* name);    // COMPUTER_NAME
  void set_product_version(const char* text);  // PRODUCT_VERSION
  unsigned char get_severity_code() const;
  unsigned short get_product_code() const;
  unsigned short get_product_platform_code() const;
  unsigned get_product_language_code() const;
  unsigned get_component_code() const;
  unsigned get_reason_code_source() const;
  int get_reason_code() const;
  const char* get_computer_info() const;
  const char* get_product_version() const;

  // --- Adding ---
  void add_attrib_bool(const char* name, bool value);
  void add_attrib_1u(const char* name, unsigned char value);
  void add_attrib_1(const char* name, char value);
  void add_attrib_2u(const char* name, unsigned short value);
  void add_attrib_2(const char* name, short value);
  void add_attrib_4u(const char* name, unsigned value);
  void add_attrib_4(const char* name, int value);
  void add_attrib_float8(const char* name, double value);
  void add_attrib_time(const char* name, const kp_Time& value);
  // `escape` true stores CR and LF as the two characters \r and \n; false does the reverse.
  void add_attrib_str(const char* name, const char* value, bool escape);
  void add_attrib_mbstr(const char* name, const char* value, bool escape);
  // The same by key, with line breaks escaped.
  void add_keyed_bool(const kp_LOG_AttributeKey& key, bool value);
  void add_keyed_1u(const kp_LOG_AttributeKey& key, unsigned char value);
  void add_keyed_1(const kp_LOG_AttributeKey& key, char value);
  void add_keyed_2u(const kp_LOG_AttributeKey& key, unsigned short value);
  void add_keyed_2(const kp_LOG_AttributeKey& key, short value);
  void add_keyed_4u(const kp_LOG_AttributeKey& key, unsigned value);
  void add_keyed_4(const kp_LOG_AttributeKey& key, int value);
  void add_keyed_float8(const kp_LOG_AttributeKey& key, double value);
  void add_keyed_time(const kp_LOG_AttributeKey& key, const kp_Time& value);
  void add_keyed_str(const kp_LOG_AttributeKey& key, const char* value);
  void add_keyed_mbstr(const kp_LOG_AttributeKey& key, const char* value);
  // A list of names and values as kp_LOG_LogEntry::SetEntry describes it.
  void add_attributes(va_list args);

  // --- Reading ---
  bool get_attrib_bool(const char* name) const;
  bool get_attrib_bool(const char* name, bool& out) const;
  unsigned char get_attrib_1u(const char* name) const;
  bool get_attrib_1u(const char* name, unsigned char& out) const;
  char get_attrib_1(const char* name) const;
  bool get_attrib_1(const char* name, char& out) const;
  unsigned short get_attrib_2u(const char* name) const;
  bool get_attrib_2u(const char* name, unsigned short& out) const;
  short get_attrib_2(const char* name) const;
  bool get_attrib_2(const char* name, short& out) const;
  unsigned get_attrib_4u(const char* name) const;
  bool get_attrib_4u(const char* name, unsigned& out) const;
  int get_attrib_4(const char* name) const;
  bool get_attrib_4(const char* name, int& out) const;
  double get_attrib_float8(const char* name) const;
  bool get_attrib_float8(const char* name, double& out) const;
  const char* get_attrib_str(const char* name) const;
  bool get_attrib_str(const char* name, const char*& out) const;
  const char* get_attrib_mbstr(const char* name) const;
  bool get_attrib_mbstr(const char* name, const char*& out) const;
  // "TIMESTAMP" is the entry's own timestamp, as stored. For a declared name that is not held the
  // type does not matter.
  kp_Time get_attrib_time(const char* name) const;
  bool get_attrib_time(const char* name, kp_Time& out) const;
  // Any integer attribute, widened; 0 for a bool whatever its value.
  int get_attrib_as_4(const char* name) const;

  bool remove_attrib(const char* name);
  // Level 0, timestamp zero, no attributes; `full` empties the four text slots as well. ID,
  // property mask, version text and definition stay.
  void clear_attribs(bool full);
  int check_attribute(const char* name, kp_AttributeType& type);
  // As kp_LOG_LogEntry::AddAttributeDefinition.
  static bool add_product_specific_attribute_definition(unsigned entry_id, const char* name,
                                                        kp_AttributeType type);

  // --- Readable message ---
  // Renders into `buffer` of `size` bytes and returns the text to use: the buffer; the cached
  // message when nothing changed since it was made with the same arguments; or, with the
  // environment variable
  // "_KP_DISABLE_READABLE_MSG" set at the first call of the process, the text
  // "kp_LOG_LogEntry::GetMessage:  this method is not yet supported.". Under ICU a text that fills
  // all `size` bytes is followed by a NUL one byte past them: pass a size one less than the
  // buffer's. With ICU disabled the text is cut to size - 1 bytes and the rest is filled with NULs.
  // The output converter is made for the code page that is set at the first ICU rendering of the
  // process, and kept. Raises KPX_logging_internal_error
  //   "_kp_LOG_log_message::get_readable_message:  UnicodeConverter constructor failed!"
  //   "_kp_LOG_log_message::get_readable_message:  Default UnicodeConverter constructor failed!"
  //   "_kp_LOG_log_message::get_readable_message:  MessageFormat::format() failed!": a text that
  //   cannot be converted or does not fit
  // KPX_logging_misc "...: entry not initialized" without a definition, and what rendering raises.
  const char* get_readable_message(char* buffer, long size, bool use_default, unsigned index) const;
  // See kp_LOG_LogEntry::GetReadableMessage.
  const char* get_readable_message(bool use_default, unsigned index) const;

  // --- Parts of the operations above, callable on their own ---
  // Null or empty name, undeclared name, or another declared type than `type` raise.
  void _check_attribute(const char* name, kp_AttributeType type) const;
  // Stores the value, replacing a held one; takes ownership unless it raises. Raises
  // KPX_logging_illegal_argument "invalid argument" for a null or empty name, a null value, and a
  // value whose type code is not one of 1 to 24.
  void _add_attribute(const char* name, _kp_LOG_type_base* value);
  // The held value, or null when the name is only declared; `type` is the value's or the declared
  // type's code.
  const _kp_LOG_type_base* _get_attribute_internal(const char* name, unsigned char& type) const;
  // In strict mode raises KPX_logging_attribute_not_found
  // "<KPX_logging_attribute_not_found> Attribute NAME cannot be located.".
  static void _throw_on_missing_attribute(const char* name);
  void _clear_attribute_list();
  void _copy(const _kp_LOG_log_entry_imp& src);
  // The held value of that name, or null.
  const _kp_LOG_type_base* _held(const _kp_LOG_hashed_name& name) const noexcept;
  // All that it holds.
  const _kp_LOG_attribute_store& _attributes() const noexcept { return attributes_; }
  // As it is stored.
  const kp_Time& _timestamp() const noexcept { return timestamp_; }
  // Whether the store holds a value of that name.
  bool _holds(const char* name) const noexcept;
  // See kp_LOG_ForEachAttribute.
  void _for_each_attribute(
      const std::function<void(const char* name, kp_AttributeType type)>& visitor) const;

  // Copies the first `cut_len` bytes (mbstring with ICU enabled: UTF-16 code units, whole
  // characters) of `src` to `dst` of `buf_len` bytes, terminated, when action_on_exceed is 1;
  // raises KPX_logging_invalid_attribute_value "NAME Attribute value is overflow under Entry ID N
  // !" when it is 0. KPX_logging_illegal_argument: "arguement is null when trucate string!", "The
  // buf length is smaller than cut length!", "invalid argument" (negative sizes, a code page that
  // ICU does not know).
  void truncate_string(const char* name, const char* src, int cut_len, char* dst,
                       int buf_len) const;
  void truncate_mbstring(const char* name, const char* src, int cut_len, char* dst,
                         int buf_len) const;
  // Copies `src` to `dst`, escaping CR and LF to \r and \n (`escape`) or doing the reverse. Never
  // writes more than `dst_size` bytes, and ends with a NUL. When escaping, at most dst_size - 1
  // bytes of the source are read; a pair that no longer fits leaves its backslash as the last
  // character.
  static void filter_string(const char* src, char* dst, int dst_size, bool escape);

  static unsigned log_major_version;      // 2 to 99 when set; 0 at load time
  static unsigned log_minor_version;      // 0 to 999 when set; 0 at load time
  static unsigned global_operation_mode;  // 1: strict; others, 2 at load time: lenient

 private:
  using held_attribute = _kp_LOG_attribute_store::attribute;
  struct without_version_scan {};

  explicit _kp_LOG_log_entry_imp(without_version_scan);

  void _clear(bool full) noexcept;
  void _copy_attributes(const _kp_LOG_log_entry_imp& src);
  void _copy_attribute(const held_attribute& source);

  // Null for an undeclared name. An entry without a definition raises.
  const _kp_LOG_attribute_entry* _declared(const char* name) const;
  // The held attribute of that name; `declared` is what the definition, if any, has under it.
  const held_attribute* _find(const char* name,
                              const _kp_LOG_attribute_entry*& declared) const noexcept;
  const _kp_LOG_attribute_entry& _declared_as(const char* name, kp_AttributeType type) const;
  const _kp_LOG_attribute_entry& _declared_text(const char* name, const char* operation) const;

  // What the definition declares at the key's number; null where that is not what the key names,
  // and the name has to be looked up.
  const _kp_LOG_attribute_entry* _declared_at(const kp_LOG_AttributeKey& key) const noexcept;

  // The held attribute of the declared name, made without a value; null where there is one, or
  // where making it is not done at once.
  held_attribute* _inserted(const _kp_LOG_attribute_entry& declared) noexcept;
  // Store a value of type code `code` under the declared name, in place of a held one.
  template <class T>
  void _store(const _kp_LOG_attribute_entry& declared, unsigned char code, T value);
  // The same of a value that has nothing to give back.
  template <class T>
  void _store_number(const _kp_LOG_attribute_entry& declared, unsigned char code, T value);
  template <class Text>
  void _store_text(const _kp_LOG_attribute_entry& declared, const char* text, size_t length,
                   bool escape);
  template <class Text>
  void _store_any_text(const _kp_LOG_attribute_entry& declared, const char* text, size_t length,
                       bool escape);
  template <class Text>
  void _store_filtered_text(const _kp_LOG_attribute_entry& declared, const char* text, bool escape);
  void _store_cut_string(const _kp_LOG_attribute_entry& declared, const char* text, bool escape);
  void _store_cut_mbstring(const _kp_LOG_attribute_entry& declared, const char* text, bool escape);
  void _store_string(const _kp_LOG_attribute_entry& declared, const char* text, bool escape);
  void _store_mbstring(const _kp_LOG_attribute_entry& declared, const char* text, bool escape);

  template <class T, unsigned char code>
  void _add(const char* name, T value);
  template <class T, unsigned char code>
  void _add_keyed(const kp_LOG_AttributeKey& key, T value);
  template <class T, unsigned char code>
  bool _get(const char* name, T& out) const;
  template <class T, unsigned char code>
  T _get(const char* name) const;
  template <class Text, unsigned char first, unsigned char last>
  bool _get_text(const char* name, const char*& out) const;

  unsigned entry_id_ = 0;
  unsigned log_level_ = 0;
  unsigned property_mask_ = 0;
  char version_text_[16] = {};  // as the definition keeps it
  _kp_LOG_ustring text_slots_[4];
  int last_daylight_flag_ = -1;        // last DAYLIGHT_SAVING_ACTIVE; -1: none yet
  int last_timezone_difference_ = -1;  // last TIMEZONE_DIFFERENCE; -1: none yet
  kp_Time timestamp_;
  _kp_LOG_definition_ref definition_;  // none: the entry is detached
  mutable _kp_LOG_ustring cached_message_;
  mutable bool modified_ = true;             // since the cached message was made
  mutable bool cached_message_mode_ = true;  // the arguments it was made with
  mutable unsigned cached_message_index_ = 0;
  _kp_LOG_attribute_store attributes_;
};

#endif
