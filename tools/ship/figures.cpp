#include "tools/ship/figures.h"

#include "recording/text/words.h"
#include "tools/emit/metrics_writer.h"

// --- Metrics ---

static void write_ship_records(metrics_writer& metrics, const ship_tally& tally) {
  const auto line = [&](const char* result, uint64_t count) {
    metrics.line(count, metrics_writer::label("result", result));
  };
  metrics.family("kplog_ship_records_total", "counter", "Records, by what became of them.");
  line("stored", tally.stored);
  line("known", tally.known);
  line("pruned", tally.pruned);
  line("refused", tally.refused);
  line("bad", tally.bad);
  metrics.family("kplog_ship_batches_total", "counter", "Batches that the engine confirmed.");
  metrics.line(tally.batches);
  metrics.family("kplog_ship_last_batch_timestamp_seconds", "gauge",
                 "When the last batch was confirmed.");
  if (tally.last) metrics.seconds(*tally.last);
}

std::string metrics_text(const ship_figures& figures) {
  metrics_writer metrics(figures.name);
  metrics.family("kplog_ship_start_timestamp_seconds", "gauge", "When the run began.");
  metrics.seconds(figures.began);
  write_ship_records(metrics, figures.tally);
  metrics.family("kplog_ship_waiting_bytes", "gauge", "Bytes of lines that wait to be confirmed.");
  metrics.line(figures.state.waiting_bytes);
  metrics.family("kplog_ship_given_up_records_total", "counter",
                 "Records that were removed before they were confirmed; at least.");
  metrics.line(figures.state.given_up);
  metrics.family("kplog_ship_failures_total", "counter", "Tries to reach the engine that failed.");
  metrics.line(figures.failures);
  metrics.family("kplog_ship_failing", "gauge", "1 while the engine cannot be reached.");
  metrics.line(figures.failing_since ? 1 : 0);
  metrics.family("kplog_ship_failing_since_timestamp_seconds", "gauge",
                 "Since when it cannot be reached.");
  if (figures.failing_since) metrics.seconds(*figures.failing_since);
  return metrics.text();
}

// --- The end ---

std::string summary_text(const ship_tally& tally) {
  const auto part = [](uint64_t count, const char* what) {
    return count == 0 ? "" : ", " + std::to_string(count) + " " + what;
  };
  return counted(tally.read(), "record") + ": " + std::to_string(tally.stored) + " stored" +
         part(tally.known, "there before") + part(tally.pruned, "of days that were removed there") +
         part(tally.refused, "refused") + ", " + std::to_string(tally.bad) + " bad";
}
