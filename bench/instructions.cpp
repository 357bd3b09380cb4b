// One operation, done as often as asked: what instructions.py counts with callgrind.
#include "bench/instructions.h"

#include <fmt/core.h>
#include <gnu/libc-version.h>
#include <google/protobuf/stubs/common.h>
#include <sys/wait.h>
#include <unicode/uversion.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "kp_LOG.h"
#include "kp_LOG_EventValue.h"
#include "logging/ldf_load.h"
#include "logging/logentry_i.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

void require_text(const std::string& rendered, const std::string& expected) {
  if (rendered == expected) return;
  std::fprintf(stderr, "rendered \"%s\" and not \"%s\"\n", rendered.c_str(), expected.c_str());
  std::_Exit(1);
}

// --- The event ----------------------------------------------------------------------------------

constexpr unsigned dated_event_id = first_event_id + 78;
constexpr unsigned n_kinds_beyond_the_cache = 2 * _kp_LOG_log_definition_tbl::cache_size;

// A file of n kinds, all of them the event; one shows its date and time as well. Written once.
static std::string file_of_kinds(unsigned n) {
  static const temp_folder folder;
  const std::string name = std::to_string(n) + ".ldf";
  if (access(folder.file(name).c_str(), F_OK) == 0) return folder.file(name);
  const std::string message =
      "%s%SHOP% sold %u%ITEMS% to %s%CUSTOMER% at %f%PRICE%, balance %d%BALANCE%";
  ldf_entry event = {.flags = 0x1,
                     .attributes = {{shop_name, TypeMBChar32},
                                    {customer_name, TypeMBChar64},
                                    {items_name, TypeUInt4},
                                    {price_name, TypeFloat},
                                    {balance_name, TypeSInt4}}};
  ldf_file file;
  for (unsigned i = 0; i < n; ++i) {
    event.id = first_event_id + i;
    event.msg_id = "EVENT." + std::to_string(i);
    event.msg_text = message;
    if (event.id == dated_event_id) event.msg_text += " %D%TIMESTAMP% %T%TIMESTAMP%";
    file.entries.push_back(event);
  }
  return folder.write(name, file.bytes());
}

static void load_definitions(unsigned n) {
  kp_LOG_LogConfig::SetDefinitionPath(file_of_kinds(n).c_str());
  for (unsigned i = 0; i < n; ++i)
    kp_LOG_LogConfig::GetDefinitionTable()->find_entry(first_event_id + i);
}

static void fill(kp_LOG_LogEntry& entry) {
  entry.AddAttribMBStr(shop_name, shop_value);
  entry.AddAttribMBStr(customer_name, customer_value);
  entry.AddAttrib4u(items_name, items_value);
  entry.AddAttribFloat8(price_name, price_value);
  entry.AddAttrib4(balance_name, balance_value);
}

// The event as "kplog header" writes it.
class entry_sale : public kp_LOG_LogEntry {
 public:
  struct values {
    kp_LOG_EventText<TypeMBChar32, shop_name> SHOP;
    kp_LOG_EventText<TypeMBChar64, customer_name> CUSTOMER;
    kp_LOG_EventNumber<TypeUInt4, items_name> ITEMS;
    kp_LOG_EventNumber<TypeFloat, price_name> PRICE;
    kp_LOG_EventNumber<TypeSInt4, balance_name> BALANCE;
  };

  entry_sale(unsigned log_level, const values& given) : kp_LOG_LogEntry(event_id, log_level) {
    given.SHOP.add_to(*this, kp_LOG_attribute_key<shop_name, 0>);
    given.CUSTOMER.add_to(*this, kp_LOG_attribute_key<customer_name, 1>);
    given.ITEMS.add_to(*this, kp_LOG_attribute_key<items_name, 2>);
    given.PRICE.add_to(*this, kp_LOG_attribute_key<price_name, 3>);
    given.BALANCE.add_to(*this, kp_LOG_attribute_key<balance_name, 4>);
  }
};

static kp_LOG_LogEntry filled_entry() {
  kp_LOG_LogEntry entry(event_id, 5);
  fill(entry);
  return entry;
}

static const char* render(const kp_LOG_LogEntry& entry) {
  static char buffer[512];
  return entry._get_imp().get_readable_message(buffer, sizeof buffer - 1, false, 0);
}

// --- Operations ---------------------------------------------------------------------------------

static void count_event(long times, unsigned id, bool icu) {
  kp_LOG_LogConfig::SetICUEnabled(icu);
  count_operation(times, [id] {
    kp_LOG_LogEntry entry(id, 5);
    fill(entry);
    render(entry);
  });
}

static void count_rendering(long times, bool icu) {
  kp_LOG_LogConfig::SetICUEnabled(icu);
  const kp_LOG_LogEntry entry = filled_entry();
  require_text(render(entry), icu ? localised_text : byte_text);
  count_operation(times, [&entry] { render(entry); });
}

static void count_making(long times) {
  count_operation(times, [] { kp_LOG_LogEntry entry(event_id, 5); });
}

// A file that has just been written is not trusted to stay the same.
static void count_making_by_class(long times) {
  count_operation(times, [] {
    entry_sale entry(5, {.SHOP = shop_value,
                         .CUSTOMER = customer_value,
                         .ITEMS = items_value,
                         .PRICE = price_value,
                         .BALANCE = balance_value});
  });
}

static void count_making_beyond_the_cache(long times) {
  file_of_kinds(n_kinds_beyond_the_cache);
  usleep(200'000);
  load_definitions(n_kinds_beyond_the_cache);
  count_operation(times, [i = 0U]() mutable {
    kp_LOG_LogEntry entry(first_event_id + i, 5);
    i = (i + 1) % n_kinds_beyond_the_cache;
  });
}

static void count_finding(long times) {
  const _kp_LOG_log_definition_tbl* const table = kp_LOG_LogConfig::GetDefinitionTable();
  count_operation(times, [table] {
    if (table->find_entry(event_id) == nullptr) std::abort();
  });
}

// The one that was added last to as many as a definition may have, or as there may be global ones.
static void count_finding_an_attribute(long times, const char* name) {
  _kp_LOG_log_definition definition;
  const auto add = [&](const char* own, const char* global) {
    definition.add_attr_info(own, TypeUInt4, false, nullptr);
    _kp_LOG_log_definition::add_global_attr_info(global, TypeUInt4);
  };
  for (unsigned i = 0; i < 254; ++i)
    add(("OWN." + std::to_string(i)).c_str(), ("GLOBAL." + std::to_string(i)).c_str());
  add("LAST.OWN", "LAST.GLOBAL");
  const _kp_LOG_name_key key(name);
  count_operation(times, [&] {
    if (definition.get_attr_info_by_name(key) == nullptr) std::abort();
  });
}

static void count_copying(long times) {
  const kp_LOG_LogEntry entry = filled_entry();
  count_operation(times, [&entry] { kp_LOG_LogEntry copy(entry); });
}

// To another place and back.
static void count_moving(long times) {
  kp_LOG_LogEntry entry = filled_entry();
  count_operation(times, [&entry] {
    kp_LOG_LogEntry other(std::move(entry));
    entry = std::move(other);
  });
}

// `low` is the lowest level that passes; the entry's is 5.
static void count_filtering(long times, const char* settings, unsigned low, bool asks_before) {
  const temp_folder folder;
  if (settings != nullptr)
    kp_LOG_LogConfig::SetConfigurationSource(folder.write("f.cfg", settings).c_str(),
                                             KP_CONFIG_FILE);
  _kp_LOG_entry_filter filter;
  filter.set_section("filter");
  filter.set_filter_log_level(low, 9);
  const kp_LOG_LogEntry entry = filled_entry();
  const bool passes = low <= 5;
  if (asks_before)
    count_operation(times, [&filter, passes] {
      if (filter.accepts(5, 0x1) != passes) std::abort();
    });
  else
    count_operation(times, [&filter, &entry, passes] {
      if (filter.check_entry(entry) != passes) std::abort();
    });
}

constexpr char rejecting_settings[] = "[filter]\nLogLevelLow=6\nLogLevelHigh=9\n[]\n\n";
constexpr char accepting_settings[] = "[filter]\nLogLevelLow=1\nLogLevelHigh=9\n[]\n\n";

std::vector<counted_operation> library_operations() {
  return {
      {"event", [](long times) { count_event(times, event_id, true); }},
      {"event_bytes", [](long times) { count_event(times, event_id, false); }},
      {"event_dated", [](long times) { count_event(times, dated_event_id, true); }},
      {"make_and_add", [](long times) { count_operation(times, [] { filled_entry(); }); }},
      {"make_and_add_keyed", count_making_by_class},
      {"make", count_making},
      {"make_beyond_cache", count_making_beyond_the_cache},
      {"render", [](long times) { count_rendering(times, true); }},
      {"render_bytes", [](long times) { count_rendering(times, false); }},
      {"find_entry", count_finding},
      {"find_attribute", [](long times) { count_finding_an_attribute(times, "LAST.OWN"); }},
      {"find_global_attribute",
       [](long times) { count_finding_an_attribute(times, "LAST.GLOBAL"); }},
      {"copy", count_copying},
      {"move", count_moving},
      {"reject", [](long times) { count_filtering(times, nullptr, 6, false); }},
      {"reject_configured",
       [](long times) { count_filtering(times, rejecting_settings, 6, false); }},
      {"filter_rejects", [](long times) { count_filtering(times, nullptr, 6, true); }},
      {"filter_rejects_settings",
       [](long times) { count_filtering(times, rejecting_settings, 6, true); }},
      {"filter_accepts_settings",
       [](long times) { count_filtering(times, accepting_settings, 1, true); }},
  };
}

// --- The program --------------------------------------------------------------------------------

constexpr char usage[] =
    "usage: kplog_instructions OPERATION TIMES            in this process, for a profile\n"
    "       kplog_instructions --each TIMES OPERATION...  each in a process of its own\n"
    "       kplog_instructions --versions                 what it was built with\n";

static std::optional<counted_operation> operation_called(std::string_view name) {
  for (const auto& operations : {library_operations(), recording_operations(),
                                 recorder_operations(), writer_operations(), peer_operations()})
    for (const counted_operation& operation : operations)
      if (operation.name == name) return operation;
  return std::nullopt;
}

static void set_up() {
  kp_LOG_LogConfig::SetLocale("en_US");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  load_definitions(n_event_kinds);
}

// In a process of its own, so that no operation finds what another one has left, and so that the
// program starts once for all: under callgrind that takes as long as some thousand operations. The
// process's count stands in callgrind's output beside the ID that is told here, with the name and
// the times.
static bool run_apart(const counted_operation& operation, long times) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    std::printf("%d %s %ld\n", static_cast<int>(getpid()), operation.name, times / operation.cost);
    std::fflush(stdout);
    operation.run(times / operation.cost);
    std::_Exit(0);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

static int run_each(long times, char** names) {
  for (; *names != nullptr; ++names) {
    const auto operation = operation_called(*names);
    if (operation && run_apart(*operation, times)) continue;
    std::fprintf(stderr, "kplog_instructions: %s: %s\n", *names,
                 operation ? "failed" : "no such operation");
    return 1;
  }
  return 0;
}

static void print_versions() {
  std::printf("g++ %s, glibc %s, ICU %s, fmt %d.%d, protobuf %s\n", __VERSION__,
              gnu_get_libc_version(), U_ICU_VERSION, FMT_VERSION / 10000, FMT_VERSION / 100 % 100,
              google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION).c_str());
}

int main(int argc, char** argv) {
  const std::string_view first = argc > 1 ? argv[1] : "";
  if (argc == 2 && first == "--versions") {
    print_versions();
    return 0;
  }
  if (argc > 3 && first == "--each") {
    set_up();
    return run_each(std::atol(argv[2]), argv + 3);
  }
  const auto operation = operation_called(first);
  if (argc != 3 || !operation) {
    std::fputs(usage, stderr);
    return 2;
  }
  set_up();
  operation->run(std::atol(argv[2]));
  return 0;
}
