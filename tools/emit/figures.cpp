#include "tools/emit/figures.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "base/kp_time.h"
#include "recording/text/escape.h"
#include "recording/text/json_text.h"
#include "tools/emit/metrics_writer.h"

// --- Metrics ---

static void write_results(metrics_writer& metrics, const emit_tally& tally,
                          const std::string& labels) {
  const std::string comma = labels.empty() ? "" : ",";
  metrics.line(tally.written, labels + comma + metrics_writer::label("result", "written"));
  metrics.line(tally.rejected, labels + comma + metrics_writer::label("result", "rejected"));
  metrics.line(tally.bad, labels + comma + metrics_writer::label("result", "bad"));
}

static std::string event_labels(const known_event* event) {
  if (event == nullptr)
    return metrics_writer::label("event", "") + "," + metrics_writer::label("id", "");
  return metrics_writer::label("event", event->name) + "," +
         metrics_writer::label("id", std::to_string(event->id));
}

static void write_records(metrics_writer& metrics, const emit_figures& figures) {
  const emit_tally total = total_of(figures.tallies);
  metrics.family("kplog_emit_records_total", "counter", "Records, by what became of them.");
  write_results(metrics, total, "");
  metrics.family("kplog_emit_unwritten_records", "gauge", "Records that wait to be written.");
  metrics.line(total.unwritten());
  metrics.family("kplog_emit_event_records_total", "counter",
                 "Records of each event; without a name and ID those that are of none.");
  for (const emit_tallies::value_type* row : rows_by_id(figures.tallies))
    write_results(metrics, row->second, event_labels(row->first));
}

static void write_batches(metrics_writer& metrics, const emit_figures& figures) {
  const batch_figures& batches = figures.batches;
  metrics.family("kplog_emit_input_bytes_total", "counter", "Bytes of the lines of records.");
  metrics.line(batches.input_bytes);
  metrics.family("kplog_emit_output_bytes_total", "counter", "Bytes written to each output.");
  for (size_t i = 0; i < batches.output_bytes.size(); ++i)
    metrics.line(batches.output_bytes[i], metrics_writer::label("output", figures.sinks[i]));
  metrics.family("kplog_emit_batches_total", "counter", "Batches written.");
  metrics.line(batches.batches);
  metrics.family("kplog_emit_last_batch_timestamp_seconds", "gauge",
                 "When the last batch was written.");
  if (batches.last) metrics.seconds(*batches.last);
  metrics.family("kplog_emit_quarantined_lines_total", "counter",
                 "Bad lines, by whether the quarantine had room for them.");
  metrics.line(batches.quarantined, metrics_writer::label("result", "kept"));
  metrics.line(batches.not_quarantined, metrics_writer::label("result", "lost"));
}

static void write_failures(metrics_writer& metrics, const failure_figures& failures) {
  metrics.family("kplog_emit_write_failures_total", "counter",
                 "Tries to write a batch that failed.");
  metrics.line(failures.tries);
  metrics.family("kplog_emit_failing", "gauge", "1 while the outputs cannot be written.");
  metrics.line(failures.since ? 1 : 0);
  metrics.family("kplog_emit_failing_since_timestamp_seconds", "gauge",
                 "Since when they cannot be written.");
  if (failures.since) metrics.seconds(*failures.since);
}

static void write_clients(metrics_writer& metrics, const service_figures& clients) {
  metrics.family("kplog_emit_clients", "gauge", "Clients that are connected.");
  metrics.line(clients.connected);
  metrics.family("kplog_emit_waiting_clients", "gauge", "Clients that wait because of --max-rate.");
  metrics.line(clients.waiting);
  metrics.family("kplog_emit_connections_total", "counter", "Connections so far.");
  metrics.line(clients.accepted);
  metrics.family("kplog_emit_ended_connections_total", "counter",
                 "Connections that the service ended, by the reason.");
  metrics.line(clients.refused, metrics_writer::label("reason", "too many"));
  metrics.line(clients.given_up, metrics_writer::label("reason", "half a line"));
  metrics.line(clients.closed, metrics_writer::label("reason", "bad records"));
}

std::string metrics_text(const emit_figures& figures) {
  metrics_writer metrics(figures.name);
  metrics.family("kplog_emit_start_timestamp_seconds", "gauge", "When the run began.");
  metrics.seconds(figures.began);
  write_records(metrics, figures);
  write_batches(metrics, figures);
  write_failures(metrics, figures.failures);
  if (figures.clients) write_clients(metrics, *figures.clients);
  return metrics.text();
}

// --- Status ---

static constexpr size_t most_events = 100;

static std::string time_text(figure_time time) {
  std::array<char, 64> text{};
  kp_Time(time).print_out(text.data(), text.size());
  return text.data();
}

static void append_counts(json_text& json, const emit_tally& tally) {
  json.key("read").number(tally.read).key("written").number(tally.written);
  json.key("rejected").number(tally.rejected).key("bad").number(tally.bad);
}

static void append_batches(json_text& json, const emit_figures& figures) {
  const batch_figures& batches = figures.batches;
  json.key("input_bytes").number(batches.input_bytes).key("batches").number(batches.batches);
  if (batches.last) json.key("last_batch").text(time_text(*batches.last));
  json.key("outputs").begin_list();
  for (size_t i = 0; i < batches.output_bytes.size(); ++i)
    json.begin_object()
        .key("to")
        .text(figures.sinks[i])
        .key("bytes")
        .number(batches.output_bytes[i])
        .end_object();
  json.end_list().key("quarantine").begin_object();
  json.key("kept").number(batches.quarantined).key("lost").number(batches.not_quarantined);
  json.end_object();
}

static void append_failures(json_text& json, const failure_figures& failures) {
  json.key("failures").number(failures.tries);
  if (!failures.since) return;
  json.key("failing").begin_object().key("since").text(time_text(*failures.since));
  json.key("text").text(failures.trouble).end_object();
}

static void append_clients(json_text& json, const service_figures& clients) {
  json.key("clients").begin_object();
  json.key("connected").number(clients.connected).key("waiting").number(clients.waiting);
  json.key("accepted").number(clients.accepted).key("refused").number(clients.refused);
  json.key("given_up").number(clients.given_up).key("closed").number(clients.closed);
  json.end_object();
}

static void append_events(json_text& json, const emit_tallies& tallies) {
  std::vector<const emit_tallies::value_type*> rows = rows_by_id(tallies);
  std::stable_sort(rows.begin(), rows.end(), [](const auto* one, const auto* other) {
    return one->second.read > other->second.read;
  });
  rows.resize(std::min(rows.size(), most_events));
  json.key("events").begin_list();
  for (const auto* row : rows) {
    json.begin_object().key("event");
    if (row->first == nullptr)
      json.written("null");
    else
      json.number(row->first->id).key("name").text(row->first->name);
    append_counts(json, row->second);
    json.end_object();
  }
  json.end_list();
}

std::string status_json(const emit_figures& figures) {
  std::string object;
  json_text json(object);
  const emit_tally total = total_of(figures.tallies);
  json.begin_object().key("run").text(figures.name).key("process").number(figures.process);
  json.key("began").text(time_text(figures.began)).key("now").text(time_text(figures.now));
  json.key("records").begin_object();
  append_counts(json, total);
  json.key("unwritten").number(total.unwritten()).end_object();
  append_batches(json, figures);
  append_failures(json, figures.failures);
  if (figures.clients) append_clients(json, *figures.clients);
  append_events(json, figures.tallies);
  json.end_object();
  return object;
}
