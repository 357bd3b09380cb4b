#include "engines/nats/link.h"

#include <netdb.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "base/kp_clib.h"
#include "engines/nats/address.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

static constexpr milliseconds nats_step{100};  // how often is_to_end is asked
static constexpr seconds nats_connect_patience{10};
static constexpr seconds nats_ask_patience{10};
static constexpr seconds nats_leader_patience{6};  // while nobody listens to a request

// What a thread of its own connects, since libnats can only wait for that.
struct nats_attempt {
  std::mutex mutex;
  std::condition_variable ended;
  bool has_ended = false;
  natsStatus status = NATS_OK;
  std::string reason;
  std::vector<std::string> hosts;
  nats_owned<natsOptions> options;
  nats_owned<natsConnection> connection;
};

// What libnats says of the last failure, without the place in its source.
static std::string nats_reason(natsStatus status) {
  const char* const said = nats_GetLastError(nullptr);
  std::string_view reason = said != nullptr ? said : "";
  if (const size_t place = reason.find("): ");
      reason.starts_with('(') && place != std::string_view::npos)
    reason.remove_prefix(place + 3);
  return std::string(reason.empty() ? natsStatus_GetText(status) : reason);
}

static void nats_check(natsStatus status) {
  if (status == NATS_NO_MEMORY) throw std::bad_alloc();
  if (status != NATS_OK) throw engine_error(natsStatus_GetText(status));
}

// What the system trusts. libnats trusts nobody by itself.
static std::string nats_system_authorities() {
  constexpr const char* debian = "/etc/ssl/certs/ca-certificates.crt";
  return KP_access(debian, R_OK) == 0 ? debian : X509_get_default_cert_file();
}

static void nats_set_tls(natsOptions* options, const std::string& authorities) {
  const std::string file = authorities.empty() ? nats_system_authorities() : authorities;
  nats_check(natsOptions_SetSecure(options, true));
  if (natsOptions_LoadCATrustedCertificates(options, file.c_str()) != NATS_OK)
    throw engine_error(file + " cannot be read as certificates of authorities");
}

static nats_owned<natsOptions> nats_options_of(const nats_address& address,
                                               const engine_options& options) {
  natsOptions* made = nullptr;
  nats_check(natsOptions_Create(&made));
  nats_owned<natsOptions> owned(made);
  std::vector<const char*> servers;
  for (const std::string& server : address.servers) servers.push_back(server.c_str());
  nats_check(natsOptions_SetServers(made, servers.data(), static_cast<int>(servers.size())));
  const auto several = std::min<int64_t>(static_cast<int64_t>(servers.size()), 4);
  const milliseconds each = milliseconds(nats_connect_patience) / several;
  nats_check(natsOptions_SetTimeout(made, each.count()));
  nats_check(natsOptions_SetAllowReconnect(made, false));
  nats_check(natsOptions_SetPingInterval(made, 10'000));
  nats_check(natsOptions_SetMaxPingsOut(made, 2));
  nats_check(natsOptions_SetWriteDeadline(made, 5'000));
  nats_check(natsOptions_SetName(made, "kplog"));
  if (address.is_tls) nats_set_tls(made, options.tls_ca);
  const std::string& user = options.user.empty() ? address.user : options.user;
  if (!user.empty())
    nats_check(natsOptions_SetUserInfo(made, user.c_str(), options.password.value_or("").c_str()));
  else if (options.password)
    nats_check(natsOptions_SetToken(made, options.password->c_str()));
  return owned;
}

// "; the name "broker" is not known: ..." of those that the system does not find: libnats says of
// these no more than of servers that are not there.
static std::string nats_unknown_names(const std::vector<std::string>& hosts) {
  std::string text;
  for (const std::string& host : hosts) {
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, nullptr, &found);
    if (error == 0)
      freeaddrinfo(found);
    else
      text += "; the name " + in_quotes(host) + " is not found: " + gai_strerror(error);
  }
  return text;
}

static void nats_connect(const std::shared_ptr<nats_attempt>& attempt) {
  natsConnection* connection = nullptr;
  const natsStatus status = natsConnection_Connect(&connection, attempt->options.get());
  std::string reason = status == NATS_OK ? "" : nats_reason(status);
  if (status == NATS_NO_SERVER) reason += nats_unknown_names(attempt->hosts);
  const std::lock_guard lock(attempt->mutex);
  attempt->connection.reset(connection);
  attempt->status = status;
  attempt->reason = std::move(reason);
  attempt->has_ended = true;
  attempt->ended.notify_all();
}

nats_link::nats_link(const engine_options& options)
    : options_(options), subjects_(options.address, options.stream) {
  connect();
  jsCtx* jetstream = nullptr;
  if (const natsStatus status = natsConnection_JetStream(&jetstream, connection_.get(), nullptr);
      status != NATS_OK)
    fail("JetStream cannot be used", status);
  jetstream_.reset(jetstream);
  largest_message_ =
      static_cast<size_t>(std::max<int64_t>(natsConnection_GetMaxPayload(connection_.get()), 0));
}

nats_link::~nats_link() = default;

void nats_link::connect() {
  const nats_address address = nats_address_of(options_.address);
  const auto attempt = std::make_shared<nats_attempt>();
  try {
    attempt->options = nats_options_of(address, options_);
    attempt->hosts = address.hosts;
  } catch (const engine_error& error) {
    fail(error.what());
  }
  std::thread([attempt] { nats_connect(attempt); }).detach();
  std::unique_lock lock(attempt->mutex);
  while (!attempt->ended.wait_for(lock, nats_step, [&] { return attempt->has_ended; })) go_on();
  if (attempt->status == NATS_OK) {
    connection_ = std::move(attempt->connection);
    return;
  }
  std::string text = "cannot connect: " + attempt->reason;
  if (attempt->status == NATS_SSL_ERROR) text += "; who is trusted is told with --tls-ca FILE";
  if (attempt->status == NATS_SECURE_CONNECTION_WANTED)
    text += "; where the server is not to be verified, the address ends with ?tls=off";
  fail(text);
}

void nats_link::retire(nats_owned<natsSubscription> subscription) {
  if (!subscription) return;
  natsSubscription_Unsubscribe(subscription.get());
  retired_.push_back(std::move(subscription));
}

void nats_link::go_on() const {
  if (is_to_end()) fail("ended before the engine had answered");
}

void nats_link::fail(const std::string& text) const {
  std::string line = options_.address + ": " + text;
  std::ranges::replace(line, '\n', ' ');
  throw engine_error(line);
}

void nats_link::fail(const std::string& action, natsStatus status) const {
  fail(action + ": " + nats_reason(status) + permission_error());
}

std::string nats_link::permission_error() const {
  const char* error = nullptr;
  if (natsConnection_GetLastError(connection_.get(), &error) == NATS_OK || error == nullptr ||
      *error == '\0')
    return "";
  return " (" + std::string(error) + ")";
}

void nats_link::tell(const std::string& text) const {
  if (options_.tell) options_.tell(options_.address + ": " + text);
}

natsStatus nats_link::ask(
    const std::function<natsStatus(jsOptions& options, jsErrCode& code)>& call, jsErrCode& code) {
  const auto begin = steady_clock::now();
  for (;;) {
    go_on();
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = 1000;
    code = jsErrCode{};
    const natsStatus status = call(options, code);
    const bool is_without_leader =
        status == NATS_NO_RESPONDERS || code == JSClusterNotAvailErr || code == JSStreamOfflineErr;
    if (status != NATS_TIMEOUT && !is_without_leader) return status;
    const auto patience = is_without_leader ? nats_leader_patience : nats_ask_patience;
    const bool is_refused = status == NATS_TIMEOUT && !permission_error().empty();
    if (is_refused || steady_clock::now() - begin > patience ||
        natsConnection_IsClosed(connection_.get()))
      return status;
    if (is_without_leader) std::this_thread::sleep_for(nats_step);
  }
}

nats_owned<jsStreamInfo> nats_link::stream_info(const std::string& stream) {
  jsStreamInfo* info = nullptr;
  jsErrCode code{};
  const natsStatus status = ask(
      [&](jsOptions& options, jsErrCode& error) {
        return js_GetStreamInfo(&info, jetstream_.get(), stream.c_str(), &options, &error);
      },
      code);
  nats_owned<jsStreamInfo> owned(info);
  if (status != NATS_OK && status != NATS_NOT_FOUND)
    fail("cannot ask for the stream " + stream, status);
  return owned;
}

nats_message nats_link::last_message(const std::string& stream, const std::string& subject) {
  natsMsg* message = nullptr;
  jsErrCode code{};
  const natsStatus status = ask(
      [&](jsOptions& options, jsErrCode& error) {
        return js_GetLastMsg(&message, jetstream_.get(), stream.c_str(), subject.c_str(), &options,
                             &error);
      },
      code);
  nats_message owned(message);
  if (status != NATS_OK && code != JSNoMessageFoundErr)
    fail("cannot read the stream " + stream, status);
  return owned;
}

nats_message nats_link::message_at(const std::string& stream, uint64_t sequence) {
  natsMsg* message = nullptr;
  jsErrCode code{};
  const natsStatus status = ask(
      [&](jsOptions& options, jsErrCode& error) {
        return js_GetMsg(&message, jetstream_.get(), stream.c_str(), sequence, &options, &error);
      },
      code);
  nats_message owned(message);
  if (status != NATS_OK && code != JSNoMessageFoundErr)
    fail("cannot read the stream " + stream, status);
  return owned;
}

static constexpr std::chrono::minutes nats_duplicate_window{2};
static constexpr const char* records_description = "Records of kplog";
static constexpr const char* state_description =
    "Where senders of kplog are, and what their records are shown by";

static void append_nats_stream(std::string& text, const std::string& name,
                               const std::string& subjects, bool is_state, unsigned replicas) {
  json_text json(text);
  json.begin_object().key("name").text(name);
  json.key("description").text(is_state ? state_description : records_description);
  json.key("subjects").begin_list().text(subjects).end_list();
  json.key("retention").text("limits").key("storage").text("file");
  json.key("num_replicas").number(replicas).key("discard").text(is_state ? "old" : "new");
  json.key("duplicate_window").number(std::chrono::nanoseconds(nats_duplicate_window).count());
  for (const std::string_view unlimited :
       {"max_consumers", "max_msgs", "max_bytes", "max_msg_size"})
    json.key(unlimited).number(-1);
  json.key("max_msgs_per_subject").number(is_state ? 1 : -1).key("max_age").number(0).end_object();
  text += '\n';
}

std::string nats_streams_text(const engine_options& options) {
  const nats_subjects subjects(options.address, options.stream);
  std::string text;
  append_nats_stream(text, subjects.records_stream(), subjects.all_records(), false,
                     options.replicas);
  append_nats_stream(text, subjects.state_stream(), subjects.all_states(), true, options.replicas);
  return text;
}

void nats_link::make_streams() {
  const std::string records = subjects_.all_records();
  const std::string states = subjects_.all_states();
  std::array<const char*, 1> subjects = {records.c_str()};
  jsStreamConfig wanted;
  jsStreamConfig_Init(&wanted);
  wanted.Name = subjects_.records_stream().c_str();
  wanted.Description = records_description;
  wanted.Subjects = subjects.data();
  wanted.SubjectsLen = 1;
  wanted.Storage = js_FileStorage;
  wanted.Replicas = options_.replicas;
  wanted.Discard = js_DiscardNew;
  wanted.Duplicates = std::chrono::nanoseconds(nats_duplicate_window).count();
  make_stream(wanted);
  subjects = {states.c_str()};
  wanted.Name = subjects_.state_stream().c_str();
  wanted.Description = state_description;
  wanted.MaxMsgsPerSubject = 1;
  wanted.Discard = js_DiscardOld;
  make_stream(wanted);
}

void nats_link::make_stream(jsStreamConfig& wanted) {
  if (const auto found = stream_info(wanted.Name)) return compare(wanted, *found);
  jsErrCode code{};
  jsStreamInfo* made = nullptr;
  const natsStatus status = ask(
      [&](jsOptions& options, jsErrCode& error) {
        return js_AddStream(&made, jetstream_.get(), &wanted, &options, &error);
      },
      code);
  const nats_owned<jsStreamInfo> owned(made);
  if (status == NATS_OK || code == JSStreamNameExistErr) return;
  fail("cannot make the stream " + std::string(wanted.Name), status);
}

static bool is_nats_subject_of(const std::string& subject, const jsStreamConfig& stream) {
  for (int i = 0; i < stream.SubjectsLen; ++i)
    if (subject == stream.Subjects[i]) return true;
  return false;
}

// Settings are the business of whoever keeps the engine: told, unless nothing can be stored so.
void nats_link::compare(const jsStreamConfig& wanted, const jsStreamInfo& found) {
  const jsStreamConfig& is = *found.Config;
  const std::string name = "the stream " + std::string(wanted.Name);
  if (!is_nats_subject_of(wanted.Subjects[0], is))
    fail(name + " does not take the subjects " + wanted.Subjects[0] +
         "; another name is told with --stream");
  if (is.NoAck) fail(name + " acknowledges nothing (no_ack), so that nothing is known to be there");
  if (is.Sealed) fail(name + " is sealed");
  if (is.Retention != js_LimitsPolicy)
    fail(name + " removes what was read: its retention has to be \"limits\"");
  if (is.MaxMsgSize > 0)
    largest_message_ = std::min(largest_message_, static_cast<size_t>(is.MaxMsgSize));
  if (is.Storage != js_FileStorage) tell(name + " keeps what it has in memory alone");
  if (is.Replicas != wanted.Replicas)
    tell(name + " has " + std::to_string(is.Replicas) + " replicas, where " +
         std::to_string(wanted.Replicas) + " are asked for");
  if (wanted.Discard == js_DiscardNew && is.Discard != js_DiscardNew)
    tell(name + " removes its oldest records when it is full (discard \"old\")");
  if (wanted.MaxMsgsPerSubject != 1 && is.MaxMsgsPerSubject > 0)
    tell(name + " keeps the last " + std::to_string(is.MaxMsgsPerSubject) +
         " messages of a subject alone");
  if (wanted.MaxMsgsPerSubject == 1 && is.MaxMsgsPerSubject != 1)
    tell(name + " keeps more than the last message of a subject, and grows");
}
