#include "engines/otlp/engine.h"

#include <algorithm>
#include <random>

#include "engines/common/pipeline_engine.h"
#include "engines/common/pipeline_record.h"
#include "engines/common/waiting.h"
#include "engines/otlp/answer.h"
#include "engines/otlp/gzip.h"
#include "engines/otlp/log_request.h"
#include "recording/records/time_text.h"
#include "recording/text/words.h"

namespace chrono = std::chrono;
using steady = chrono::steady_clock;

// Where receivers of logs are asked for them by themselves.
static constexpr std::string_view otlp_logs_path = "/v1/logs";

static std::string otlp_path(const engine_address& address) {
  std::string path = address.path;
  while (path.ends_with('/')) path.pop_back();
  return path.ends_with(otlp_logs_path) ? path : path + std::string(otlp_logs_path);
}

static engine_address otlp_address(const std::string& url) {
  constexpr uint16_t usual_port = 4318;
  engine_address address = engine_address_of(url, usual_port);
  if (!address.options.empty()) throw unknown_option(address, address.options.front().first);
  return address;
}

class otlp_engine : public pipeline_engine {
 public:
  otlp_engine(const engine_options& options, const otlp_limits& limits)
      : options_(options),
        limits_(limits),
        address_(otlp_address(options.address)),
        shown_(address_.shown()),
        post_(address_, options_, otlp_path(address_), limits.patience),
        most_bytes_(limits.request) {}

  store_result store(const ship_batch& batch) override;

 private:
  // What became of a batch whose other end is not there yet.
  struct progress {
    journal_identity journal;
    std::string segment;
    uint64_t first = 0;      // digest of the segment's first line
    line_extent before;      // where the batch begins
    uint64_t line = 0;       // the last one that was taken or refused
    uint64_t digest = 0;     // of it
    bool has_taken = false;  // any of its records
    uint64_t proof = 0;      // the line that was taken before its turn; 0: none
    store_result so_far;
  };

  size_t begin_of(const ship_batch& batch);
  size_t send_from(size_t begin, const ship_batch& batch);
  size_t fill(otlp_log_request& request, size_t begin, const ship_batch& batch);
  http_answer post(const std::string& body);
  void wait_for_turn();
  void note_wait(const http_answer& answer, unsigned tries);
  otlp_success required_success(const http_answer& answer) const;
  void take_answer(const http_answer& answer, const otlp_log_request& request, uint64_t line);
  void send_less(const http_answer& answer, const otlp_log_request& request);
  void take_refusal(const http_answer& answer, size_t refused, const ship_batch& batch);
  bool takes_another(size_t refused, const ship_batch& batch);
  void refuse(uint64_t line, uint64_t records, const std::string& text);

  engine_options options_;
  otlp_limits limits_;
  engine_address address_;
  std::string shown_;
  http_post post_;
  pipeline_record_reader reader_;
  progress done_;
  size_t most_bytes_;               // of the next request
  size_t most_records_ = SIZE_MAX;  // likewise
  steady::time_point next_try_{};
  std::string next_try_text_;
  std::minstd_rand random_{std::random_device{}()};
  bool is_time_told_ = false;
  std::string warning_;  // the last one that was told
};

void otlp_engine::refuse(uint64_t line, uint64_t records, const std::string& text) {
  done_.so_far.refused.push_back({.line = line, .text = text, .records = records});
}

// Behind an error the same batch comes again: what was taken of it is not sent a second time.
size_t otlp_engine::begin_of(const ship_batch& batch) {
  const bool is_same = done_.journal == batch.journal && done_.segment == batch.after.segment &&
                       done_.first == batch.after.first && done_.before == batch.before.extent;
  if (is_same && done_.line != 0)
    for (size_t i = 0; i < batch.records.size(); ++i)
      if (batch.records[i].line == done_.line && batch.records[i].digest == done_.digest)
        return i + 1;
  done_ = {.journal = batch.journal,
           .segment = batch.after.segment,
           .first = batch.after.first,
           .before = batch.before.extent,
           .so_far = {}};
  return 0;
}

store_result otlp_engine::store(const ship_batch& batch) {
  for (size_t at = begin_of(batch); at < batch.records.size();)
    at = batch.records[at].line == done_.proof ? at + 1 : send_from(at, batch);
  store_result result = std::move(done_.so_far);
  done_ = {};
  return result;
}

static uint64_t otlp_now() {
  const auto since_1970 = chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(chrono::nanoseconds(since_1970).count());
}

// Puts records into the request from that one on; where it ends. A record that is larger than a
// request has one of its own.
size_t otlp_engine::fill(otlp_log_request& request, size_t begin, const ship_batch& batch) {
  const uint64_t now = otlp_now();
  size_t at = begin;
  for (; at < batch.records.size() && request.records() < most_records_; ++at) {
    const shipped_record& shipped = batch.records[at];
    const size_t size = request.size() + shipped.text.size();
    if (request.records() != 0 && size > most_bytes_) break;
    if (shipped.line == done_.proof) break;
    const pipeline_record* const record = reader_.read(shipped);
    if (record == nullptr) {
      if (request.records() != 0) break;  // refused when what stands before it is sent
      refuse(shipped.line, 1, reader_.fault());
      return at + 1;
    }
    if (!request.add(shipped, *record, now))
      tell_once(options_, is_time_told_, [&] {
        return shown_ +
               ": a time before 1970 or behind 2554 does not fit a record of OTLP, which then has "
               "the time when it was observed, and its own as the attribute kplog.time (line " +
               std::to_string(shipped.line) + " of " + batch.after.segment + ")";
      });
  }
  return at;
}

// Sends one request; the record behind it, or the same one where less is to be sent.
size_t otlp_engine::send_from(size_t begin, const ship_batch& batch) {
  otlp_log_request request(batch.journal, batch.after.segment);
  const size_t end = fill(request, begin, batch);
  if (request.records() != 0) {
    const http_answer answer = post(gzip_of(request.text()));
    const bool is_refused = is_otlp_refusal(answer.status);
    if (is_refused && request.records() > 1) {
      send_less(answer, request);
      return begin;
    }
    if (is_refused)
      take_refusal(answer, begin, batch);
    else
      take_answer(answer, request, batch.records[begin].line);
  }
  done_.line = batch.records[end - 1].line;
  done_.digest = batch.records[end - 1].digest;
  return end;
}

// How large requests may be stays as it is; there may be more records in one as soon as some are
// taken.
void otlp_engine::send_less(const http_answer& answer, const otlp_log_request& request) {
  if (answer.status == otlp_too_large)
    most_bytes_ = request.size() / 2;
  else
    most_records_ = request.records() / 2;
}

// Gives a record up that was refused alone, unless the receiver takes no others either.
void otlp_engine::take_refusal(const http_answer& answer, size_t refused, const ship_batch& batch) {
  const std::string fault = otlp_fault_of(answer);
  if (!done_.has_taken && !takes_another(refused, batch)) {
    done_ = {};
    most_bytes_ = limits_.request;
    const bool is_alone = refused + 1 == batch.records.size();
    throw engine_error(shown_ + ": " + fault + (is_alone ? "" : " (to each record by itself)"));
  }
  const bool is_large = answer.status == otlp_too_large;
  refuse(batch.records[refused].line, 1,
         (is_large ? "is larger than " + shown_ + " takes" : "is refused by " + shown_) + ": it " +
             fault);
}

// Whether one of some records behind the refused one is taken alone: the last, and those half as
// far away, and so on.
bool otlp_engine::takes_another(size_t refused, const ship_batch& batch) {
  for (size_t step = batch.records.size() - 1 - refused; step != 0; step /= 2) {
    const shipped_record& shipped = batch.records[refused + step];
    const pipeline_record* const record = reader_.read(shipped);
    if (record == nullptr) continue;
    otlp_log_request request(batch.journal, batch.after.segment);
    request.add(shipped, *record, otlp_now());
    const http_answer answer = post(gzip_of(request.text()));
    if (is_otlp_refusal(answer.status) || required_success(answer).rejected != 0) continue;
    done_.has_taken = true;
    done_.proof = shipped.line;
    return true;
  }
  return false;
}

// Not before the receiver wants it, and no longer than for a while.
void otlp_engine::wait_for_turn() {
  const auto left = chrono::ceil<chrono::milliseconds>(next_try_ - steady::now());
  if (left > limits_.longest_wait)
    throw engine_error(shown_ + ": asks to be left alone until " + next_try_text_);
  wait_at_engine(left, options_, shown_);
}

// As long as the receiver says; else twice as long as the last time, and not with all the others
// that were sent away.
void otlp_engine::note_wait(const http_answer& answer, unsigned tries) {
  constexpr unsigned most_doublings = 6;
  constexpr chrono::hours longest(24 * 365);  // that it is left alone
  std::uniform_real_distribution<double> part(0.5, 1.0);
  const auto usual =
      limits_.first_wait * (1U << std::min(tries - 1, most_doublings)) * part(random_);
  const auto wait = answer.retry_after
                        ? steady::duration(std::min<chrono::seconds>(*answer.retry_after, longest))
                        : chrono::duration_cast<steady::duration>(usual);
  next_try_ = steady::now() + wait;
  const kp_Time told(chrono::ceil<chrono::seconds>(chrono::system_clock::now() + wait));
  next_try_text_ = record_time_text().of(told);
}

// Sends the request until it is taken or refused.
http_answer otlp_engine::post(const std::string& body) {
  for (unsigned tries = 1;; ++tries) {
    wait_for_turn();
    http_answer answer = post_.send(body);
    if (!is_otlp_retried(answer.status)) return answer;
    note_wait(answer, tries);
    if (options_.put_off) options_.put_off();
    if (tries == limits_.tries)
      throw engine_error(shown_ + ": " + otlp_fault_of(answer) + " (" + counted(tries, "time") +
                         ")");
  }
}

otlp_success otlp_engine::required_success(const http_answer& answer) const {
  if (answer.status / 100 != 2) throw engine_error(shown_ + ": " + otlp_fault_of(answer));
  const auto success = otlp_success_of(answer);
  if (!success)
    throw engine_error(shown_ + ": answers " + std::to_string(answer.status) +
                       " with what is no answer to logs: is that a receiver of OTLP over HTTP?");
  return *success;
}

void otlp_engine::take_answer(const http_answer& answer, const otlp_log_request& request,
                              uint64_t line) {
  const otlp_success success = required_success(answer);
  const uint64_t rejected = std::min<uint64_t>(success.rejected, request.records());
  done_.has_taken |= rejected < request.records();
  most_records_ = most_records_ > SIZE_MAX / 2 ? SIZE_MAX : most_records_ * 2;
  if (rejected != 0) {
    refuse(line, rejected,
           std::to_string(rejected) + " of the " + counted(request.records(), "record") +
               " from here on " + (rejected == 1 ? "was" : "were") + " rejected by " + shown_ +
               ", which does not say which" +
               (success.message.empty() ? "" : ": " + success.message));
  } else if (!success.message.empty() && success.message != warning_) {
    warning_ = success.message;
    if (options_.tell) options_.tell(shown_ + ": warns: " + warning_);
  }
}

std::unique_ptr<ship_engine> open_otlp_engine(const engine_options& options,
                                              const otlp_limits& limits) {
  return std::make_unique<otlp_engine>(options, limits);
}

static constexpr auto open_usual_otlp_engine = [](const engine_options& options) {
  return open_otlp_engine(options, {});
};

static void check_otlp_address(const std::string& url) {
  const engine_address address = otlp_address(url);
  if (!address.user.empty() && address.scheme == otlp_http_engine.scheme)
    throw engine_error(address.shown() + ": " + std::string(fault_of_users_without_tls));
}

const engine_row otlp_http_engine = {.scheme = "otlp+http",
                                     .check = check_otlp_address,
                                     .open = open_usual_otlp_engine,
                                     .fault_of_users = fault_of_users_without_tls};
const engine_row otlp_https_engine = {
    .scheme = "otlp+https", .check = check_otlp_address, .open = open_usual_otlp_engine};
