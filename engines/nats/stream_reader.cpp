#include "engines/nats/stream_reader.h"

#include <algorithm>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

static constexpr milliseconds nats_read_step{100};
// A server that holds a subscription tells so twice a second; libnats may say when it does not any
// more.
static constexpr milliseconds nats_heartbeat{500};
// After so long without a message it is asked whether one is there. A server that caught up with
// the others wakes no subscription for what it got so, and of a killed one libnats may hear
// nothing.
static constexpr milliseconds nats_silence{1000};
static constexpr std::chrono::seconds nats_most_silence{30};
static constexpr int nats_most_looks_behind = 5;  // a second each

nats_stream_reader::nats_stream_reader(nats_link& link, std::string stream, std::string subject,
                                       uint64_t from, uint64_t again)
    : link_(link),
      stream_(std::move(stream)),
      subject_(std::move(subject)),
      from_(from),
      again_(again),
      silence_(nats_silence) {}

nats_stream_reader::~nats_stream_reader() {
  unsubscribe();
}

void nats_stream_reader::unsubscribe() {
  link_.retire(std::move(subscription_));
}

// What the server is told to send, and how: nothing is acknowledged, since whoever reads knows
// where to go on.
void nats_stream_reader::subscribe() {
  unsubscribe();
  start_ = start_ == 0 ? from_ : nats_number_before(from_, again_);
  jsSubOptions how;
  jsSubOptions_Init(&how);
  how.Stream = stream_.c_str();
  how.Config.DeliverPolicy = js_DeliverByStartSequence;
  how.Config.OptStartSeq = start_;
  how.Config.AckPolicy = js_AckNone;
  how.Config.FlowControl = true;
  how.Config.Heartbeat = std::chrono::nanoseconds(nats_heartbeat).count();
  how.Config.MemoryStorage = true;
  how.Config.Replicas = 1;
  natsSubscription* made = nullptr;
  jsErrCode code{};
  const natsStatus status = link_.ask(
      [&](jsOptions& options, jsErrCode& error) {
        return js_SubscribeSync(&made, link_.jetstream(), subject_.c_str(), &options, &how, &error);
      },
      code);
  subscription_.reset(made);
  if (status != NATS_OK) link_.fail("cannot read the stream " + stream_, status);
  natsSubscription_SetPendingLimits(made, -1, -1);  // flow control keeps it small
  delivered_ = 0;
  looked_.reset();
  heard_ = steady_clock::now();
}

// Whether nothing comes of what is there, or the last message is none that was handed out. A server
// may have to look for long, for an answer as for the next message, so that each silence is borne
// twice as long as the one before. Where nobody tells, as while servers choose a leader, nothing is
// known to be there.
bool nats_stream_reader::is_held_up() {
  if (steady_clock::now() - heard_ < silence_) return false;
  bool is_there = false;
  try {
    const stored_place last = last_there();
    is_there = looked_ ? last.time != *looked_ : last.sequence >= start_;
    looked_ = last.time;
  } catch (const engine_error&) {
  }
  heard_ = steady_clock::now();
  silence_ = std::min<milliseconds>(2 * silence_, nats_most_silence);
  uint64_t queued = 0;  // what has come meanwhile
  return is_there &&
         (natsSubscription_QueuedMsgs(subscription_.get(), &queued) != NATS_OK || queued == 0);
}

nats_message nats_stream_reader::next(milliseconds patience) {
  const auto begin = steady_clock::now();
  for (;;) {
    link_.go_on();
    if (!subscription_) subscribe();
    const auto left =
        std::chrono::duration_cast<milliseconds>(begin + patience - steady_clock::now());
    natsMsg* made = nullptr;
    const natsStatus status = natsSubscription_NextMsg(
        &made, subscription_.get(), std::clamp(left, milliseconds{1}, nats_read_step).count());
    nats_message message(made);
    if (status == NATS_OK) {
      if (is_due(made)) return message;
      unsubscribe();
      continue;
    }
    if (natsConnection_IsClosed(link_.connection()))
      link_.fail("lost while records were read", status);
    if (status != NATS_TIMEOUT || is_held_up()) unsubscribe();
    if (left <= milliseconds{0}) return nullptr;
  }
}

// Whether it is the one behind the last: messages of a subscription are numbered without gaps.
bool nats_stream_reader::is_due(natsMsg* message) {
  jsMsgMetaData* made = nullptr;
  if (natsMsg_GetMetaData(&made, message) != NATS_OK) return false;
  const nats_owned<jsMsgMetaData> data(made);
  if (data->Sequence.Consumer != delivered_ + 1 || data->Sequence.Stream < start_) return false;
  ++delivered_;
  sequence_ = data->Sequence.Stream;
  time_ = data->Timestamp;
  pending_ = data->NumPending;
  looked_ = time_;
  looks_behind_ = 0;
  from_ = std::max(from_, sequence_ + 1);
  heard_ = steady_clock::now();
  silence_ = nats_silence;
  return true;
}

int64_t nats_stream_reader::stored() const {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::nanoseconds(time_)).count();
}

nats_stream_reader::stored_place nats_stream_reader::last_there() {
  const nats_message last = link_.last_message(stream_, subject_);
  if (!last) return {};
  return {.sequence = natsMsg_GetSequence(last.get()), .time = natsMsg_GetTime(last.get())};
}

nats_message nats_stream_reader::next_there() {
  if (!is_end_known_) end_ = last_there();
  is_end_known_ = true;
  while (!is_at_end()) {
    if (nats_message message = next(nats_silence)) return message;
    take_removal();
  }
  return nullptr;
}

// Where the last message was removed, one that came later is the last: that behind which the server
// has none, or one that is behind it by any numbers.
bool nats_stream_reader::is_at_end() const {
  if (sequence_ == 0) return from_ > end_.sequence;
  const bool is_last = pending_ == 0 || sequence_ > end_.sequence + nats_again;
  return end_.sequence == 0 || time_ == end_.time || (time_ > end_.time && is_last);
}

// A new leader that knows less than it had told is not believed.
void nats_stream_reader::take_removal() {
  const stored_place last = last_there();
  if (last.time >= end_.time) {
    looks_behind_ = 0;
    return;
  }
  const auto info = link_.stream_info(stream_);
  if (!info || info->State.LastSeq >= end_.sequence || info->State.LastTime >= end_.time)
    end_ = last;
  else if (++looks_behind_ == nats_most_looks_behind)
    link_.fail("the stream " + stream_ + " has less than it had");
}
