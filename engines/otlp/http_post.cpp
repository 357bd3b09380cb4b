#include "engines/otlp/http_post.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <mutex>

#include "engines/common/waiting.h"
#include "recording/text/escape.h"

static constexpr size_t longest_http_answer = size_t{64} << 10;

// What curl has, freed in the end.
template <auto free>
struct curl_freer {
  template <class Thing>
  void operator()(Thing* thing) const {
    free(thing);
  }
};

struct http_post::state {
  std::string address;  // for texts
  const engine_options& options;
  std::unique_ptr<curl_slist, curl_freer<curl_slist_free_all>> headers;
  std::unique_ptr<CURLM, curl_freer<curl_multi_cleanup>> multi;
  std::unique_ptr<CURL, curl_freer<curl_easy_cleanup>> easy;
  std::array<char, CURL_ERROR_SIZE> error{};
  std::string answer;

  template <class Value>
  void set(CURLoption option, Value value) const {
    if (curl_easy_setopt(easy.get(), option, value) != CURLE_OK)
      throw engine_error(address + ": libcurl lacks what is needed: option " +
                         std::to_string(option));
  }
  void add_header(const char* header) {
    curl_slist* const longer = curl_slist_append(headers.get(), header);
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(headers.release());  // the list that has become longer
    headers.reset(longer);
  }
  void begin(const engine_address& at, const std::string& path, const http_patience& patience);
  void identify(const engine_address& at) const;
  CURLcode perform() const;
};

// Ends the request where there is more.
static size_t keep_http_answer(char* bytes, size_t, size_t size, void* answer) {
  std::string& text = *static_cast<std::string*>(answer);
  const size_t kept = std::min(size, longest_http_answer - text.size());
  text.append(bytes, kept);
  return kept;
}

static void begin_curl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

void http_post::state::begin(const engine_address& at, const std::string& path,
                             const http_patience& patience) {
  begin_curl();
  multi.reset(curl_multi_init());
  easy.reset(curl_easy_init());
  if (!multi || !easy) throw std::bad_alloc();
  add_header("Content-Type: application/json");
  add_header("Content-Encoding: gzip");
  add_header("Expect:");  // an answer before the body, which many do not give
  const bool is_tls = at.scheme.ends_with("https");
  const std::string url =
      (is_tls ? "https://" : "http://") + at.host_of_url() + ":" + std::to_string(at.port) + path;
  set(CURLOPT_URL, url.c_str());
  set(CURLOPT_PROTOCOLS_STR, is_tls ? "https" : "http");
  set(CURLOPT_USERAGENT, "kplog");
  set(CURLOPT_HTTPHEADER, headers.get());
  set(CURLOPT_POST, 1L);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_ERRORBUFFER, error.data());
  set(CURLOPT_WRITEFUNCTION, keep_http_answer);
  set(CURLOPT_WRITEDATA, &answer);
  set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(patience.connecting.count()));
  set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(patience.silence.count()));
  set(CURLOPT_TCP_KEEPALIVE, 1L);
  if (!options.tls_ca.empty()) {
    set(CURLOPT_CAINFO, options.tls_ca.c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  identify(at);
}

void http_post::state::identify(const engine_address& at) const {
  const std::string& user = options.user.empty() ? at.user : options.user;
  if (user.empty() && !options.password) return;
  if (!at.scheme.ends_with("https"))
    throw engine_error(address + ": " + std::string(fault_of_users_without_tls));
  if (user.empty()) {
    set(CURLOPT_HTTPAUTH, CURLAUTH_BEARER);
    set(CURLOPT_XOAUTH2_BEARER, options.password->c_str());
    return;
  }
  set(CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
  set(CURLOPT_USERNAME, user.c_str());
  if (options.password) set(CURLOPT_PASSWORD, options.password->c_str());
}

// Raises engine_error where it is to end; the connection is closed then.
CURLcode http_post::state::perform() const {
  struct request_scope {
    CURLM* multi;
    CURL* easy;
    ~request_scope() { curl_multi_remove_handle(multi, easy); }
  };
  curl_multi_add_handle(multi.get(), easy.get());
  const request_scope scope{multi.get(), easy.get()};
  for (int running = 1;;) {
    if (curl_multi_perform(multi.get(), &running) != CURLM_OK) return CURLE_FAILED_INIT;
    if (running == 0) break;
    require_going_on(options, address);
    curl_multi_poll(multi.get(), nullptr, 0, static_cast<int>(waiting_step.count()), nullptr);
  }
  int left = 0;
  const CURLMsg* const message = curl_multi_info_read(multi.get(), &left);
  return message != nullptr && message->msg == CURLMSG_DONE ? message->data.result
                                                            : CURLE_FAILED_INIT;
}

http_post::http_post(const engine_address& address, const engine_options& options,
                     const std::string& path, const http_patience& patience)
    : state_(new state{.address = address.shown(),
                       .options = options,
                       .headers = {},
                       .multi = {},
                       .easy = {},
                       .error = {},
                       .answer = {}}) {
  state_->begin(address, path, patience);
}

http_post::~http_post() = default;

// Of "Application/JSON; charset=utf-8" what tells the kind.
static std::string http_kind(const char* content_type) {
  std::string kind = content_type == nullptr ? "" : content_type;
  kind.resize(std::min(kind.find_first_of("; "), kind.size()));
  std::transform(kind.begin(), kind.end(), kind.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return kind;
}

// As seconds, also where it is told as a date.
static std::optional<std::chrono::seconds> http_retry_after(CURL* easy) {
  curl_header* header = nullptr;
  if (curl_easy_header(easy, "Retry-After", 0, CURLH_HEADER, -1, &header) != CURLHE_OK) return {};
  curl_off_t seconds = 0;
  curl_easy_getinfo(easy, CURLINFO_RETRY_AFTER, &seconds);
  return std::chrono::seconds(seconds);
}

http_answer http_post::send(const std::string& body) {
  state_->answer.clear();
  state_->error.front() = '\0';
  state_->set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  state_->set(CURLOPT_POSTFIELDS, body.c_str());
  const CURLcode result = state_->perform();
  const bool is_long = result == CURLE_WRITE_ERROR && state_->answer.size() == longest_http_answer;
  if (result != CURLE_OK && !is_long) {
    const std::string reason =
        state_->error.front() != '\0' ? state_->error.data() : curl_easy_strerror(result);
    throw engine_error(state_->address + ": " + terminal_text(reason));
  }
  CURL* const easy = state_->easy.get();
  http_answer answer;
  const char* content_type = nullptr;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &answer.status);
  curl_easy_getinfo(easy, CURLINFO_CONTENT_TYPE, &content_type);
  answer.content_type = http_kind(content_type);
  answer.retry_after = http_retry_after(easy);
  answer.body = std::move(state_->answer);
  return answer;
}
