#include "engines/syslog/engine.h"

#include <algorithm>
#include <array>

#include "engines/common/pipeline_engine.h"
#include "engines/common/pipeline_record.h"
#include "engines/syslog/message.h"
#include "recording/text/number.h"
#include "recording/text/size.h"
#include "recording/text/words.h"

// What the URL says beside the place.
struct syslog_settings {
  tls_peer peer;
  syslog_form form;
  bool is_confirmed = true;  // by the end of the connection behind each batch
};

static unsigned syslog_facility(const std::string& shown, const std::string& name) {
  static constexpr std::array<std::string_view, 24> facilities = {
      "kern",   "user",   "mail",     "daemon", "auth",   "syslog", "lpr",    "news",
      "uucp",   "cron",   "authpriv", "ftp",    "ntp",    "audit",  "alert",  "clock",
      "local0", "local1", "local2",   "local3", "local4", "local5", "local6", "local7"};
  const auto* const found = std::find(facilities.begin(), facilities.end(), name);
  if (found == facilities.end())
    throw engine_error(shown + ": no facility " + in_quotes(name) + "; local0 to local7, user, " +
                       "daemon and their like are");
  return static_cast<unsigned>(found - facilities.begin());
}

// False for a name that it does not know.
static bool read_syslog_option(const std::string& name, const std::string& value,
                               syslog_settings& settings) {
  const std::string& shown = settings.peer.shown;
  const auto wrong = [&](const char* expected) {
    return engine_error(shown + ": " + in_quotes(name) + " is " + expected + ", not " +
                        in_quotes(value));
  };
  if (name == "facility") {
    settings.form.facility = syslog_facility(shown, value);
  } else if (name == "enterprise") {
    if (!number_of<uint32_t>(value)) throw wrong("a private enterprise number");
    settings.form.enterprise = value;
  } else if (name == "max-size") {
    constexpr uint64_t least = 2048, most = uint64_t{64} << 20;
    const auto size = size_of(value);
    if (!size || *size < least || *size > most) throw wrong("a size from 2K to 64M");
    settings.form.longest = static_cast<size_t>(*size);
  } else if (name == "confirm") {
    if (value != "close" && value != "none") throw wrong("close or none");
    settings.is_confirmed = value == "close";
  } else if (name == "certificate") {
    settings.peer.certificate = value;
  } else if (name == "key") {
    settings.peer.key = value;
  } else {
    return false;
  }
  return true;
}

static constexpr std::string_view syslog_fault_of_users =
    "syslog knows no users: a certificate and its key say who sends";

static syslog_settings syslog_settings_of(const engine_options& options) {
  constexpr uint16_t usual_port = 6514;
  const engine_address address = engine_address_of(options.address, usual_port);
  syslog_settings settings;
  settings.peer.shown = address.shown();
  settings.peer.host = address.host;
  settings.peer.port = address.port;
  settings.peer.authorities = options.tls_ca;
  if (!address.user.empty() || !options.user.empty() || options.password)
    throw engine_error(settings.peer.shown + ": " + std::string(syslog_fault_of_users));
  if (!address.path.empty() && address.path != "/")
    throw engine_error(settings.peer.shown + ": the URL takes no path");
  for (const auto& [name, value] : address.options)
    if (!read_syslog_option(name, value, settings)) throw unknown_option(address, name);
  if (settings.peer.certificate.empty() != settings.peer.key.empty())
    throw engine_error(settings.peer.shown +
                       ": a certificate and its key are given together, or neither");
  return settings;
}

class syslog_engine_of_tls : public pipeline_engine {
 public:
  syslog_engine_of_tls(const engine_options& options, const tls_patience& patience)
      : options_(options), patience_(patience), settings_(syslog_settings_of(options)) {}
  ~syslog_engine_of_tls() override { leave(); }
  syslog_engine_of_tls(const syslog_engine_of_tls&) = delete;
  syslog_engine_of_tls& operator=(const syslog_engine_of_tls&) = delete;

  store_result store(const ship_batch& batch) override;

 private:
  void send(const ship_batch& batch, store_result& result);
  void leave();
  void tell_of_cut(const ship_batch& batch, uint64_t line);

  engine_options options_;
  tls_patience patience_;
  syslog_settings settings_;
  std::unique_ptr<tls_stream> stream_;
  pipeline_record_reader reader_;
  bool is_cut_told_ = false;
};

void syslog_engine_of_tls::tell_of_cut(const ship_batch& batch, uint64_t line) {
  tell_once(options_, is_cut_told_, [&] {
    return settings_.peer.shown + ": messages are cut at " +
           std::to_string(settings_.form.longest) +
           " bytes, and marked: max-size in the URL is how many the receiver takes (line " +
           std::to_string(line) + " of " + batch.after.segment + ")";
  });
}

void syslog_engine_of_tls::send(const ship_batch& batch, store_result& result) {
  constexpr size_t enough = size_t{64} << 10;
  syslog_message_writer writer(batch.journal, batch.after.segment, settings_.form);
  std::string frames;
  for (const shipped_record& shipped : batch.records) {
    const pipeline_record* const record = reader_.read(shipped);
    if (record == nullptr)
      result.refused.push_back({.line = shipped.line, .text = reader_.fault()});
    else if (!writer.append(frames, shipped, *record))
      tell_of_cut(batch, shipped.line);
    if (frames.size() < enough) continue;
    stream_->send(frames);
    frames.clear();
  }
  stream_->send(frames);
}

// Of a connection that was kept the other end may have something left to read, which the system
// would throw away where this end is closed at once. What fails here has no one to be told.
void syslog_engine_of_tls::leave() {
  try {
    if (stream_ && stream_->is_open()) stream_->end();
  } catch (const engine_error&) {
    stream_.reset();
  }
}

// Nobody knows how much of a batch has come where the connection breaks.
store_result syslog_engine_of_tls::store(const ship_batch& batch) {
  store_result result;
  if (batch.records.empty()) return result;
  if (stream_ && !stream_->is_open()) stream_.reset();
  try {
    if (!stream_) stream_ = std::make_unique<tls_stream>(settings_.peer, options_, patience_);
    send(batch, result);
    if (!settings_.is_confirmed) return result;
    stream_->end();
  } catch (...) {
    stream_.reset();
    throw;
  }
  stream_.reset();
  return result;
}

std::unique_ptr<ship_engine> open_syslog_engine(const engine_options& options,
                                                const tls_patience& patience) {
  return std::make_unique<syslog_engine_of_tls>(options, patience);
}

static void check_syslog_address(const std::string& address) {
  engine_options options;
  options.address = address;
  syslog_settings_of(options);
}

const engine_row syslog_engine = {
    .scheme = "syslog+tls",
    .check = check_syslog_address,
    .open = [](const engine_options& options) { return open_syslog_engine(options, {}); },
    .fault_of_users = syslog_fault_of_users};
