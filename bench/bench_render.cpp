// The message of the event with five attributes, through ICU and by the byte renderer.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_event.h"
#include "bench/bench_peer_event.h"
#include "bench/peers/byte_message.h"
#include "bench/peers/icu_message.h"
#include "kp_LOG.h"
#include "logging/logentry_i.h"

// Every renderer must give the text of its kind; floating numbers are what differs.
constexpr char icu_text[] =
    "User alice.liddell.42 logged in from workstation-17.north.hub on port 51413 at load 0.625, "
    "balance -1204";
constexpr char byte_text[] =
    "User alice.liddell.42 logged in from workstation-17.north.hub on port 51413 at load 0.625000, "
    "balance -1204";

// Times `render`, which must give `expected`.
template <class Render>
static void time_rendering(benchmark::State& state, const char* expected, Render&& render) {
  if (std::string(render()) != expected) {
    state.SkipWithError("another text than expected");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(render());
}

static kp_LOG_LogEntry filled_entry() {
  bench_load_definitions(1);
  kp_LOG_LogEntry entry(bench_first_id, 5);
  bench_fill(entry);
  return entry;
}

// --- The library --------------------------------------------------------------------------------

static void time_string(benchmark::State& state, bool icu, const char* expected) {
  const kp_LOG_LogEntry entry = filled_entry();
  kp_LOG_LogConfig::SetICUEnabled(icu);
  time_rendering(state, expected, [&entry] { return kp_LOG_RenderMessage(entry); });
}

static void time_buffer(benchmark::State& state, bool icu, const char* expected) {
  const kp_LOG_LogEntry entry = filled_entry();
  kp_LOG_LogConfig::SetICUEnabled(icu);
  char buffer[512];
  time_rendering(state, expected, [&entry, &buffer] {
    return entry._get_imp().get_readable_message(buffer, sizeof buffer - 1, false, 0);
  });
}

static void render_icu_kplog_string(benchmark::State& state) {
  time_string(state, true, icu_text);
}
BENCHMARK(render_icu_kplog_string);

static void render_icu_kplog_buffer(benchmark::State& state) {
  time_buffer(state, true, icu_text);
}
BENCHMARK(render_icu_kplog_buffer);

static void render_bytes_kplog_string(benchmark::State& state) {
  time_string(state, false, byte_text);
}
BENCHMARK(render_bytes_kplog_string);

static void render_bytes_kplog_buffer(benchmark::State& state) {
  time_buffer(state, false, byte_text);
}
BENCHMARK(render_bytes_kplog_buffer);

// --- Peers --------------------------------------------------------------------------------------

// Its declarations must outlive an event.
static const peer_event<peer_std_map>& filled_peer() {
  static const auto declarations = bench_declarations<peer_std_map>();
  static const peer_event<peer_std_map> event = [] {
    peer_event<peer_std_map> result(declarations);
    bench_fill(result);
    return result;
  }();
  return event;
}

static const peer_icu_message& peer_icu() {
  static const peer_icu_message message(
      "User {0} logged in from {1} on port {2,number,##########} at load {3,number}, balance "
      "{4,number,##########}",
      {bench_user, bench_host, bench_port, bench_load, bench_balance});
  return message;
}

static void render_icu_message_format_per_call(benchmark::State& state) {
  time_rendering(state, icu_text, [] { return peer_icu().render_anew(filled_peer()); });
}
BENCHMARK(render_icu_message_format_per_call);

static void render_icu_message_format_once(benchmark::State& state) {
  time_rendering(state, icu_text, [] { return peer_icu().render(filled_peer()); });
}
BENCHMARK(render_icu_message_format_once);

static void render_bytes_snprintf(benchmark::State& state) {
  const std::vector<peer_message_piece> pieces = {{"User ", bench_user},
                                                  {" logged in from ", bench_host},
                                                  {" on port ", bench_port},
                                                  {" at load ", bench_load},
                                                  {", balance ", bench_balance}};
  time_rendering(state, byte_text,
                 [&pieces] { return peer_render_snprintf(pieces, filled_peer()); });
}
BENCHMARK(render_bytes_snprintf);

static void render_bytes_fmt(benchmark::State& state) {
  const std::string format = "User {} logged in from {} on port {} at load {:f}, balance {}";
  const std::string_view names[] = {bench_user, bench_host, bench_port, bench_load, bench_balance};
  time_rendering(state, byte_text,
                 [&format, &names] { return peer_render_fmt(format, names, filled_peer()); });
}
BENCHMARK(render_bytes_fmt);
