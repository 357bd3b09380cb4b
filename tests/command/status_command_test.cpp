// How a running service is: its metrics file, and what it answers those who ask.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "tests/command/emit_service_fixture.h"
#include "tests/command/golden_file.h"
#include "tests/recording/sinks/lock_holder.h"

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class StatusCommand : public EmitService {
 protected:
  command_result ask(const std::string& options = "") {
    return run_kplog(folder_.path(), "status " + options + " sock", "export TZ=Asia/Singapore; ");
  }
  json status() {
    const auto run = ask("--format json");
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out, nullptr, false);
  }
  // Looks at the metrics until they say that.
  void wait_for_metrics(const std::string& line) {
    for (int tries = 0; tries < 6000; ++tries) {
      if (metrics().find("\n" + line + "\n") != std::string::npos) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    FAIL() << line << "\nis not in\n" << metrics();
  }
  std::string metrics() const { return folder_.text("kplog.prom"); }
};

static const std::string run_label = "{run=\"unix:sock\"";

// --- status

TEST_F(StatusCommand, TellsOfRecordsOutputsAndClients) {
  const auto service = start_listening({"--to", "text:shop", "--to", "json:stored", "--ack"});
  const auto sender = client();
  sender->send(note_record("one") + login_record("alice", 7) + "bad\n" + note_record("two"));
  while (service->out_line() != "4") ASSERT_FALSE(HasFailure());
  const json told = status();
  EXPECT_EQ(told["run"], "unix:sock");
  EXPECT_EQ(told["process"], service->id());
  EXPECT_EQ(told["records"],
            json::parse(R"({"read":4,"written":3,"rejected":0,"bad":1,"unwritten":0})"));
  EXPECT_EQ(told["outputs"][0]["to"], "text:shop");
  EXPECT_EQ(told["outputs"][0]["bytes"], folder_.text("shop.20261115.0001").size());
  EXPECT_EQ(told["outputs"][1]["bytes"], folder_.text("stored").size());
  EXPECT_EQ(told["failures"], 0);
  EXPECT_FALSE(told.contains("failing"));
  EXPECT_EQ(told["clients"]["connected"], 2);  // who asks is one
  EXPECT_EQ(told["clients"]["accepted"], 2);
  EXPECT_EQ(
      told["events"][0],
      json::parse(R"({"event":1003,"name":"NOTE","read":2,"written":2,"rejected":0,"bad":0})"));
  sender->send(note_record("still served"));
  EXPECT_EQ(service->out_line(), "5");
  EXPECT_EQ(end_of(*service).status, 1);
}

TEST_F(StatusCommand, IsShownToPeople) {
  const auto service = start_listening({"--to", "text:shop", "--ack"});
  const auto sender = client();
  sender->send(note_record("one") + "bad\n");
  while (service->out_line() != "2") ASSERT_FALSE(HasFailure());
  std::string text = std::regex_replace(
      ask().out, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}[+]08:00"), "TIME");
  text = std::regex_replace(text, std::regex("process [0-9]+"), "process 4711");
  expect_golden_file("status.expected", text);
}

TEST_F(StatusCommand, IsTheServicesOwnAnswerToAHello) {
  const auto service = start_listening();
  for (const char* hello :
       {R"({"kplog":1,"status":true})", R"( { "kplog" : 1 , "status": true } )"}) {
    const auto asking = client();
    asking->send(std::string(hello) + "\n" + note_record("not read"));
    EXPECT_THAT(asking->line(), StartsWith(R"({"status":{"run":"unix:sock",)"));
    EXPECT_EQ(asking->line(), "");
  }
  for (const char* hello :
       {R"({"kplog":1,"status":false})", R"({"kplog":1,"status":1})",
        R"({"kplog":2,"status":true})", R"({"kplog":1,"status":true,"client":"a"})",
        R"({"kplog":1,"status":true,"first":1})"}) {
    const auto asking = client();
    asking->send(std::string(hello) + "\n");
    EXPECT_THAT(asking->line(), StartsWith(R"({"error":)")) << hello;
    EXPECT_EQ(asking->line(), "");
  }
  client()->send(note_record("served"));
  EXPECT_EQ(service->out_line(), "served");
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(StatusCommand, NobodyThereIsAnError) {
  const auto none = ask();
  EXPECT_EQ(none.status, 3);
  EXPECT_EQ(none.err, "kplog: cannot connect to sock: No such file or directory\n");
  EXPECT_EQ(run_kplog(folder_.path(), "status").status, 2);
  const auto longer = run_kplog(folder_.path(), "status " + std::string(108, 's'));
  EXPECT_EQ(longer.status, 2);
  EXPECT_EQ(longer.err, "kplog: the path of a socket has 1 to 107 bytes\n");
}

// Clients that send nothing, and have no end of a line yet, keep nobody from asking.
TEST_F(StatusCommand, IsToldWhileOutputsCannotBeWritten) {
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0755), 0);
  const auto service =
      start_listening({"--to", "text:logs/shop", "--ack", "--metrics", "kplog.prom"});
  const auto silent = client();
  const auto sender = client();
  const auto half = client();
  half->send("{\"kplog\":");
  sender->send(note_record("one"));
  EXPECT_EQ(service->out_line(), "1");
  std::filesystem::remove_all(folder_.path("logs"));
  sender->send(note_record("two"));
  wait_for_metrics("kplog_emit_failing" + run_label + "} 1");
  for (int round = 0; round < 2; ++round) {
    const json told = status();
    EXPECT_THAT(told["failing"]["text"].get<std::string>(), HasSubstr("logs"));
    EXPECT_EQ(told["records"]["unwritten"], 1);
    EXPECT_GT(told["failures"], 0);
  }
  EXPECT_THAT(ask().out, HasSubstr("outputs: cannot be written since "));
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0755), 0);
  EXPECT_EQ(service->out_line(), "2");
  wait_for_metrics("kplog_emit_failing" + run_label + "} 0");
  EXPECT_FALSE(status().contains("failing"));
  silent->send(note_record("three"));
  EXPECT_EQ(service->out_line(), "3");
  half->send("1,\"status\":true}\n");
  EXPECT_THAT(half->line(), StartsWith(R"({"status":)"));
  EXPECT_EQ(end_of(*service).status, 0);
}

// --- --metrics

TEST_F(StatusCommand, IsToldWhileAnotherProcessHoldsALock) {
  const auto service = start_listening({"--to", "text:shop", "--ack"});
  const auto sender = client();
  sender->send(note_record("one"));
  EXPECT_EQ(service->out_line(), "1");
  lock_holder holder(folder_.path("shop_lock"));
  sender->send(note_record("two"));
  EXPECT_TRUE(service->wait_for_err("waiting for the lock"));
  EXPECT_EQ(status()["records"]["written"], 1);
  holder.leave();
  EXPECT_EQ(service->out_line(), "2");
}

TEST_F(StatusCommand, MetricsAreWrittenFromTheStartToTheEnd) {
  const auto service = start_listening({"--to", "text:shop", "--ack", "--metrics", "kplog.prom"});
  EXPECT_THAT(metrics(), HasSubstr("kplog_emit_clients" + run_label + "} 0\n"));
  const auto sender = client();
  sender->send(note_record("one") + "bad\n");
  wait_for_metrics("kplog_emit_records_total" + run_label + ",result=\"bad\"} 1");
  wait_for_metrics("kplog_emit_clients" + run_label + "} 1");
  struct stat status {};
  ASSERT_EQ(stat(folder_.path("kplog.prom").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);
  sender->send(note_record("two"));
  while (service->out_line() != "3") ASSERT_FALSE(HasFailure());
  EXPECT_EQ(end_of(*service).status, 1);
  EXPECT_THAT(metrics(),
              HasSubstr("kplog_emit_records_total" + run_label + ",result=\"written\"} 2\n"));
}

TEST_F(StatusCommand, MetricsOfARunOverFilesTellWhatItCameTo) {
  const auto run =
      folder_.emit_text("-q --to json:stored --metrics kplog.prom", note_record("a") + "bad\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(metrics(),
              AllOf(HasSubstr("kplog_emit_records_total{run=\"json:stored\",result=\"bad\"} 1\n"),
                    HasSubstr("kplog_emit_output_bytes_total{run=\"json:stored\",output="
                              "\"json:stored\"} " +
                              std::to_string(folder_.text("stored").size()) + "\n"),
                    Not(HasSubstr("kplog_emit_clients"))));
}

// Readers find a whole file at any time.
TEST_F(StatusCommand, MetricsAreThereWhole) {
  const auto service = start_listening({"--to", "text:shop", "--ack", "--metrics", "kplog.prom"});
  const auto sender = client();
  const std::string last =
      "kplog_emit_ended_connections_total" + run_label + ",reason=\"bad records\"} 0\n";
  for (int i = 1; i <= 200; ++i) {
    sender->send(note_record("a"));
    EXPECT_EQ(service->out_line(), std::to_string(i));
    const std::string text = metrics();
    ASSERT_TRUE(text.starts_with("# HELP") && text.ends_with(last)) << text;
  }
}

TEST_F(StatusCommand, MetricsThatCannotBeWrittenDoNotEndAService) {
  EXPECT_EQ(folder_.emit_text("--to - --metrics nowhere/kplog.prom", "").status, 3);
  ASSERT_EQ(mkdir(folder_.path("metrics").c_str(), 0755), 0);
  const auto service =
      start_listening({"--to", "text:shop", "--ack", "--metrics", "metrics/kplog.prom"});
  std::filesystem::remove_all(folder_.path("metrics"));
  const auto sender = client();
  sender->send(note_record("one"));
  EXPECT_EQ(service->out_line(), "1");
  EXPECT_TRUE(service->wait_for_err("cannot write metrics/kplog.prom: No such file or directory"));
  sender->send(note_record("two"));
  EXPECT_EQ(service->out_line(), "2");
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(StatusCommand, MetricsAreNoOtherFileOfTheRun) {
  for (const char* arguments :
       {"--to json:x --metrics x", "--to text:x --metrics x.20261115.0001", "--to - --metrics x x",
        "--to - --metrics -", "--to - --metrics ./", "--to - --metrics events.ldf"})
    EXPECT_EQ(folder_.emit_text(arguments, "").status, 2) << arguments;
}
