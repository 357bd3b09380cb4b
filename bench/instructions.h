// What one operation costs in instructions: the event, and the operations by their names.
#ifndef BENCH_INSTRUCTIONS_H
#define BENCH_INSTRUCTIONS_H

#include <cstdint>
#include <string>
#include <vector>

// An operation, done as often as asked.
struct counted_operation {
  const char* name;
  void (*run)(long times);
  long cost = 1;  // about how many times as long as the others it takes: it is done less often
};

// The library's, those of its recording rooms, the recorder's, those of its writer, and the same
// work done by what a program would take instead.
std::vector<counted_operation> library_operations();
std::vector<counted_operation> recording_operations();
std::vector<counted_operation> recorder_operations();
std::vector<counted_operation> writer_operations();
std::vector<counted_operation> peer_operations();

// What is counted, and nothing beside it: callgrind is told this name.
template <class Operation>
[[gnu::noinline]] void counted_loop(long times, Operation& operation) {
  for (long i = 0; i < times; ++i) operation();
}

// First so often that every kind of event has had its turn.
template <class Operation>
void count_operation(long times, Operation&& operation) {
  constexpr long warm_up = 300;
  for (long i = 0; i < warm_up && i < times; ++i) operation();
  counted_loop(times, operation);
}

// Ends the program where a renderer gives another text than the others.
void require_text(const std::string& rendered, const std::string& expected);

// The event: two strings, three numbers, and a message that shows all five. Its definition is one
// of 128.
constexpr unsigned n_event_kinds = 128;
constexpr unsigned first_event_id = 2001;
constexpr unsigned event_id = first_event_id + 77;

inline constexpr char shop_name[] = "SHOP";
inline constexpr char customer_name[] = "CUSTOMER";
inline constexpr char items_name[] = "ITEMS";
inline constexpr char price_name[] = "PRICE";
inline constexpr char balance_name[] = "BALANCE";

constexpr char shop_value[] = "north";
constexpr char customer_value[] = "l.carrol";
constexpr uint32_t items_value = 51413;
constexpr double price_value = 0.625;
constexpr int32_t balance_value = -1204;

// Its message in US English, and by the byte renderer.
constexpr char localised_text[] = "north sold 51413 to l.carrol at 0.625, balance -1204";
constexpr char byte_text[] = "north sold 51413 to l.carrol at 0.625000, balance -1204";

#endif
