#include "engines/otlp/answer.h"

#include <nlohmann/json.hpp>

#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

// Words of a stranger, for a person: not too many of them.
static std::string shown_otlp_words(std::string_view words) {
  constexpr size_t most = 300;
  const bool is_long = words.size() > most;
  words = without_blanks(words.substr(0, most));
  return terminal_text(words) + (is_long ? "..." : "");
}

// A member of an object; null where it is null or not there. Nothing is copied, however deep a
// stranger's JSON is.
static const nlohmann::json* otlp_member(const nlohmann::json& object, const char* name) {
  const auto found = object.find(name);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

// A number of 64 bits, which JSON encodes as a text; a number is accepted as well.
static std::optional<uint64_t> otlp_count(const nlohmann::json* value) {
  if (value == nullptr) return 0;
  if (value->is_string()) return number_of<uint64_t>(value->get_ref<const std::string&>());
  if (value->is_number_unsigned()) return value->get<uint64_t>();
  return std::nullopt;
}

static std::string otlp_text(const nlohmann::json& object, const char* name) {
  const nlohmann::json* const found = otlp_member(object, name);
  return found != nullptr && found->is_string()
             ? shown_otlp_words(found->get_ref<const std::string&>())
             : "";
}

std::optional<otlp_success> otlp_success_of(const http_answer& answer) {
  if (answer.body.empty()) return otlp_success{};
  const nlohmann::json json = nlohmann::json::parse(answer.body, nullptr, false);
  if (!json.is_object()) return std::nullopt;
  const nlohmann::json* const partial = otlp_member(json, "partialSuccess");
  if (partial == nullptr) return otlp_success{};
  if (!partial->is_object()) return std::nullopt;
  const auto rejected = otlp_count(otlp_member(*partial, "rejectedLogRecords"));
  if (!rejected) return std::nullopt;
  return otlp_success{*rejected, otlp_text(*partial, "errorMessage")};
}

bool is_otlp_retried(long status) {
  return status == 429 || status == 502 || status == 503 || status == 504;
}

bool is_otlp_refusal(long status) {
  constexpr long bad_request = 400;
  return status == bad_request || status == otlp_too_large;
}

static const char* otlp_hint(long status) {
  switch (status) {
    case 401:
    case 403:
      return "; --user and --password-file say who sends";
    case 404:
    case 405:
      return "; is that the path of a receiver of OTLP over HTTP?";
    case 415:
      return "; it has to take JSON, compressed with gzip";
    default:
      return status / 100 == 3 ? "; kplog follows no redirections" : "";
  }
}

std::string otlp_fault_of(const http_answer& answer) {
  std::string words;
  const nlohmann::json json = nlohmann::json::parse(answer.body, nullptr, false);
  if (json.is_object())
    words = otlp_text(json, "message");
  else if (answer.content_type != "text/html")
    words = shown_otlp_words(answer.body);
  return "answers " + std::to_string(answer.status) + (words.empty() ? "" : ": " + words) +
         otlp_hint(answer.status);
}
