// The log entry: its life, copying, header, log version, timestamp and built-in fields.
#include "logging/logentry_i.h"

#include <utility>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "logging/ldf_load.h"
#include "logging/log_util_per_thread.h"
#include "logging/logentry_i_private.h"
#include "logging/settings.h"

unsigned _kp_LOG_log_entry_imp::log_major_version = 0;
unsigned _kp_LOG_log_entry_imp::log_minor_version = 0;
unsigned _kp_LOG_log_entry_imp::global_operation_mode = 2;

bool is_default_info_fields(const char* name, kp_AttributeType& type) {
  static constexpr struct {
    const char* name;
    kp_AttributeType type;
  } fields[] = {{"PRODUCT_ID", TypeMBChar32},
                {"COMPONENT_ID", TypeMBChar32},
                {"VERSION_ID", TypeMBChar32},
                {"COMPONENT_VERSION_ID", TypeMBChar32},
                {"TIMESTAMP", TypeTimestamp}};
  if (name == nullptr) return false;
  for (const auto& field : fields) {
    if (std::strcmp(name, field.name) != 0) continue;
    type = field.type;
    return true;
  }
  return false;
}

static _kp_LOG_definition_ref definition_of(unsigned entry_id) {
  return kp_LOG_LogConfig::GetDefinitionTable()->acquire_entry(entry_id);
}

// --- Log version --------------------------------------------------------------------------------

// Written only when it changes: every entry that is made sets it, and threads that only read a
// cache line do not take it from each other.
static void set_version(unsigned& version, unsigned value) {
  if (kp_load(version) != value) kp_store(version, value);
}

// Reads a decimal number with an optional sign behind any white space, the way "%d" does, and moves
// `text` behind it. False, leaving both alone, when there is none.
static bool read_number(const char*& text, unsigned& value) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (*p < '0' || *p > '9') return false;
  unsigned magnitude = 0;
  for (; *p >= '0' && *p <= '9'; ++p) magnitude = magnitude * 10 + static_cast<unsigned>(*p - '0');
  value = negative ? 0U - magnitude : magnitude;
  text = p;
  return true;
}

// Takes the version of all entries from a text as "%d.%d" reads it.
static void scan_version(const char* text) {
  unsigned number = 0;
  if (!read_number(text, number)) return;
  set_version(*kp_log_settings::current().log_major_version, number);
  if (*text++ != '.' || !read_number(text, number)) return;
  set_version(*kp_log_settings::current().log_minor_version, number);
}

// Takes the version of all entries from what an entry's own version text says: the minor number
// only where there is one. Every entry that is made comes by here.
static void take_version(const _kp_LOG_version_numbers& version) {
  const kp_log_settings& settings = kp_log_settings::current();
  set_version(*settings.log_major_version, version.major_number);
  if (version.has_minor) set_version(*settings.log_minor_version, version.minor_number);
}

// The first definition with an ID of 0 to 9, which says the version of all entries.
static _kp_LOG_definition_ref version_definition() {
  for (unsigned id = 0; id <= 9; ++id)
    if (_kp_LOG_definition_ref definition = definition_of(id)) return definition;
  return {};
}

void _kp_LOG_log_entry_imp::set_log_major_version(unsigned version) {
  if (version < 2 || version > 99) {
    kp_log_raise<KPX_logging_illegal_argument>(
        "invalid argument:major version should >=2 && <=99",
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::set_log_major_version, log major version not in "
                    "valid range\n",
                    kp_log_entry_source, __LINE__));
  }
  set_version(*kp_log_settings::current().log_major_version, version);
}

void _kp_LOG_log_entry_imp::set_log_minor_version(unsigned version) {
  if (version > 999) {
    kp_log_raise<KPX_logging_illegal_argument>(
        "invalid argument:minor version should >=0 && <=999",
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::set_log_minor_version, log minor version not in "
                    "valid range\n",
                    kp_log_entry_source, __LINE__));
  }
  set_version(*kp_log_settings::current().log_minor_version, version);
}

void _kp_LOG_log_entry_imp::set_log_version(unsigned major, unsigned minor) {
  set_log_major_version(major);
  set_log_minor_version(minor);
}

void _kp_LOG_log_entry_imp::get_log_version(unsigned& major, unsigned& minor) {
  if (const _kp_LOG_definition_ref definition = version_definition())
    scan_version(definition->get_log_version());
  major = kp_load(*kp_log_settings::current().log_major_version);
  minor = kp_load(*kp_log_settings::current().log_minor_version);
}

unsigned _kp_LOG_log_entry_imp::get_log_major_version() {
  unsigned major = 0;
  unsigned minor = 0;
  get_log_version(major, minor);
  return major;
}

unsigned _kp_LOG_log_entry_imp::get_log_minor_version() {
  unsigned major = 0;
  unsigned minor = 0;
  get_log_version(major, minor);
  return minor;
}

// --- Memory -------------------------------------------------------------------------------------

static void free_spare_entry() noexcept;

// The memory of the entry that the calling thread let go last, or null; given back at the thread's
// end. Every entry looks at both: this model spares the calls that find variables of a shared
// library, and takes 40 bytes of the room that the system keeps for that.
[[gnu::tls_model("initial-exec")]] static constinit thread_local void* spare_entry = nullptr;
[[gnu::tls_model("initial-exec")]] static constinit thread_local kp_log_thread_end spare_entry_end(
    &free_spare_entry);

static void free_spare_entry() noexcept {
  ::operator delete(std::exchange(spare_entry, nullptr));
}

void* _kp_LOG_log_entry_imp::operator new(size_t size) {
  void* const memory = operator new(size, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* _kp_LOG_log_entry_imp::operator new(size_t size, const std::nothrow_t& tag) noexcept {
  static_assert(alignof(_kp_LOG_log_entry_imp) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
  // A class that is derived from this one may be larger.
  if (spare_entry == nullptr || size != sizeof(_kp_LOG_log_entry_imp))
    return ::operator new(size, tag);
  return std::exchange(spare_entry, nullptr);
}

// Nothing is kept by a thread whose end cannot be watched.
void _kp_LOG_log_entry_imp::operator delete(void* memory) noexcept {
  const bool is_kept =
      spare_entry == nullptr && (spare_entry_end.is_watched() || spare_entry_end.watch());
  if (is_kept)
    spare_entry = memory;
  else
    ::operator delete(memory);
}

// --- Life ---------------------------------------------------------------------------------------

// `from` is a definition's, which has the same room for it.
static void take_version_text(char (&text)[16], const char* from) {
  std::memcpy(text, from, sizeof text);
}

[[gnu::always_inline]] inline _kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp(without_version_scan) {}

// The constructors delegate, so that the destructor cleans up when the rest of one of them raises.
_kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp() : _kp_LOG_log_entry_imp(without_version_scan()) {
  const _kp_LOG_definition_ref definition = version_definition();
  if (!definition) return;
  take_version_text(version_text_, definition->get_log_version());
  scan_version(version_text_);
}

_kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp(unsigned entry_id, unsigned log_level)
    : _kp_LOG_log_entry_imp(without_version_scan()) {
  definition_ = definition_of(entry_id);
  if (!definition_) {
    kp_log_raise<KPX_logging_entry_type_not_found>(
        "Entry id argument is invalid",
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp, invalid entry id:%d\n",
                    kp_log_entry_source, __LINE__, static_cast<int>(entry_id)));
  }
  if (log_level > LOG_LEVEL_HIGH) {
    kp_log_raise_under_id<KPX_logging_invalid_log_level>(
        "", "log level argument is invalid", entry_id,
        kp_log_told(
            "%s:%d _kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp, log level=%d > LOG_LEVEL_HIGH\n",
            kp_log_entry_source, __LINE__, static_cast<int>(log_level)));
  }
  entry_id_ = entry_id;
  log_level_ = log_level;
  property_mask_ = definition_->get_property_flags();
  take_version_text(version_text_, definition_->get_log_version());
  take_version(definition_->get_version_numbers());
}

_kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp(_kp_LOG_definition_ref definition)
    : _kp_LOG_log_entry_imp(without_version_scan()) {
  definition_ = std::move(definition);
}

_kp_LOG_log_entry_imp::_kp_LOG_log_entry_imp(const _kp_LOG_log_entry_imp& other)
    : _kp_LOG_log_entry_imp(without_version_scan()) {
  _clear(true);
  _copy(other);
}

_kp_LOG_log_entry_imp::~_kp_LOG_log_entry_imp() = default;

void _kp_LOG_log_entry_imp::_clear(bool full) noexcept {
  last_daylight_flag_ = -1;
  last_timezone_difference_ = -1;
  log_level_ = 0;
  timestamp_.set_zero();
  if (full)
    for (_kp_LOG_ustring& slot : text_slots_) slot.set_zero();
  _clear_attribute_list();
}

// --- ID and level -------------------------------------------------------------------------------

void _kp_LOG_log_entry_imp::set_entry_id(unsigned id) {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_entry_imp::set_entry_id :%d\n", kp_log_entry_source,
                  __LINE__, static_cast<int>(id));
  definition_ = definition_of(id);
  if (!definition_) {
    kp_log_raise<KPX_logging_entry_type_not_found>(
        "Entry id argument is invalid",
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::set_entry_id, invalid entry id:%d\n",
                    kp_log_entry_source, __LINE__, static_cast<int>(id)));
  }
  entry_id_ = id;
  log_level_ = 0;
  modified_ = true;
  property_mask_ = definition_->get_property_flags();
  take_version_text(version_text_, definition_->get_log_version());
}

void _kp_LOG_log_entry_imp::set_log_level(unsigned level) {
  if (level > LOG_LEVEL_HIGH) {
    kp_log_raise_under_id<KPX_logging_invalid_log_level>(
        "", "log level argument is invalid", entry_id_,
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::set_log_level, log level=%d >LOG_LEVEL_HIGHT\n",
                    kp_log_entry_source, __LINE__, static_cast<int>(level)));
  }
  log_level_ = level;
  modified_ = true;
}

// --- Timestamp ----------------------------------------------------------------------------------

// Minutes ahead of GMT, as TIMEZONE_DIFFERENCE holds them.
static short timezone_difference(const kp_Time& time) {
  const int standard = -time.get_zone_bias();
  const bool ahead = time.get_daylight_flag() != 0 && !time.is_GMT_time_mode();
  return static_cast<short>(ahead ? standard + 60 : standard);
}

void _kp_LOG_log_entry_imp::set_timestamp(const kp_Time& time, bool gmt) {
  modified_ = true;
  timestamp_ = time;
  timestamp_.set_GMT_time_mode(gmt);
  const short difference = timezone_difference(timestamp_);
  if (difference != last_timezone_difference_) {
    add_attrib_2("TIMEZONE_DIFFERENCE", difference);
    last_timezone_difference_ = difference;
  }
  const short daylight_flag = timestamp_.get_daylight_flag();
  if (daylight_flag != last_daylight_flag_) {
    add_attrib_bool("DAYLIGHT_SAVING_ACTIVE", daylight_flag != 0);
    last_daylight_flag_ = daylight_flag;
  }
}

kp_Time _kp_LOG_log_entry_imp::get_timestamp(bool gmt) const {
  kp_Time time = timestamp_;
  if (time.is_GMT_time_mode() == gmt) return time;
  if (gmt)
    time.local_to_GMT();
  else
    time.GMT_to_local();
  return time;
}

// --- Built-in fields ----------------------------------------------------------------------------

void _kp_LOG_log_entry_imp::set_severity_code(unsigned value) {
  add_attrib_1u("SEVERITY_CODE", static_cast<unsigned char>(value));
}

void _kp_LOG_log_entry_imp::set_product_code(unsigned value) {
  add_attrib_2u("PRODUCT_CODE", static_cast<unsigned short>(value));
}

void _kp_LOG_log_entry_imp::set_product_platform_code(unsigned value) {
  add_attrib_2u("PRODUCT_PLATFORM_CODE", static_cast<unsigned short>(value));
}

void _kp_LOG_log_entry_imp::set_product_language_code(unsigned value) {
  add_attrib_4u("PRODUCT_LANGUAGE_CODE", value);
}

void _kp_LOG_log_entry_imp::set_component_code(unsigned value) {
  add_attrib_4u("COMPONENT_CODE", value);
}

void _kp_LOG_log_entry_imp::set_reason_code_source(unsigned value) {
  add_attrib_4u("REASON_CODE_SOURCE", value);
}

void _kp_LOG_log_entry_imp::set_reason_code(int value) {
  add_attrib_4("REASON_CODE", value);
}

void _kp_LOG_log_entry_imp::set_computer_info(const char* name) {
  if (kp_log_is_blank(name)) {
    kp_log_raise<KPX_logging_illegal_argument>(
        "invalid argument:computer_info",
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::set_computer_info, computer_info=NULL\n",
                    kp_log_entry_source, __LINE__));
  }
  add_attrib_mbstr("COMPUTER_NAME", name, true);
}

void _kp_LOG_log_entry_imp::set_product_version(const char* text) {
  if (kp_log_is_blank(text)) {
    // The name of another setter and the missing newline are meant: readers of the log know the
    // line.
    kp_log_raise<KPX_logging_illegal_argument>(
        "invalid argument:product_version",
        kp_log_told("%s:%d _kp_LOG_log_entry_imp::set_product_language_code, version=NULL",
                    kp_log_entry_source, __LINE__));
  }
  add_attrib_mbstr("PRODUCT_VERSION", text, true);
}

unsigned char _kp_LOG_log_entry_imp::get_severity_code() const {
  return get_attrib_1u("SEVERITY_CODE");
}

unsigned short _kp_LOG_log_entry_imp::get_product_code() const {
  return get_attrib_2u("PRODUCT_CODE");
}

unsigned short _kp_LOG_log_entry_imp::get_product_platform_code() const {
  return get_attrib_2u("PRODUCT_PLATFORM_CODE");
}

unsigned _kp_LOG_log_entry_imp::get_product_language_code() const {
  return get_attrib_4u("PRODUCT_LANGUAGE_CODE");
}

unsigned _kp_LOG_log_entry_imp::get_component_code() const {
  return get_attrib_4u("COMPONENT_CODE");
}

unsigned _kp_LOG_log_entry_imp::get_reason_code_source() const {
  return get_attrib_4u("REASON_CODE_SOURCE");
}

int _kp_LOG_log_entry_imp::get_reason_code() const {
  return get_attrib_4("REASON_CODE");
}

const char* _kp_LOG_log_entry_imp::get_computer_info() const {
  return get_attrib_mbstr("COMPUTER_NAME");
}

const char* _kp_LOG_log_entry_imp::get_product_version() const {
  return get_attrib_mbstr("PRODUCT_VERSION");
}

// --- Copying ------------------------------------------------------------------------------------

// An entry that is assigned to itself is cleared, and that is meant.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): there is nothing to skip
_kp_LOG_log_entry_imp& _kp_LOG_log_entry_imp::operator=(const _kp_LOG_log_entry_imp& other) {
  _clear(true);
  _copy(other);
  return *this;
}

// Each value is read when its turn comes: an entry copied onto itself gets the level 0 to which
// setting its ID resets it.
void _kp_LOG_log_entry_imp::_copy(const _kp_LOG_log_entry_imp& src) {
  last_timezone_difference_ = src.last_timezone_difference_;
  last_daylight_flag_ = src.last_daylight_flag_;
  for (unsigned i = 0; i < std::size(text_slots_); ++i) text_slots_[i] = src.text_slots_[i];
  set_entry_id(src.entry_id_);
  set_log_level(src.log_level_);
  timestamp_ = src.timestamp_;
  std::memmove(version_text_, src.version_text_, sizeof version_text_);
  modified_ = src.modified_;
  cached_message_mode_ = src.cached_message_mode_;
  if (!src.modified_) {
    cached_message_ = src.cached_message_;
    cached_message_index_ = src.cached_message_index_;
  }
  _copy_attributes(src);
}

void _kp_LOG_log_entry_imp::_copy_attributes(const _kp_LOG_log_entry_imp& src) {
  attributes_.clear();
  src.attributes_.for_each([this](const held_attribute& held) { _copy_attribute(held); });
}

void _kp_LOG_log_entry_imp::_copy_attribute(const held_attribute& source) {
  kp_log_with_class(source.value->get_type(), [&](auto value_class) {
    using value_type = typename decltype(value_class)::value_type;
    value_type value = kp_log_value_in<value_type>(*source.value);
    if constexpr (!std::is_trivially_destructible_v<value_type>) attributes_.expect_memory();
    held_attribute& copy = attributes_.find_or_insert(source.name, source.hash);
    copy.value =
        kp_log_make_value<value_type>(copy.room, source.value->get_type(), std::move(value));
  });
}
