// Process-wide settings of the library.
#ifndef KP_LOG_LOGCONFIG_H
#define KP_LOG_LOGCONFIG_H

#include "base/kp_i18n.h"

class _kp_LOG_configuration;
class _kp_LOG_log_definition_tbl;

enum kp_SynchronizationLevelType : int {
  KP_SYNC_NONE = 0,
  KP_SYNC_ENTRY = 1,
  KP_SYNC_THREAD = 2,  // the default
  KP_SYNC_PROCESS = 3,
  KP_SYNC_SYSTEM = 4
};

enum kp_ConfigurationSourceType : int {
  KP_CONFIG_FILE = 0,          // the file must exist when the source is set
  KP_CONFIG_FILE_OPTIONAL = 1  // a missing file gives no values
};

// See kp_LOG_LogConfig::SetICUEnabled, which writes it. True is the default.
KP_API extern bool b_is_icu_enabled;

// What happens to a string longer than its type allows: 0 (the default) refuses it, 1 cuts it.
// Written by kp_LOG_LogConfig::SetActionAttrLenExceed.
KP_API extern unsigned action_on_exceed;

// The library's one place of settings: static operations only. They are called at start-up and
// whenever settings change, also while other threads make, fill, copy, read, render and filter
// entries: each of their operations sees the old setting or the new one, and nothing that both take
// is refused meanwhile. Operations marked [lock] hold the process-wide lock (kp_THREAD_global_lock)
// for their whole body, so that setters wait for each other; entries never wait for it. Text
// getters return the stored copy, readable to the end of the process whatever is set since; "" when
// unset. Of each different text one copy is kept.
class KP_API kp_LOG_LogConfig {
 public:
  kp_LOG_LogConfig() = delete;

  // Stores a level below 5; others are ignored.
  static void SetSynchronizationLevel(kp_SynchronizationLevelType level);
  static kp_SynchronizationLevelType GetSynchronizationLevel();

  static void EnableCountConfig(bool enable);
  static bool IsEnableCountConfig();

  // True: messages are rendered through ICU, from the catalog where one is open, and the length of
  // a multibyte string is that of its UTF-16 code units, read in the code page. False: messages are
  // rendered by the C library from the texts of the definitions, the code page counts for nothing,
  // the length of a multibyte string is that of its bytes, by which it is also cut, and
  // SetMessageCatalogPath does nothing.
  static void SetICUEnabled(bool enable);
  static bool IsICUEnabled();

  // [lock] Loads the STD definition file, which then replaces both files and every loaded
  // definition in one step: other threads make entries of a type that both files have throughout.
  // When the load fails there are no definitions, and the path is kept all the same. The AUX file,
  // if any, must be set again afterwards. Raises KPX_logging_illegal_argument "invalid argument"
  // for null, KPX_logging_invalid_definition for a file that cannot be used (see logging/ldf_load.h
  // for the texts), KPX_memory_alloc.
  static void SetDefinitionPath(const char* path);
  static const char* GetDefinitionPath();

  // [lock] Loads the AUX definition file and merges it into the STD file's definitions; keeps the
  // path even when that fails. Raises as SetDefinitionPath, and KPX_logging_invalid_definition when
  // no STD file is set or the two files conflict.
  static void SetAuxDefinitionPath(const char* path);
  static const char* GetAuxDefinitionPath();

  // [lock] Forgets both files, every loaded definition, and the global attributes. The stored paths
  // stay. Entries that exist keep their definitions, but not the global attributes: these are the
  // process's, and an entry takes those of now.
  static void ClearDefinitions();

  // The process-wide definition table. Never null.
  static _kp_LOG_log_definition_tbl* GetDefinitionTable();

  // [lock] Opens the message catalog at `path` for the current locale, or closes it for null: set
  // the locale first. Does nothing while ICU is disabled. Raises KPX_logging_missing_resource when
  // the catalog cannot be opened; the failed catalog then stays in place, and rendering fails until
  // another is set. A relative path begins in the working folder of this call. One without "/" that
  // is no folder there names a package of ICU's own data. The catalog is what is there at the call,
  // also when it was missing or another one before. ICU keeps each state of it that it was shown to
  // the end of the process, a few kilobytes and a mapping of each file: set the path again when
  // something has changed.
  static void SetMessageCatalogPath(const char* path);
  // The path last set; "" while ICU is disabled.
  static const char* GetMessageCatalogPath();

  // [lock] Sets ICU's default locale. Belongs before SetMessageCatalogPath: an open catalog keeps
  // the locale it was opened with, and shows another one once its path is set again.
  // The time zone in which messages tell times is ICU's as well, and not set here: ICU takes it
  // from TZ when it is first used, and only where TZ is a name. A program whose TZ is a rule, as in
  // "CET-1CEST,M3.5.0,M10.5.0/3", or changes while it runs, sets ICU's zone itself, with
  // icu::TimeZone::adoptDefault or ucal_setDefaultTimeZone; otherwise messages may show another
  // hour than the entry has.
  // Raises KPX_logging_illegal_argument "invalid argument" for a name that is no locale name.
  static void SetLocale(kp_Locale locale);
  static kp_Locale GetLocale();

  // [lock] Sets the code page of multibyte attributes and readable messages, by a name that ICU
  // knows. The name is not checked here. While none is set, and for "", it is that of ICU's default
  // converter: UTF-8 with the ICU of Debian, whatever the locale, unless the program has called
  // ucnv_setDefaultName. Raises KPX_logging_illegal_argument "invalid argument" for null,
  // KPX_memory_alloc.
  static void SetCodePage(const char* codepage);
  static const char* GetCodePage();

  // Makes the file at `path` the configuration source [lock]; it is read at the first look-up, to
  // its end, at most 64 MiB. A relative path begins in the working folder of this call, whatever
  // the program changes to before the first look-up. Null removes the source (without the lock).
  // Raises KPX_logging_illegal_argument "invalid argument" when the file does not exist and `type`
  // is not KP_CONFIG_FILE_OPTIONAL, KPX_memory_alloc.
  static void SetConfigurationSource(const char* path, kp_ConfigurationSourceType type);

  // The value of `key` in `section`, or else in the section "global". False, leaving `value` alone,
  // when there is none or no source is set. Raises KPX_logging_illegal_argument "invalid argument"
  // for a null section or key.
  static bool GetConfigurationIntegerValue(const char* section, const char* key, unsigned& value);

  // The configuration source, owned by the library, or null. Valid in the calling thread until it
  // asks for it again, be it here, by GetConfigurationIntegerValue or by a filter, or sets another
  // one; other threads may replace it meanwhile.
  static _kp_LOG_configuration* _get_configuration_ptr();

  // 0 refuses a string longer than its type allows, 1 cuts it. Raises KPX_logging_illegal_argument
  // "The action when attribute exceeds limitation is invalid!\n" for any other value.
  static void SetActionAttrLenExceed(int action);
  static int GetActionAttrLenExceed();
};

#endif
