// kp_LOG_LogEntry: one event that a program is about to record.
#ifndef KP_LOG_LOGENTRY_H
#define KP_LOG_LOGENTRY_H

#include "base/kp_time.h"
#include "kp_LOG_AttributeKey.h"
#include "kp_LOG_AttributeType.h"

class _kp_LOG_log_entry_imp;

// The public handle of a log entry: an entry ID that names the kind of event, a log level, a
// timestamp, and named, typed attributes that are checked against the definition of that kind.
//
// A handle owns exactly one entry; copying it copies the entry, moving it hands the entry over. A
// handle that was moved from owns none: it may be assigned to or destroyed, and nothing else. One
// entry is used by one thread at a time. Every error of the library derives from KPX_logging_all; a
// failed allocation anywhere raises KPX_memory_alloc. A refused operation leaves the attributes as
// they were.
//
// Definitions are read from their files when they are first asked for. So whatever takes an entry
// ID or asks for the log version (the constructors, copying, SetEntryID, SetEntry, GetLogVersion
// and its kin, AddAttributeDefinition) may also raise KPX_logging_invalid_definition, with the
// texts of logging/ldf_load.h, where a file is damaged or can no longer be read.
//
// The timestamp of an entry is the time at which it was made, until kp_LOG_SetTime
// (kp_LOG_EntryAccess.h) sets another one.
//
// Strings are NUL-terminated. Texts returned belong to the entry and stay valid until the attribute
// is replaced, removed or cleared, or the entry dies.
class KP_API kp_LOG_LogEntry {
 public:
  // An empty entry, with the ID and the level 0. It asks for the definitions of the IDs 0 to 9, up
  // to the first that there is, for the log version. It must be given an ID (SetEntryID, SetEntry)
  // before attributes are added; until then adding raises KPX_logging_misc
  // "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized".
  kp_LOG_LogEntry();
  // Raises KPX_logging_entry_type_not_found "Entry id argument is invalid" for an ID that no
  // definition file defines, KPX_logging_invalid_log_level for a level above 9.
  kp_LOG_LogEntry(unsigned int entry_id, unsigned int log_level);
  // The ID is looked up anew: what counts is whether it is defined now, not whether the source has
  // a definition. Raises KPX_logging_entry_type_not_found "Entry id argument is invalid" for an ID
  // that is not, such as that of an empty entry. Attributes are copied whether or not they are
  // declared now.
  kp_LOG_LogEntry(const kp_LOG_LogEntry& other);
  // Clears this entry first, also when assigned to itself, and then copies; raises what the copy
  // constructor raises. Assigned to itself it keeps its ID, with the level 0, a zero timestamp and
  // no attributes. When it raises, what this entry held is lost all the same: for an ID that is not
  // defined now it keeps its old ID, without a definition and without attributes, until SetEntryID
  // or another assignment gives it one; where memory lacks it may have some of the attributes.
  kp_LOG_LogEntry& operator=(kp_LOG_LogEntry const& other);
  // Take the other handle's entry over; the second lets its own go first, unless both are one.
  kp_LOG_LogEntry(kp_LOG_LogEntry&& other) noexcept : imp_(other.imp_) { other.imp_ = nullptr; }
  kp_LOG_LogEntry& operator=(kp_LOG_LogEntry&& other) noexcept;
  ~kp_LOG_LogEntry();

  unsigned int GetEntryID() const;
  // Sets the level to 0; attributes already held stay. For an unknown ID it raises
  // KPX_logging_entry_type_not_found and leaves the entry with its old ID but without a definition.
  void SetEntryID(unsigned int entry_id);
  unsigned int GetLogLevel() const;
  void SetLogLevel(unsigned int log_level);  // 0 to 9, else KPX_logging_invalid_log_level
  unsigned int GetPropertyMask() const;      // the definition's property flags

  // The version of the log format: that of the first definition with an ID of 0 to 9, else the one
  // last set or taken from an entry's definition.
  static unsigned int GetLogMajorVersion();
  static unsigned int GetLogMinorVersion();
  static void GetLogVersion(unsigned int& major, unsigned int& minor);

  // The entry's timestamp in local time: the zone is the timestamp's own, with its hour of daylight
  // time where its daylight flag says so, and not the machine's. The year in full (2026), months
  // and days from 1, hours 0 to 23.
  void GetEventLocalDate(unsigned short& year, unsigned short& month, unsigned short& day) const;
  void GetEventLocalTime(unsigned short& hour, unsigned short& minute,
                         unsigned short& second) const;

  // 1: a value getter raises KPX_logging_attribute_not_found for an attribute that is not set. Any
  // other value, 2 being the default: it returns a zero value, for a time a default kp_Time, which
  // is the current time. Process-wide; may be set at any time.
  static void SetOperationMode(unsigned int mode);

  // Sets ID and level, then adds attributes from a list of names and values ended by a null pointer
  // (write nullptr: a plain 0 or NULL is too narrow) or "". Attributes held before stay. Each value
  // is read with the type that the definition declares for the name before it:
  //   TypeBool, integers         int; for TypeUInt4 unsigned int
  //   TypeFloat                  double
  //   strings                    const char*
  //   TypeDate, Time, Timestamp  const char*: a text that kp_Time::set_to_string_value reads, such
  //                              as "2026-11-15T17:02:56+08:00" or, at midnight, "2026-11-15"
  //   TypeGUID                   const char*, and then what AddAttribStr raises for an attribute
  //                              that is no string: nothing adds a GUID
  //   0 and 25 (declared so at   nothing is read: what follows is taken for the next name
  //   run time or in a file)
  // The compiler cannot check this list: a value of another type than the declared one is undefined
  // behaviour. Raises what SetEntryID, SetLogLevel and the adds raise, and
  // KPX_logging_illegal_argument "invalid argument" for a time text that is null or not understood.
  // A failure keeps ID, level and the attributes added before it.
  void SetEntry(unsigned int entry_id, unsigned int log_level, ...);

  // Adding: `name` must be declared by the entry's definition or as a global attribute, with the
  // type of the operation; adding a name again replaces its value. Errors:
  //   KPX_logging_illegal_argument         "invalid argument": a null or empty name, a null text,
  //                                        a multibyte text in a code page unknown to ICU
  //   KPX_logging_invalid_attribute_name   the name is not declared
  //   KPX_logging_attribute_type_mismatch  the name is declared with another type
  //   KPX_logging_invalid_attribute_value  a string too long for its type, where cutting is off
  void AddAttribBool(const char* name, bool value);          // TypeBool
  void AddAttrib1u(const char* name, unsigned char value);   // TypeUInt1
  void AddAttrib1(const char* name, char value);             // TypeSInt1
  void AddAttrib2u(const char* name, unsigned short value);  // TypeUInt2
  void AddAttrib2(const char* name, short value);            // TypeSInt2
  void AddAttrib4u(const char* name, unsigned int value);    // TypeUInt4
  void AddAttrib4(const char* name, int value);              // TypeSInt4
  void AddAttribFloat8(const char* name, double value);      // TypeFloat
  // Strings are copied. Line feeds and carriage returns are stored as the two characters \n and \r.
  // A text of 8096 bytes or more that its type admits, which counts characters in multibyte texts,
  // is stored as its first 8095 bytes, line breaks replaced first.
  void AddAttribStr(const char* name, const char* value);      // TypeChar32 to TypeChar2K
  void AddAttribMBStr(const char* name, const char* value);    // TypeMBChar32 to TypeMBChar2K
  void AddAttribTime(const char* name, const kp_Time& value);  // TypeDate, TypeTime, TypeTimestamp
  // The same of an attribute that the program knows while it is compiled, in every outcome.
  void AddKeyedBool(const kp_LOG_AttributeKey& key, bool value);
  void AddKeyed1u(const kp_LOG_AttributeKey& key, unsigned char value);
  void AddKeyed1(const kp_LOG_AttributeKey& key, char value);
  void AddKeyed2u(const kp_LOG_AttributeKey& key, unsigned short value);
  void AddKeyed2(const kp_LOG_AttributeKey& key, short value);
  void AddKeyed4u(const kp_LOG_AttributeKey& key, unsigned int value);
  void AddKeyed4(const kp_LOG_AttributeKey& key, int value);
  void AddKeyedFloat8(const kp_LOG_AttributeKey& key, double value);
  void AddKeyedStr(const kp_LOG_AttributeKey& key, const char* value);
  void AddKeyedMBStr(const kp_LOG_AttributeKey& key, const char* value);
  void AddKeyedTime(const kp_LOG_AttributeKey& key, const kp_Time& value);

  // Reading. The form with an out-parameter returns false, leaving it alone, when a declared
  // attribute is not set; the value form then follows SetOperationMode. Errors:
  //   KPX_logging_illegal_argument         "invalid argument": a null or empty name
  //   KPX_logging_invalid_attribute_name   the name is neither held nor declared
  //   KPX_logging_attribute_type_mismatch  the attribute is of another type
  //   KPX_logging_misc                     not held, and the entry has no definition
  bool GetAttribBool(const char* name) const;
  bool GetAttribBool(const char* name, bool& value) const;
  unsigned char GetAttrib1u(const char* name) const;
  bool GetAttrib1u(const char* name, unsigned char& value) const;
  char GetAttrib1(const char* name) const;
  bool GetAttrib1(const char* name, char& value) const;
  unsigned short GetAttrib2u(const char* name) const;
  bool GetAttrib2u(const char* name, unsigned short& value) const;
  short GetAttrib2(const char* name) const;
  bool GetAttrib2(const char* name, short& value) const;
  unsigned int GetAttrib4u(const char* name) const;
  bool GetAttrib4u(const char* name, unsigned int& value) const;
  int GetAttrib4(const char* name) const;
  bool GetAttrib4(const char* name, int& value) const;
  double GetAttribFloat8(const char* name) const;
  bool GetAttribFloat8(const char* name, double& value) const;
  const char* GetAttribStr(const char* name) const;
  bool GetAttribStr(const char* name, const char*& value) const;
  const char* GetAttribMBStr(const char* name) const;
  bool GetAttribMBStr(const char* name, const char*& value) const;
  kp_Time GetAttribTime(const char* name) const;  // "TIMESTAMP": the entry's own timestamp
  bool GetAttribTime(const char* name, kp_Time& value) const;

  // True when the attribute was held. KPX_logging_illegal_argument for a null or empty name.
  bool RemoveAttrib(const char* name);
  // Removes all attributes, sets the level to 0 and the timestamp to zero.
  void ClearAttribs();
  // 0: held, `type` is the value's type. 1: declared but not held. -1: unknown (`type` is 0), or a
  // null or empty name (`type` is left alone). Never raises.
  int CheckAttribute(const char* name, kp_AttributeType& type);
  // Declares an attribute for one kind of entry, or for all (entry ID 0). False when the name is
  // declared already; a declaration is never changed. Raises KPX_logging_illegal_argument for a
  // null or empty name or a type that is negative or above 25, KPX_logging_entry_type_not_found for
  // an unknown ID. Start-up only. A declaration lasts to the end of the process, or until the
  // definitions are cleared (kp_LOG_LogConfig::ClearDefinitions) or, for one kind of entry, a
  // definition file replaces them (kp_LOG_LogConfig::SetDefinitionPath).
  static bool AddAttributeDefinition(unsigned int entry_id, const char* name,
                                     kp_AttributeType type);

  // Renders the readable message into the entry's cache and reports every fault of the rendering.
  // The text returned is the cache as it was emptied before rendering: "". Programs that want the
  // message use kp_LOG_RenderMessage (kp_LOG_RenderMessage.h) or the buffer operation of
  // _kp_LOG_log_entry_imp.
  // `use_default` takes the default message; else `index` names a selector message, 0 leaving the
  // choice to the selector attribute's value.
  // The thread needs a stack of 128 KiB, and up to 512 KiB where literal text nests arguments
  // (docs/message-templates.md).
  const char* GetReadableMessage(bool use_default, unsigned int index) const;
  operator char const*() const;  // GetReadableMessage(false, 0)

  // Convert the text `src` from `codepage` to UTF-8 and back. `len` is the capacity of `dst` and
  // becomes the bytes written; a NUL follows them, so `dst` must have room for `len` + 1 bytes.
  // Bytes that stand for nothing in their code page are read as U+FFFD, and characters that a code
  // page lacks are written as its substitution character: the result is true all the same. False,
  // leaving `len` alone, for a null argument, a `len` of 0, a code page that ICU does not know, or
  // a text that does not fit.
  static bool ConvertToUTF8(const char* src, char* dst, unsigned int& len, const char* codepage);
  static bool ConvertFromUTF8(const char* src, char* dst, unsigned int& len, const char* codepage);

  // The entry behind the handle, declared in logging/logentry_i.h: its built-in fields,
  // set_timestamp, and rendering into a buffer. Lives as long as the handle.
  _kp_LOG_log_entry_imp& _get_imp() { return *imp_; }
  const _kp_LOG_log_entry_imp& _get_imp() const { return *imp_; }

 private:
  _kp_LOG_log_entry_imp* imp_;  // owned; null once it was moved from
};

#endif
