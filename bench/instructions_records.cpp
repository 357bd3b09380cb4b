// What a recorded entry costs beyond the entry and its message: the lines that sinks make of it.
#include <string>

#include "bench/instructions.h"
#include "kp_LOG_RenderMessage.h"
#include "recording/records/stored_form.h"
#include "recording/sinks/sink.h"
#include "tests/support/temp_folder.h"

// The event as the definitions know it, an entry of it, and what a sink takes of that.
class recorded_event {
 public:
  recorded_event() {
    event_.id = event_id;
    event_.name = "EVENT.77";
    event_.attributes = {{shop_name, TypeMBChar32},
                         {customer_name, TypeMBChar64},
                         {items_name, TypeUInt4},
                         {price_name, TypeFloat},
                         {balance_name, TypeSInt4}};
    made_.event = &event_;
    made_.entry = kp_LOG_LogEntry(event_id, 5);
    made_.entry.AddAttribMBStr(shop_name, shop_value);
    made_.entry.AddAttribMBStr(customer_name, customer_value);
    made_.entry.AddAttrib4u(items_name, items_value);
    made_.entry.AddAttribFloat8(price_name, price_value);
    made_.entry.AddAttrib4(balance_name, balance_value);
    message_ = kp_LOG_RenderMessage(made_.entry, false, 0);
  }

  sink_entry line() const { return {made_, message_, made_.entry.GetAttribTime("TIMESTAMP")}; }
  // As a recorder tells it.
  void add_origin() {
    made_.origin = {.recorded = "2026-11-15T17:02:56.123456789+08:00",
                    .host = "shop-4.example.org",
                    .recorder = "0123456789abcdef0123456789abcdef",
                    .pid = 31337,
                    .thread = 31338,
                    .sequence = 1234567};
  }

 private:
  known_event event_;
  made_entry made_;
  std::string message_;
};

static void count_text_lines(long times) {
  const temp_folder folder;
  const auto sink = make_text_log_sink(folder.path(), "shop", default_log_size, {});
  const recorded_event event;
  const sink_entry line = event.line();
  count_operation(times, [&] { sink->add(line); });
}

static void count_stored_lines(long times, bool has_origin) {
  stored_form form("2.0");
  recorded_event event;
  if (has_origin) event.add_origin();
  const sink_entry line = event.line();
  std::string lines;
  count_operation(times, [&] {
    lines.clear();
    form.append(lines, line);
  });
}

std::vector<counted_operation> recording_operations() {
  return {{"text_line", count_text_lines},
          {"stored_line", [](long times) { count_stored_lines(times, false); }},
          {"stored_line_with_origin", [](long times) { count_stored_lines(times, true); }}};
}
