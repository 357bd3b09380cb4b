#include "history_entry.h"

#include <iterator>

#include "history_events.h"
#include "kp_LOG_EntryAccess.h"
#include "kp_LOG_LogEntry.h"

using namespace history_events;

// What a record says about the attributes of an event, which the header of the definitions lists.
template <class Event>
static typename Event::values values_of(const history_record& record) {
  return {.PACKAGE = record.subject, .VERSION = record.installed};
}

template <>
entry_PACKAGE_INSTALL::values values_of<entry_PACKAGE_INSTALL>(const history_record& record) {
  return {.PACKAGE = record.subject, .VERSION = record.available};
}

template <>
entry_PACKAGE_UPGRADE::values values_of<entry_PACKAGE_UPGRADE>(const history_record& record) {
  return {.PACKAGE = record.subject, .OLD_VERSION = record.installed, .VERSION = record.available};
}

template <>
entry_PACKAGE_STATUS::values values_of<entry_PACKAGE_STATUS>(const history_record& record) {
  return {.PACKAGE = record.subject, .VERSION = record.installed, .STATE = record.state};
}

template <>
entry_DPKG_STARTUP::values values_of<entry_DPKG_STARTUP>(const history_record& record) {
  return {.COMMAND = record.command};
}

template <>
entry_CONFIGURATION_FILE::values values_of<entry_CONFIGURATION_FILE>(const history_record& record) {
  return {.FILE = record.subject, .DECISION = record.decision};
}

template <class Event>
static std::shared_ptr<kp_LOG_LogEntry> make_event(unsigned log_level,
                                                   const history_record& record) {
  return std::make_shared<Event>(log_level, values_of<Event>(record));
}

struct history_description {
  unsigned log_level;  // 0 to 9: the higher, the less a reader misses without it
  std::shared_ptr<kp_LOG_LogEntry> (*make)(unsigned log_level, const history_record& record);
};

template <class Event>
static constexpr history_description describe(unsigned log_level) {
  return {log_level, make_event<Event>};
}

// By history_kind.
constexpr history_description descriptions[] = {
    describe<entry_PACKAGE_INSTALL>(3),   describe<entry_PACKAGE_UPGRADE>(3),
    describe<entry_PACKAGE_CONFIGURE>(5), describe<entry_PACKAGE_TRIGGERS>(6),
    describe<entry_PACKAGE_REMOVE>(2),    describe<entry_PACKAGE_PURGE>(2),
    describe<entry_PACKAGE_DISAPPEAR>(1), describe<entry_PACKAGE_STATUS>(7),
    describe<entry_DPKG_STARTUP>(6),      describe<entry_CONFIGURATION_FILE>(4)};
static_assert(std::size(descriptions) == history_kind_count);

std::shared_ptr<kp_LOG_LogEntry> make_history_entry(const history_record& record) {
  const history_description& description = descriptions[static_cast<size_t>(record.kind)];
  auto entry = description.make(description.log_level, record);
  kp_LOG_SetTime(*entry, record.time);
  return entry;
}
