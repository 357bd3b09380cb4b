// The event of instructions.h, made and rendered by what a program would take instead of the
// library.
#include <fmt/compile.h>
#include <fmt/format.h>
#include <pthread.h>

#include <cstdlib>
#include <string>
#include <unordered_map>

#include "bench/instructions.h"
#include "bench/peers/byte_message.h"
#include "bench/peers/icu_message.h"
#include "bench/peers/map_event.h"
#include "bench/peers/reflected_event.h"
#include "bench/peers/spdlog_filter.h"

// --- Events -------------------------------------------------------------------------------------

template <template <class> class Map>
static typename peer_event<Map>::declarations declarations() {
  return {{shop_name, {0, 32}},
          {customer_name, {0, 64}},
          {items_name, {4, 0}},
          {price_name, {2, 0}},
          {balance_name, {3, 0}}};
}

// What every kind of event declares, by its ID.
template <template <class> class Map>
static const auto& kinds_in_maps() {
  static const auto kinds = [] {
    std::unordered_map<unsigned, typename peer_event<Map>::declarations> result;
    for (unsigned i = 0; i < n_event_kinds; ++i)
      result.emplace(first_event_id + i, declarations<Map>());
    return result;
  }();
  return kinds;
}

template <class Event>
static void fill_peer(Event& event) {
  event.add(shop_name, std::string_view(shop_value));
  event.add(customer_name, std::string_view(customer_value));
  event.add(items_name, items_value);
  event.add(price_name, price_value);
  event.add(balance_name, balance_value);
}

using map_event = peer_event<peer_std_map>;

template <template <class> class Map = peer_std_map>
static peer_event<Map> filled_peer_event() {
  peer_event<Map> event(kinds_in_maps<Map>().at(event_id));
  fill_peer(event);
  return event;
}

static void count_reflection(long times) {
  const peer_reflected_kind kind(
      {{shop_name, google::protobuf::FieldDescriptor::CPPTYPE_STRING},
       {customer_name, google::protobuf::FieldDescriptor::CPPTYPE_STRING},
       {items_name, google::protobuf::FieldDescriptor::CPPTYPE_UINT32},
       {price_name, google::protobuf::FieldDescriptor::CPPTYPE_DOUBLE},
       {balance_name, google::protobuf::FieldDescriptor::CPPTYPE_INT32}});
  std::unordered_map<unsigned, const peer_reflected_kind*> kinds;
  for (unsigned i = 0; i < n_event_kinds; ++i) kinds.emplace(first_event_id + i, &kind);
  count_operation(times, [&kinds] {
    peer_reflected_event event(*kinds.at(event_id));
    fill_peer(event);
  });
}

static void count_copying_map(long times) {
  const map_event event = filled_peer_event();
  count_operation(times, [&event] { const map_event copy(event); });
}

// --- Rendering ----------------------------------------------------------------------------------

// Counts `render` of an event that is there, or that is made each time.
template <class Render>
static void count_peer_rendering(long times, bool makes_event, Render&& render) {
  if (makes_event) return count_operation(times, [&render] { render(filled_peer_event()); });
  const map_event event = filled_peer_event();
  count_operation(times, [&render, &event] { render(event); });
}

static void count_icu(long times, bool makes_event, bool keeps_format) {
  const peer_icu_message message(
      "{0} sold {1,number,##########} to {2} at {3,number}, balance {4,number,##########}",
      {shop_name, items_name, customer_name, price_name, balance_name});
  require_text(message.render(filled_peer_event()), localised_text);
  if (keeps_format)
    count_peer_rendering(times, makes_event,
                         [&message](const map_event& event) { return message.render(event); });
  else
    count_peer_rendering(times, makes_event,
                         [&message](const map_event& event) { return message.render_anew(event); });
}

static void count_icu_dated(long times) {
  const peer_icu_message message(
      "{0} sold {1,number,##########} to {2} at {3,number}, balance {4,number,##########} {5,date} "
      "{5,time}",
      {shop_name, items_name, customer_name, price_name, balance_name, peer_event_time});
  count_peer_rendering(times, true,
                       [&message](const map_event& event) { return message.render(event); });
}

static void count_snprintf(long times, bool makes_event) {
  const std::vector<peer_message_piece> pieces = {{"", shop_name},
                                                  {" sold ", items_name},
                                                  {" to ", customer_name},
                                                  {" at ", price_name},
                                                  {", balance ", balance_name}};
  require_text(peer_render_snprintf(pieces, filled_peer_event()), byte_text);
  count_peer_rendering(times, makes_event, [&pieces](const map_event& event) {
    return peer_render_snprintf(pieces, event);
  });
}

// The price as "{}" shows it, which is quicker than with six decimals.
static void count_fmt_named(long times) {
  const std::string format = "{SHOP} sold {ITEMS} to {CUSTOMER} at {PRICE}, balance {BALANCE}";
  require_text(peer_render_fmt_named(format, filled_peer_event()), localised_text);
  count_peer_rendering(times, true, [&format](const map_event& event) {
    return peer_render_fmt_named(format, event);
  });
}

static void count_fmt(long times) {
  const std::string format = "{0} sold {2} to {1} at {3}, balance {4}";
  const auto render_event = [&format](const map_event& event) {
    return fmt::format(
        fmt::runtime(format), std::get<std::string>(event.get(shop_name)),
        std::get<std::string>(event.get(customer_name)), std::get<uint32_t>(event.get(items_name)),
        std::get<double>(event.get(price_name)), std::get<int32_t>(event.get(balance_name)));
  };
  require_text(render_event(filled_peer_event()), localised_text);
  count_peer_rendering(times, false, render_event);
}

// The values are at hand, and the message is known while compiling.
static void count_fmt_compiled(long times) {
  char buffer[512];
  const auto render_values = [&buffer] {
    *fmt::format_to(buffer, FMT_COMPILE("{} sold {} to {} at {}, balance {}"), shop_value,
                    items_value, customer_value, price_value, balance_value) = '\0';
  };
  render_values();
  require_text(buffer, localised_text);
  count_operation(times, render_values);
}

// --- Look-ups and filters -----------------------------------------------------------------------

// What the library once did: each definition's ID is held against the one that is wanted, under the
// lock that lets others do the same.
static void count_scanning(long times) {
  std::vector<unsigned> ids;
  for (unsigned i = 0; i < n_event_kinds; ++i) ids.push_back(first_event_id + i);
  pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
  count_operation(times, [&ids, &lock] {
    pthread_rwlock_rdlock(&lock);
    const unsigned* id = ids.data();
    while (*const_cast<const volatile unsigned*>(id) != event_id) ++id;
    pthread_rwlock_unlock(&lock);
  });
}

static void count_hashing(long times) {
  const auto& kinds = kinds_in_maps<peer_std_map>();
  count_operation(times, [&kinds] {
    if (kinds.find(event_id) == kinds.end()) std::abort();
  });
}

static void count_spdlog_below_level(long times) {
  const peer_spdlog_logger logger;
  count_operation(times, [&logger] { logger.log_below_level(); });
}

std::vector<counted_operation> peer_operations() {
  return {
      {"icu_event", [](long times) { count_icu(times, true, true); }},
      {"icu_event_anew", [](long times) { count_icu(times, true, false); }, 20},
      {"icu_event_dated", count_icu_dated},
      {"fmt_named_event", count_fmt_named},
      {"snprintf_event", [](long times) { count_snprintf(times, true); }},
      {"map_event",
       [](long times) { count_operation(times, [] { filled_peer_event<peer_std_map>(); }); }},
      {"flat_map_event",
       [](long times) { count_operation(times, [] { filled_peer_event<peer_absl_map>(); }); }},
      {"reflected_event", count_reflection},
      {"copy_map_event", count_copying_map},
      {"icu_render", [](long times) { count_icu(times, false, true); }},
      {"snprintf_render", [](long times) { count_snprintf(times, false); }},
      {"fmt_render", count_fmt},
      {"fmt_compiled_render", count_fmt_compiled},
      {"scan_find", count_scanning},
      {"hash_find", count_hashing},
      {"spdlog_reject", count_spdlog_below_level},
  };
}
