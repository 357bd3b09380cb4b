// The peer of `kplog emit`: reads the same records with the same parser, and writes the same lines
// through spdlog, each formatted by fmt where it stands. There is one kind of event, known while
// compiling; nothing is checked but that a member is there and of its type.
//
// usage: spdlog_records RECORDS.jsonl LOG
#include <simdjson.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdint>
#include <iostream>
#include <string_view>

namespace ondemand = simdjson::ondemand;

static void log_record(spdlog::logger& log, ondemand::object record) {
  const std::string_view event = record["event"];
  const uint64_t level = record["level"];
  const std::string_view time = record["time"];
  ondemand::object attributes = record["attributes"];
  const std::string_view user = attributes["USER_NAME"];
  const uint64_t port = attributes["PORT"];
  const std::string_view host = attributes["HOST"];
  const uint64_t attempts = attributes["ATTEMPTS"];
  const double seconds = attributes["SECONDS"];
  log.info("{} {} {} User {} logged in from {} on port {} after {} attempts in {:.3} s", time,
           level, event, user, host, port, attempts, seconds);
}

static void log_records(const char* records, const char* path) {
  const auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(path);
  spdlog::logger log("records", sink);
  log.set_pattern("%v");
  const simdjson::padded_string text = simdjson::padded_string::load(records);
  ondemand::parser parser;
  ondemand::document_stream stream = parser.iterate_many(text);
  for (auto record : stream) log_record(log, record.get_object());
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    log_records(argv[1], argv[2]);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
