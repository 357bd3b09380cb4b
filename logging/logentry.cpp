// kp_LOG_LogEntry: a handle that owns one entry and forwards to it.
#include "kp_LOG_LogEntry.h"

#include <cstdarg>
#include <memory>
#include <new>
#include <utility>

#include "kp_LOG_RenderMessage.h"
#include "logging/icu_text.h"
#include "logging/logentry_i.h"
#include "logging/raise.h"
#include "logging/settings.h"

// --- Life ---------------------------------------------------------------------------------------

template <class... Arguments>
static std::unique_ptr<_kp_LOG_log_entry_imp> make_entry(Arguments... arguments) {
  std::unique_ptr<_kp_LOG_log_entry_imp> entry(new (std::nothrow)
                                                   _kp_LOG_log_entry_imp(arguments...));
  if (entry == nullptr) kp_log_raise_alloc();
  return entry;
}

static std::unique_ptr<_kp_LOG_log_entry_imp> copy_entry(const _kp_LOG_log_entry_imp& source) {
  std::unique_ptr<_kp_LOG_log_entry_imp> entry = make_entry();
  *entry = source;
  return entry;
}

kp_LOG_LogEntry::kp_LOG_LogEntry() : imp_(make_entry().release()) {}

kp_LOG_LogEntry::kp_LOG_LogEntry(unsigned int entry_id, unsigned int log_level)
    : imp_(make_entry(entry_id, log_level).release()) {}

kp_LOG_LogEntry::kp_LOG_LogEntry(const kp_LOG_LogEntry& other)
    : imp_(copy_entry(*other.imp_).release()) {}

// Assigned to itself, the entry is cleared by its own assignment.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): there is nothing to skip
kp_LOG_LogEntry& kp_LOG_LogEntry::operator=(kp_LOG_LogEntry const& other) {
  if (imp_ == nullptr) imp_ = make_entry().release();
  *imp_ = *other.imp_;
  return *this;
}

kp_LOG_LogEntry& kp_LOG_LogEntry::operator=(kp_LOG_LogEntry&& other) noexcept {
  if (this != &other) {
    delete imp_;
    imp_ = std::exchange(other.imp_, nullptr);
  }
  return *this;
}

kp_LOG_LogEntry::~kp_LOG_LogEntry() {
  delete imp_;
}

// --- Header -------------------------------------------------------------------------------------

unsigned int kp_LOG_LogEntry::GetEntryID() const {
  return imp_->get_entry_id();
}

void kp_LOG_LogEntry::SetEntryID(unsigned int entry_id) {
  imp_->set_entry_id(entry_id);
}

unsigned int kp_LOG_LogEntry::GetLogLevel() const {
  return imp_->get_log_level();
}

void kp_LOG_LogEntry::SetLogLevel(unsigned int log_level) {
  imp_->set_log_level(log_level);
}

unsigned int kp_LOG_LogEntry::GetPropertyMask() const {
  return imp_->get_property_mask();
}

unsigned int kp_LOG_LogEntry::GetLogMajorVersion() {
  return _kp_LOG_log_entry_imp::get_log_major_version();
}

unsigned int kp_LOG_LogEntry::GetLogMinorVersion() {
  return _kp_LOG_log_entry_imp::get_log_minor_version();
}

void kp_LOG_LogEntry::GetLogVersion(unsigned int& major, unsigned int& minor) {
  _kp_LOG_log_entry_imp::get_log_version(major, minor);
}

void kp_LOG_LogEntry::GetEventLocalDate(unsigned short& year, unsigned short& month,
                                        unsigned short& day) const {
  const kp_Time local = imp_->get_timestamp(false);
  year = local.get_year();
  month = local.get_month();
  day = local.get_day();
}

void kp_LOG_LogEntry::GetEventLocalTime(unsigned short& hour, unsigned short& minute,
                                        unsigned short& second) const {
  const kp_Time local = imp_->get_timestamp(false);
  hour = local.get_hour();
  minute = local.get_minute();
  second = local.get_second();
}

void kp_LOG_LogEntry::SetOperationMode(unsigned int mode) {
  kp_store(*kp_log_settings::current().operation_mode, mode);
}

// --- Whole-entry set-up -------------------------------------------------------------------------

void kp_LOG_LogEntry::SetEntry(unsigned int entry_id, unsigned int log_level, ...) {
  struct ender {
    ~ender() { va_end(list); }
    va_list list;
  } args;
  va_start(args.list, log_level);
  imp_->set_entry_id(entry_id);
  imp_->set_log_level(log_level);
  imp_->add_attributes(args.list);
}

// --- Attributes ---------------------------------------------------------------------------------

void kp_LOG_LogEntry::AddAttribBool(const char* name, bool value) {
  imp_->add_attrib_bool(name, value);
}

void kp_LOG_LogEntry::AddAttrib1u(const char* name, unsigned char value) {
  imp_->add_attrib_1u(name, value);
}

void kp_LOG_LogEntry::AddAttrib1(const char* name, char value) {
  imp_->add_attrib_1(name, value);
}

void kp_LOG_LogEntry::AddAttrib2u(const char* name, unsigned short value) {
  imp_->add_attrib_2u(name, value);
}

void kp_LOG_LogEntry::AddAttrib2(const char* name, short value) {
  imp_->add_attrib_2(name, value);
}

void kp_LOG_LogEntry::AddAttrib4u(const char* name, unsigned int value) {
  imp_->add_attrib_4u(name, value);
}

void kp_LOG_LogEntry::AddAttrib4(const char* name, int value) {
  imp_->add_attrib_4(name, value);
}

void kp_LOG_LogEntry::AddAttribFloat8(const char* name, double value) {
  imp_->add_attrib_float8(name, value);
}

void kp_LOG_LogEntry::AddAttribStr(const char* name, const char* value) {
  imp_->add_attrib_str(name, value, true);
}

void kp_LOG_LogEntry::AddAttribMBStr(const char* name, const char* value) {
  imp_->add_attrib_mbstr(name, value, true);
}

void kp_LOG_LogEntry::AddAttribTime(const char* name, const kp_Time& value) {
  imp_->add_attrib_time(name, value);
}

void kp_LOG_LogEntry::AddKeyedBool(const kp_LOG_AttributeKey& key, bool value) {
  imp_->add_keyed_bool(key, value);
}

void kp_LOG_LogEntry::AddKeyed1u(const kp_LOG_AttributeKey& key, unsigned char value) {
  imp_->add_keyed_1u(key, value);
}

void kp_LOG_LogEntry::AddKeyed1(const kp_LOG_AttributeKey& key, char value) {
  imp_->add_keyed_1(key, value);
}

void kp_LOG_LogEntry::AddKeyed2u(const kp_LOG_AttributeKey& key, unsigned short value) {
  imp_->add_keyed_2u(key, value);
}

void kp_LOG_LogEntry::AddKeyed2(const kp_LOG_AttributeKey& key, short value) {
  imp_->add_keyed_2(key, value);
}

void kp_LOG_LogEntry::AddKeyed4u(const kp_LOG_AttributeKey& key, unsigned int value) {
  imp_->add_keyed_4u(key, value);
}

void kp_LOG_LogEntry::AddKeyed4(const kp_LOG_AttributeKey& key, int value) {
  imp_->add_keyed_4(key, value);
}

void kp_LOG_LogEntry::AddKeyedFloat8(const kp_LOG_AttributeKey& key, double value) {
  imp_->add_keyed_float8(key, value);
}

void kp_LOG_LogEntry::AddKeyedStr(const kp_LOG_AttributeKey& key, const char* value) {
  imp_->add_keyed_str(key, value);
}

void kp_LOG_LogEntry::AddKeyedMBStr(const kp_LOG_AttributeKey& key, const char* value) {
  imp_->add_keyed_mbstr(key, value);
}

void kp_LOG_LogEntry::AddKeyedTime(const kp_LOG_AttributeKey& key, const kp_Time& value) {
  imp_->add_keyed_time(key, value);
}

bool kp_LOG_LogEntry::GetAttribBool(const char* name) const {
  return imp_->get_attrib_bool(name);
}

bool kp_LOG_LogEntry::GetAttribBool(const char* name, bool& value) const {
  return imp_->get_attrib_bool(name, value);
}

unsigned char kp_LOG_LogEntry::GetAttrib1u(const char* name) const {
  return imp_->get_attrib_1u(name);
}

bool kp_LOG_LogEntry::GetAttrib1u(const char* name, unsigned char& value) const {
  return imp_->get_attrib_1u(name, value);
}

char kp_LOG_LogEntry::GetAttrib1(const char* name) const {
  return imp_->get_attrib_1(name);
}

bool kp_LOG_LogEntry::GetAttrib1(const char* name, char& value) const {
  return imp_->get_attrib_1(name, value);
}

unsigned short kp_LOG_LogEntry::GetAttrib2u(const char* name) const {
  return imp_->get_attrib_2u(name);
}

bool kp_LOG_LogEntry::GetAttrib2u(const char* name, unsigned short& value) const {
  return imp_->get_attrib_2u(name, value);
}

short kp_LOG_LogEntry::GetAttrib2(const char* name) const {
  return imp_->get_attrib_2(name);
}

bool kp_LOG_LogEntry::GetAttrib2(const char* name, short& value) const {
  return imp_->get_attrib_2(name, value);
}

unsigned int kp_LOG_LogEntry::GetAttrib4u(const char* name) const {
  return imp_->get_attrib_4u(name);
}

bool kp_LOG_LogEntry::GetAttrib4u(const char* name, unsigned int& value) const {
  return imp_->get_attrib_4u(name, value);
}

int kp_LOG_LogEntry::GetAttrib4(const char* name) const {
  return imp_->get_attrib_4(name);
}

bool kp_LOG_LogEntry::GetAttrib4(const char* name, int& value) const {
  return imp_->get_attrib_4(name, value);
}

double kp_LOG_LogEntry::GetAttribFloat8(const char* name) const {
  return imp_->get_attrib_float8(name);
}

bool kp_LOG_LogEntry::GetAttribFloat8(const char* name, double& value) const {
  return imp_->get_attrib_float8(name, value);
}

const char* kp_LOG_LogEntry::GetAttribStr(const char* name) const {
  return imp_->get_attrib_str(name);
}

bool kp_LOG_LogEntry::GetAttribStr(const char* name, const char*& value) const {
  return imp_->get_attrib_str(name, value);
}

const char* kp_LOG_LogEntry::GetAttribMBStr(const char* name) const {
  return imp_->get_attrib_mbstr(name);
}

bool kp_LOG_LogEntry::GetAttribMBStr(const char* name, const char*& value) const {
  return imp_->get_attrib_mbstr(name, value);
}

kp_Time kp_LOG_LogEntry::GetAttribTime(const char* name) const {
  return imp_->get_attrib_time(name);
}

bool kp_LOG_LogEntry::GetAttribTime(const char* name, kp_Time& value) const {
  return imp_->get_attrib_time(name, value);
}

bool kp_LOG_LogEntry::RemoveAttrib(const char* name) {
  return imp_->remove_attrib(name);
}

void kp_LOG_LogEntry::ClearAttribs() {
  imp_->clear_attribs(true);
}

int kp_LOG_LogEntry::CheckAttribute(const char* name, kp_AttributeType& type) {
  return imp_->check_attribute(name, type);
}

bool kp_LOG_LogEntry::AddAttributeDefinition(unsigned int entry_id, const char* name,
                                             kp_AttributeType type) {
  return _kp_LOG_log_entry_imp::add_product_specific_attribute_definition(entry_id, name, type);
}

// --- Messages -----------------------------------------------------------------------------------

const char* kp_LOG_LogEntry::GetReadableMessage(bool use_default, unsigned int index) const {
  return imp_->get_readable_message(use_default, index);
}

kp_LOG_LogEntry::operator char const*() const {
  return imp_->get_readable_message(false, 0);
}

// --- Code pages ---------------------------------------------------------------------------------

static bool convert(const char* src, const char* from, const char* to, char* dst, unsigned& len) {
  if (src == nullptr || from == nullptr || to == nullptr || dst == nullptr || len == 0)
    return false;
  return icu_text_convert(src, from, to, dst, len);
}

bool kp_LOG_LogEntry::ConvertToUTF8(const char* src, char* dst, unsigned int& len,
                                    const char* codepage) {
  return convert(src, codepage, "UTF8", dst, len);
}

bool kp_LOG_LogEntry::ConvertFromUTF8(const char* src, char* dst, unsigned int& len,
                                      const char* codepage) {
  return convert(src, "UTF8", codepage, dst, len);
}

// --- Rendering ----------------------------------------------------------------------------------

std::string kp_LOG_RenderDefinitionMessage(const kp_LOG_LogEntry& entry, bool use_default,
                                           unsigned index) {
  return kp_LOG_RenderDefinitionMessage(entry._get_imp(), use_default, index);
}

std::string kp_LOG_RenderMessage(const kp_LOG_LogEntry& entry, bool use_default, unsigned index) {
  return kp_LOG_RenderMessage(entry._get_imp(), use_default, index);
}
