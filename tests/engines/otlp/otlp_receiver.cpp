#include "tests/engines/otlp/otlp_receiver.h"

#include <gtest/gtest.h>

using nlohmann::json;

static std::vector<std::string> receiver_words(const std::string& key,
                                               const std::string& certificate) {
  std::vector<std::string> words = {KPLOG_OTLP_RECEIVER, KPLOG_OTLP_PACKAGES};
  if (!key.empty()) words.insert(words.end(), {key, certificate});
  return words;
}

otlp_receiver::otlp_receiver(const std::string& key, const std::string& certificate)
    : has_tls_(!key.empty()),
      process_(receiver_words(key, certificate), folder_.file("err")),
      port_(json::parse(process_.line(), nullptr, false).value("port", 0)) {}

std::string otlp_receiver::address(const std::string& path) const {
  return std::string(has_tls_ ? "otlp+https://localhost:" : "otlp+http://127.0.0.1:") +
         std::to_string(port_) + path;
}

void otlp_receiver::plan(const std::string& answer) {
  process_.send(answer + "\n");
  for (std::string line = process_.line(); line != "planned"; line = process_.line()) {
    ASSERT_NE(line, "");
    requests_.push_back(line);
  }
}

json otlp_receiver::request() {
  if (requests_.empty()) return json::parse(process_.line(), nullptr, false);
  json first = json::parse(requests_.front(), nullptr, false);
  requests_.pop_front();
  return first;
}

std::vector<json> log_records(const json& request) {
  std::vector<json> records;
  for (const json& resource : request["resourceLogs"])
    for (const json& scope : resource["scopeLogs"])
      for (const json& record : scope["logRecords"]) records.push_back(record);
  return records;
}

json attributes_of(const json& holder) {
  json attributes = json::object();
  for (const json& attribute : holder["attributes"]) {
    EXPECT_FALSE(attributes.contains(attribute["key"])) << attribute;
    attributes[attribute["key"].get<std::string>()] = attribute["value"];
  }
  return attributes;
}
