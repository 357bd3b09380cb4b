// What a run tells of itself, in both forms.
#include "tools/emit/figures.h"

#include <gtest/gtest.h>

#include "tests/support/temp_folder.h"

namespace chrono = std::chrono;

static constexpr chrono::system_clock::time_point noon{
    chrono::sys_days(chrono::year(2026) / 11 / 15) + chrono::hours(12)};

static emit_figures figures_of_nothing() {
  emit_figures figures;
  figures.name = "json:-";
  figures.process = 42;
  figures.began = noon;
  figures.now = noon;
  figures.sinks = {"json:-"};
  figures.batches.output_bytes = {0};
  return figures;
}

static emit_figures figures_of_a_service(const known_event& login) {
  emit_figures figures = figures_of_nothing();
  figures.name = "unix:/run/a\"b\\c\n";
  figures.sinks = {"text:log/shop", "json:entries"};
  figures.tallies[&login] = {.read = 10, .written = 6, .rejected = 2, .bad = 1};
  figures.tallies[nullptr] = {.read = 3, .bad = 3};
  figures.batches = {.input_bytes = 1000,
                     .batches = 2,
                     .last = noon + chrono::seconds(1),
                     .output_bytes = {300, 700},
                     .quarantined = 3,
                     .not_quarantined = 1};
  figures.failures = {.tries = 4, .since = noon + chrono::seconds(2), .trouble = "no room\x1b"};
  figures.clients = service_figures{
      .connected = 5, .waiting = 1, .accepted = 12, .refused = 2, .given_up = 3, .closed = 4};
  return figures;
}

static known_event login_event() {
  known_event login;
  login.id = 1001;
  login.name = "LOGIN";
  return login;
}

TEST(Metrics, AreLinesThatPrometheusReads) {
  const known_event login = login_event();
  EXPECT_EQ(metrics_text(figures_of_a_service(login)),
            R"(# HELP kplog_emit_start_timestamp_seconds When the run began.
# TYPE kplog_emit_start_timestamp_seconds gauge
kplog_emit_start_timestamp_seconds{run="unix:/run/a\"b\\c\n"} 1794744000
# HELP kplog_emit_records_total Records, by what became of them.
# TYPE kplog_emit_records_total counter
kplog_emit_records_total{run="unix:/run/a\"b\\c\n",result="written"} 6
kplog_emit_records_total{run="unix:/run/a\"b\\c\n",result="rejected"} 2
kplog_emit_records_total{run="unix:/run/a\"b\\c\n",result="bad"} 4
# HELP kplog_emit_unwritten_records Records that wait to be written.
# TYPE kplog_emit_unwritten_records gauge
kplog_emit_unwritten_records{run="unix:/run/a\"b\\c\n"} 1
# HELP kplog_emit_event_records_total Records of each event; without a name and ID those that are of none.
# TYPE kplog_emit_event_records_total counter
kplog_emit_event_records_total{run="unix:/run/a\"b\\c\n",event="LOGIN",id="1001",result="written"} 6
kplog_emit_event_records_total{run="unix:/run/a\"b\\c\n",event="LOGIN",id="1001",result="rejected"} 2
kplog_emit_event_records_total{run="unix:/run/a\"b\\c\n",event="LOGIN",id="1001",result="bad"} 1
kplog_emit_event_records_total{run="unix:/run/a\"b\\c\n",event="",id="",result="written"} 0
kplog_emit_event_records_total{run="unix:/run/a\"b\\c\n",event="",id="",result="rejected"} 0
kplog_emit_event_records_total{run="unix:/run/a\"b\\c\n",event="",id="",result="bad"} 3
# HELP kplog_emit_input_bytes_total Bytes of the lines of records.
# TYPE kplog_emit_input_bytes_total counter
kplog_emit_input_bytes_total{run="unix:/run/a\"b\\c\n"} 1000
# HELP kplog_emit_output_bytes_total Bytes written to each output.
# TYPE kplog_emit_output_bytes_total counter
kplog_emit_output_bytes_total{run="unix:/run/a\"b\\c\n",output="text:log/shop"} 300
kplog_emit_output_bytes_total{run="unix:/run/a\"b\\c\n",output="json:entries"} 700
# HELP kplog_emit_batches_total Batches written.
# TYPE kplog_emit_batches_total counter
kplog_emit_batches_total{run="unix:/run/a\"b\\c\n"} 2
# HELP kplog_emit_last_batch_timestamp_seconds When the last batch was written.
# TYPE kplog_emit_last_batch_timestamp_seconds gauge
kplog_emit_last_batch_timestamp_seconds{run="unix:/run/a\"b\\c\n"} 1794744001
# HELP kplog_emit_quarantined_lines_total Bad lines, by whether the quarantine had room for them.
# TYPE kplog_emit_quarantined_lines_total counter
kplog_emit_quarantined_lines_total{run="unix:/run/a\"b\\c\n",result="kept"} 3
kplog_emit_quarantined_lines_total{run="unix:/run/a\"b\\c\n",result="lost"} 1
# HELP kplog_emit_write_failures_total Tries to write a batch that failed.
# TYPE kplog_emit_write_failures_total counter
kplog_emit_write_failures_total{run="unix:/run/a\"b\\c\n"} 4
# HELP kplog_emit_failing 1 while the outputs cannot be written.
# TYPE kplog_emit_failing gauge
kplog_emit_failing{run="unix:/run/a\"b\\c\n"} 1
# HELP kplog_emit_failing_since_timestamp_seconds Since when they cannot be written.
# TYPE kplog_emit_failing_since_timestamp_seconds gauge
kplog_emit_failing_since_timestamp_seconds{run="unix:/run/a\"b\\c\n"} 1794744002
# HELP kplog_emit_clients Clients that are connected.
# TYPE kplog_emit_clients gauge
kplog_emit_clients{run="unix:/run/a\"b\\c\n"} 5
# HELP kplog_emit_waiting_clients Clients that wait because of --max-rate.
# TYPE kplog_emit_waiting_clients gauge
kplog_emit_waiting_clients{run="unix:/run/a\"b\\c\n"} 1
# HELP kplog_emit_connections_total Connections so far.
# TYPE kplog_emit_connections_total counter
kplog_emit_connections_total{run="unix:/run/a\"b\\c\n"} 12
# HELP kplog_emit_ended_connections_total Connections that the service ended, by the reason.
# TYPE kplog_emit_ended_connections_total counter
kplog_emit_ended_connections_total{run="unix:/run/a\"b\\c\n",reason="too many"} 2
kplog_emit_ended_connections_total{run="unix:/run/a\"b\\c\n",reason="half a line"} 3
kplog_emit_ended_connections_total{run="unix:/run/a\"b\\c\n",reason="bad records"} 4
)");
}

TEST(Metrics, AreTheSameWhileNothingHappens) {
  emit_figures figures = figures_of_nothing();
  const std::string before = metrics_text(figures);
  figures.now += chrono::hours(1);
  EXPECT_EQ(metrics_text(figures), before);
  EXPECT_EQ(before.find("kplog_emit_clients"), std::string::npos);
}

TEST(Status, IsAnObject) {
  const environment_value zone("TZ", "UTC");
  const known_event login = login_event();
  EXPECT_EQ(
      status_json(figures_of_a_service(login)),
      R"({"run":"unix:/run/a\"b\\c\n","process":42,"began":"2026-11-15T12:00:00+00:00",)"
      R"("now":"2026-11-15T12:00:00+00:00","records":{"read":13,"written":6,"rejected":2,"bad":4,)"
      R"("unwritten":1},"input_bytes":1000,"batches":2,"last_batch":"2026-11-15T12:00:01+00:00",)"
      R"("outputs":[{"to":"text:log/shop","bytes":300},{"to":"json:entries","bytes":700}],)"
      R"("quarantine":{"kept":3,"lost":1},"failures":4,)"
      R"("failing":{"since":"2026-11-15T12:00:02+00:00","text":"no room\u001B"},)"
      R"("clients":{"connected":5,"waiting":1,"accepted":12,"refused":2,"given_up":3,"closed":4},)"
      R"("events":[{"event":1001,"name":"LOGIN","read":10,"written":6,"rejected":2,"bad":1},)"
      R"({"event":null,"read":3,"written":0,"rejected":0,"bad":3}]})");
}

TEST(Status, TellsOfTheHundredEventsWithTheMostRecords) {
  std::vector<known_event> events(150, login_event());
  emit_figures figures = figures_of_nothing();
  for (uint32_t i = 0; i < events.size(); ++i) {
    events[i].id = i;
    figures.tallies[&events[i]] = {.read = i};
  }
  const std::string status = status_json(figures);
  EXPECT_NE(status.find(R"("events":[{"event":149,)"), std::string::npos) << status;
  EXPECT_NE(status.find(R"({"event":50,)"), std::string::npos);
  EXPECT_EQ(status.find(R"({"event":49,)"), std::string::npos);
}
