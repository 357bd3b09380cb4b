// A connection to JetStream, and its two streams. Everything raises engine_error, whose text begins
// with the address; whoever gets one drops the connection and makes another. Used by one thread.
#ifndef ENGINES_NATS_LINK_H
#define ENGINES_NATS_LINK_H

#include <nats/nats.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/nats/subject.h"
#include "tools/ship/engine.h"

// Gives libnats's objects back.
struct nats_deleter {
  void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
  void operator()(natsConnection* connection) const { natsConnection_Destroy(connection); }
  void operator()(natsSubscription* subscription) const { natsSubscription_Destroy(subscription); }
  void operator()(natsMsg* message) const { natsMsg_Destroy(message); }
  void operator()(jsCtx* context) const { jsCtx_Destroy(context); }
  void operator()(jsStreamInfo* info) const { jsStreamInfo_Destroy(info); }
  void operator()(jsMsgMetaData* data) const { jsMsgMetaData_Destroy(data); }
};
template <class Object>
using nats_owned = std::unique_ptr<Object, nats_deleter>;
using nats_message = nats_owned<natsMsg>;

inline std::string_view nats_bytes(const nats_message& message) {
  return {natsMsg_GetData(message.get()),
          static_cast<size_t>(natsMsg_GetDataLength(message.get()))};
}

// The header by whose value the engine knows repetitions.
inline constexpr const char* nats_id_header = "Nats-Msg-Id";
// The header by whose value it refuses what another message of that subject came before.
inline constexpr const char* nats_behind_header = "Nats-Expected-Last-Subject-Sequence";

// The streams as make_streams makes them: for each a line of JSON, as JetStream takes it to make
// one.
std::string nats_streams_text(const engine_options& options);

class nats_link {
 public:
  // Connects, and raises engine_error where that cannot be done.
  explicit nats_link(const engine_options& options);
  ~nats_link();
  nats_link(const nats_link&) = delete;
  nats_link& operator=(const nats_link&) = delete;

  const nats_subjects& subjects() const { return subjects_; }
  natsConnection* connection() const { return connection_.get(); }
  jsCtx* jetstream() const { return jetstream_.get(); }
  const engine_options& options() const { return options_; }

  // Makes the streams where they are not there, and tells what is set otherwise than it should be.
  void make_streams();
  // The stream, when it is there.
  nats_owned<jsStreamInfo> stream_info(const std::string& stream);
  // The last message of a stream with such a subject, wildcards allowed; or null.
  nats_message last_message(const std::string& stream, const std::string& subject);
  // That with this number; or null.
  nats_message message_at(const std::string& stream, uint64_t sequence);

  // Bytes that a message may have in the stream of records, its subject and header included.
  size_t largest_message() const { return largest_message_; }

  // Asks the engine for something, again where there is no answer; `call` is one attempt. The
  // status is NATS_OK or that of an answer.
  natsStatus ask(const std::function<natsStatus(jsOptions& options, jsErrCode& code)>& call,
                 jsErrCode& code);

  // Ends a subscription. libnats 3.4 may still be at a message of it, so that its memory is kept as
  // long as the connection.
  void retire(nats_owned<natsSubscription> subscription);

  bool is_to_end() const { return options_.is_to_end && options_.is_to_end(); }
  // Raises where this is to end.
  void go_on() const;
  // "ADDRESS: TEXT"; the second behind what libnats says of the status.
  [[noreturn]] void fail(const std::string& text) const;
  [[noreturn]] void fail(const std::string& action, natsStatus status) const;
  // " (TEXT)": what the server refused last. Who is not allowed to ask gets no answer.
  std::string permission_error() const;

 private:
  void connect();
  void make_stream(jsStreamConfig& wanted);
  void compare(const jsStreamConfig& wanted, const jsStreamInfo& found);
  void tell(const std::string& text) const;

  const engine_options options_;
  nats_subjects subjects_;
  std::vector<nats_owned<natsSubscription>> retired_;
  nats_owned<natsConnection> connection_;
  nats_owned<jsCtx> jetstream_;
  size_t largest_message_ = 0;
};

#endif
