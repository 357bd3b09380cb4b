// One operation, done as often as asked: what instructions.py counts with callgrind. An event has
// two multibyte strings of 5 and 8 bytes, a UInt4, a Float and a SInt4; its definition is one of
// 128, and its message shows all five.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "logging/logentry_i.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

constexpr unsigned n_definitions = 128;
constexpr unsigned first_id = 2001;
constexpr unsigned event_id = first_id + 77;

static std::string definition_bytes() {
  ldf_entry event = {.flags = 0x1,
                     .msg_text =
                         "%s%SHOP% sold %u%ITEMS% to %s%CUSTOMER% at %f%PRICE%, balance "
                         "%d%BALANCE%",
                     .attributes = {{"SHOP", TypeMBChar32},
                                    {"CUSTOMER", TypeMBChar64},
                                    {"ITEMS", TypeUInt4},
                                    {"PRICE", TypeFloat},
                                    {"BALANCE", TypeSInt4}}};
  ldf_file file;
  for (unsigned i = 0; i < n_definitions; ++i) {
    event.id = first_id + i;
    event.msg_id = "EVENT." + std::to_string(i);
    file.entries.push_back(event);
  }
  return file.bytes();
}

static void fill(kp_LOG_LogEntry& entry) {
  entry.AddAttribMBStr("SHOP", "north");
  entry.AddAttribMBStr("CUSTOMER", "l.carrol");
  entry.AddAttrib4u("ITEMS", 51413);
  entry.AddAttribFloat8("PRICE", 0.625);
  entry.AddAttrib4("BALANCE", -1204);
}

static char buffer[512];

static void render(const kp_LOG_LogEntry& entry) {
  entry._get_imp().get_readable_message(buffer, sizeof buffer - 1, false, 0);
}

template <class Operation>
static void repeat(long n, Operation&& operation) {
  for (long i = 0; i < n; ++i) operation();
}

static bool run(const std::string& name, long n) {
  const bool icu = name.find("bytes") == std::string::npos;
  kp_LOG_LogConfig::SetICUEnabled(icu);
  kp_LOG_LogEntry entry(event_id, 5);
  fill(entry);
  render(entry);
  const _kp_LOG_log_definition_tbl* const table = kp_LOG_LogConfig::GetDefinitionTable();
  if (name == "event" || name == "event_bytes")
    repeat(n, [] {
      kp_LOG_LogEntry made(event_id, 5);
      fill(made);
      render(made);
    });
  else if (name == "make_and_add")
    repeat(n, [] {
      kp_LOG_LogEntry made(event_id, 5);
      fill(made);
    });
  else if (name == "make")
    repeat(n, [] { kp_LOG_LogEntry made(event_id, 5); });
  else if (name == "render" || name == "render_bytes")
    repeat(n, [&] { render(entry); });
  else if (name == "find_entry")
    repeat(n, [&] {
      if (table->find_entry(event_id) == nullptr) std::abort();
    });
  else
    return false;
  return true;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: kplog_instructions OPERATION TIMES\n", stderr);
    return 2;
  }
  const temp_folder folder;
  kp_LOG_LogConfig::SetLocale("en_US");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetDefinitionPath(folder.write("events.ldf", definition_bytes()).c_str());
  for (unsigned i = 0; i < n_definitions; ++i)
    kp_LOG_LogConfig::GetDefinitionTable()->find_entry(first_id + i);
  return run(argv[1], std::atol(argv[2])) ? 0 : 2;
}
