#include "engines/nats/publisher.h"

#include "engines/nats/json.h"
#include "recording/text/number.h"

using std::chrono::steady_clock;

// What is on its way at most: enough for a link of some milliseconds, and little memory.
static constexpr size_t most_waiting_bytes = size_t{8} << 20;
static constexpr size_t most_waiting_messages = 1024;
static constexpr int64_t nats_answer_step = 100;  // milliseconds between questions of is_to_end
// Without any acknowledgement. A cluster chooses another leader within nine seconds.
static constexpr std::chrono::seconds nats_silence_patience{12};

nats_publisher::nats_publisher(nats_link& link) : link_(link) {
  natsInbox* inbox = nullptr;
  if (const natsStatus status = natsInbox_Create(&inbox); status != NATS_OK)
    link_.fail("no name for answers", status);
  inbox_ = inbox;
  natsInbox_Destroy(inbox);
  natsSubscription* answers = nullptr;
  if (const natsStatus status =
          natsConnection_SubscribeSync(&answers, link_.connection(), (inbox_ + ".*").c_str());
      status != NATS_OK)
    link_.fail("cannot be asked", status);
  answers_.reset(answers);
}

void nats_publisher::publish(const nats_posting& posting, nats_delivery& delivery) {
  if (waiting_.empty()) heard_ = steady_clock::now();
  send(posting);
  waiting_.emplace(next_++,
                   waiting_message{&delivery, posting.id, posting.bytes.size(), posting.records});
  ++delivery.waiting;
  waiting_bytes_ += posting.bytes.size();
  uint64_t answers = 0;
  while (natsSubscription_QueuedMsgs(answers_.get(), &answers) == NATS_OK && answers > 0)
    take_acknowledgement();
  while (waiting_bytes_ > most_waiting_bytes || waiting_.size() > most_waiting_messages)
    take_acknowledgement();
}

void nats_publisher::send(const nats_posting& posting) {
  natsMsg* made = nullptr;
  const std::string answer = inbox_ + '.' + std::to_string(next_);
  natsStatus status = natsMsg_Create(&made, posting.subject.c_str(), answer.c_str(),
                                     posting.bytes.data(), static_cast<int>(posting.bytes.size()));
  const nats_message message(made);
  if (status == NATS_OK && !posting.id.empty())
    status = natsMsgHeader_Set(made, nats_id_header, posting.id.c_str());
  if (status == NATS_OK && posting.behind)
    status = natsMsgHeader_Set(made, nats_behind_header, std::to_string(*posting.behind).c_str());
  if (status == NATS_OK) status = natsConnection_PublishMsg(link_.connection(), made);
  if (status != NATS_OK) link_.fail("cannot be sent to", status);
}

void nats_publisher::finish(const nats_delivery& delivery) {
  while (delivery.waiting != 0) take_acknowledgement();
}

void nats_publisher::publish_state(const std::string& subject, std::string_view bytes) {
  nats_delivery delivery;
  publish({.subject = subject, .bytes = bytes}, delivery);
  finish(delivery);
}

// At the end of the program what is on its way is waited for as long as the engine answers.
void nats_publisher::take_acknowledgement() {
  const bool is_to_end = link_.is_to_end();
  natsMsg* answer = nullptr;
  const natsStatus status = natsSubscription_NextMsg(&answer, answers_.get(), nats_answer_step);
  const nats_message owned(answer);
  if (status == NATS_OK) return take(answer);
  if (status == NATS_NO_RESPONDERS)
    link_.fail("nobody takes records there: the stream is gone, or without a leader");
  if (status != NATS_TIMEOUT) link_.fail("lost while records were stored", status);
  if (is_to_end) link_.go_on();
  const std::string refusal = link_.permission_error();
  if (refusal.find("Publish to \"" + link_.subjects().begin()) != refusal.npos)
    link_.fail("does not take what it is sent" + refusal);
  if (steady_clock::now() - heard_ > nats_silence_patience)
    link_.fail("does not acknowledge what it is sent (is there a majority of its servers?)" +
               refusal);
}

void nats_publisher::take(natsMsg* answer) {
  const std::string_view subject = natsMsg_GetSubject(answer);
  const auto number = number_of<uint64_t>(subject.substr(subject.rfind('.') + 1));
  const auto found = number ? waiting_.find(*number) : waiting_.end();
  if (found == waiting_.end()) return;
  const std::string_view bytes(natsMsg_GetData(answer),
                               static_cast<size_t>(natsMsg_GetDataLength(answer)));
  take_stored(found->second, bytes);
  heard_ = steady_clock::now();
  --found->second.delivery->waiting;
  waiting_bytes_ -= found->second.bytes;
  waiting_.erase(found);
}

void nats_publisher::take_stored(const waiting_message& message, std::string_view answer) const {
  const nats_json json(answer);
  nats_delivery& delivery = *message.delivery;
  if (const auto error = json.text("error", "description")) {
    const uint64_t code = json.number("error", "err_code").value_or(0);
    delivery.is_overtaken = code == JSStreamWrongLastSequenceErr;
    if (delivery.is_overtaken) return;
    link_.fail("does not store what it is sent: " + *error + " [" + std::to_string(code) + "]");
  }
  const uint64_t sequence = json.number("seq").value_or(0);
  // A repetition of what is not stored yet would have no number, and is none of what is there.
  if (sequence == 0) link_.fail("answers what is no acknowledgement");
  if (json.is_true("duplicate")) delivery.known += message.records;
  if (sequence > delivery.newest.sequence)
    delivery.newest = {.sequence = sequence, .id = message.id};
}
