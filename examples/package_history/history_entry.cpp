#include "history_entry.h"

#include <iterator>

#include "logging/logentry_i.h"

static void describe_package(const history_record& record, kp_LOG_LogEntry& entry) {
  entry.AddAttribMBStr("PACKAGE", record.subject.c_str());
  entry.AddAttribMBStr("VERSION", record.installed.c_str());
}

static void describe_install(const history_record& record, kp_LOG_LogEntry& entry) {
  entry.AddAttribMBStr("PACKAGE", record.subject.c_str());
  entry.AddAttribMBStr("VERSION", record.available.c_str());
}

static void describe_upgrade(const history_record& record, kp_LOG_LogEntry& entry) {
  describe_install(record, entry);
  entry.AddAttribMBStr("OLD_VERSION", record.installed.c_str());
}

// The state selects the message.
static void describe_status(const history_record& record, kp_LOG_LogEntry& entry) {
  describe_package(record, entry);
  entry.AddAttrib1u("STATE", record.choice);
}

static void describe_startup(const history_record& record, kp_LOG_LogEntry& entry) {
  entry.AddAttrib1u("COMMAND", record.choice);
}

static void describe_conffile(const history_record& record, kp_LOG_LogEntry& entry) {
  entry.AddAttribMBStr("FILE", record.subject.c_str());
  entry.AddAttrib1u("DECISION", record.choice);
}

struct history_description {
  unsigned entry_id;   // as package_history.yaml has it
  unsigned log_level;  // 0 to 9: the higher, the less a reader misses without it
  void (*fill)(const history_record& record, kp_LOG_LogEntry& entry);
};

// By history_kind.
constexpr history_description descriptions[] = {
    {101, 3, describe_install}, {102, 3, describe_upgrade}, {103, 5, describe_package},
    {104, 6, describe_package}, {105, 2, describe_package}, {106, 2, describe_package},
    {107, 1, describe_package}, {108, 7, describe_status},  {109, 6, describe_startup},
    {110, 4, describe_conffile}};
static_assert(std::size(descriptions) == history_kind_count);

static const history_description& description_of(history_kind kind) {
  return descriptions[static_cast<size_t>(kind)];
}

unsigned history_entry_id(history_kind kind) {
  return description_of(kind).entry_id;
}

std::unique_ptr<kp_LOG_LogEntry> make_history_entry(const history_record& record) {
  const history_description& description = description_of(record.kind);
  auto entry = std::make_unique<kp_LOG_LogEntry>(description.entry_id, description.log_level);
  entry->_get_imp().set_timestamp(record.time, record.time.is_GMT_time_mode());
  description.fill(record, *entry);
  return entry;
}
