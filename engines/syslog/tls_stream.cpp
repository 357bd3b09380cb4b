#include "engines/syslog/tls_stream.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <functional>
#include <future>
#include <system_error>
#include <thread>

#include "engines/common/waiting.h"
#include "recording/files/descriptor.h"
#include "recording/text/escape.h"

using tls_clock = std::chrono::steady_clock;

// What OpenSSL has, freed in the end.
template <auto free>
struct tls_freer {
  template <class Thing>
  void operator()(Thing* thing) const {
    free(thing);
  }
};

// ---- the socket ----

struct found_addresses {
  int error = 0;  // of getaddrinfo
  std::unique_ptr<addrinfo, tls_freer<freeaddrinfo>> first;
};

static found_addresses find_addresses(const std::string& host, uint16_t port) {
  found_addresses found;
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_NUMERICSERV;
  addrinfo* first = nullptr;
  found.error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &first);
  found.first.reset(first);
  return found;
}

struct tls_stream::state {
  const tls_peer& peer;
  const engine_options& options;
  const tls_patience& patience;
  std::unique_ptr<SSL_CTX, tls_freer<SSL_CTX_free>> context;
  open_descriptor socket;
  std::unique_ptr<SSL, tls_freer<SSL_free>> ssl;

  [[noreturn]] void raise(const std::string& text) const {
    throw engine_error(peer.shown + ": " + terminal_text(text));
  }
  [[noreturn]] void raise_errno(const std::string& text, int error) const {
    raise(text + ": " + std::generic_category().message(error));
  }
  [[noreturn]] void raise_ssl(const std::string& text) const;

  bool is_ready(short events, tls_clock::time_point end) const;
  found_addresses look_up(tls_clock::time_point end) const;
  int connect_to(const addrinfo& address, tls_clock::time_point end);
  void connect();
  void make_context();
  void expect_name() const;
  void shake_hands();
  void require_all_read() const;
  int run(const char* what, const std::function<int()>& operation) const;
};

// Whether it can be read or written before that time. Raises where it is to end.
bool tls_stream::state::is_ready(short events, tls_clock::time_point end) const {
  while (true) {
    require_going_on(options, peer.shown);
    pollfd waiting{socket.get(), events, 0};
    if (poll(&waiting, 1, static_cast<int>(waiting_step.count())) > 0) return true;
    if (tls_clock::now() > end) return false;
  }
}

// The resolver waits as long as it likes: on a thread of its own, which is left to it.
found_addresses tls_stream::state::look_up(tls_clock::time_point end) const {
  std::packaged_task<found_addresses()> task(
      [host = peer.host, port = peer.port] { return find_addresses(host, port); });
  std::future<found_addresses> answer = task.get_future();
  std::thread(std::move(task)).detach();
  while (answer.wait_for(waiting_step) != std::future_status::ready) {
    require_going_on(options, peer.shown);
    if (tls_clock::now() > end) raise("cannot find the host: no answer from the resolver");
  }
  found_addresses found = answer.get();
  if (found.error != 0) raise(std::string("cannot find the host: ") + gai_strerror(found.error));
  return found;
}

// The errno of why it cannot; 0: it is connected.
int tls_stream::state::connect_to(const addrinfo& address, tls_clock::time_point end) {
  constexpr int kind = SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC;
  socket = open_descriptor(::socket(address.ai_family, kind, 0));
  if (!socket.is_open()) return errno;
  const int at_once = 1;
  setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  if (::connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  if (!is_ready(POLLOUT, end)) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// One address after the other, each with its part of the time.
void tls_stream::state::connect() {
  const auto end = tls_clock::now() + patience.connecting;
  const found_addresses found = look_up(end);
  int left = 0, error = 0;
  for (const addrinfo* one = found.first.get(); one != nullptr; one = one->ai_next) ++left;
  for (const addrinfo* one = found.first.get(); one != nullptr; one = one->ai_next, --left) {
    const auto now = tls_clock::now();
    error = connect_to(*one, now + (end - now) / left);
    if (error == 0) return;
  }
  raise_errno("cannot connect", error);
}

// ---- TLS ----

// The first error is the cause of those behind it; without one it is that of a call of the system.
void tls_stream::state::raise_ssl(const std::string& text) const {
  const int of_system = errno;
  const long verified = ssl ? SSL_get_verify_result(ssl.get()) : X509_V_OK;
  const unsigned long error = ERR_get_error();
  ERR_clear_error();
  if (verified != X509_V_OK)
    raise(text + ": its certificate: " + X509_verify_cert_error_string(verified));
  if (ERR_SYSTEM_ERROR(error)) raise_errno(text, ERR_GET_REASON(error));
  if (error == 0 && of_system != 0) raise_errno(text, of_system);
  const char* const reason = ERR_reason_error_string(error);
  raise(text + ": " + (reason == nullptr ? "the connection was closed" : reason));
}

// As those of sockets, but without the signal that a closed one gives.
static int write_quietly(BIO* bio, const char* bytes, int size) {
  const int socket = static_cast<int>(BIO_get_fd(bio, nullptr));
  BIO_clear_retry_flags(bio);
  const ssize_t sent = send(socket, bytes, static_cast<size_t>(size), MSG_NOSIGNAL);
  if (sent < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_write(bio);
  return static_cast<int>(sent);
}

static const BIO_METHOD* quiet_socket() {
  static const BIO_METHOD* const method = [] {
    const BIO_METHOD* const usual = BIO_s_socket();
    BIO_METHOD* const quiet = BIO_meth_new(BIO_TYPE_SOCKET, "quiet socket");
    if (quiet == nullptr) throw std::bad_alloc();
    BIO_meth_set_write(quiet, write_quietly);
    BIO_meth_set_read(quiet, BIO_meth_get_read(usual));
    BIO_meth_set_ctrl(quiet, BIO_meth_get_ctrl(usual));
    BIO_meth_set_create(quiet, BIO_meth_get_create(usual));
    BIO_meth_set_destroy(quiet, BIO_meth_get_destroy(usual));
    return quiet;
  }();
  return method;
}

void tls_stream::state::make_context() {
  context.reset(SSL_CTX_new(TLS_client_method()));
  if (!context) throw std::bad_alloc();
  SSL_CTX* const made = context.get();
  SSL_CTX_set_min_proto_version(made, TLS1_2_VERSION);
  SSL_CTX_set_verify(made, SSL_VERIFY_PEER, nullptr);
  // Many end without the word for it, and no more is made of an end than require_all_read says.
  SSL_CTX_set_options(made, SSL_OP_IGNORE_UNEXPECTED_EOF);
  SSL_CTX_set_mode(made, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  const bool has_authorities =
      peer.authorities.empty()
          ? SSL_CTX_set_default_verify_paths(made) == 1
          : SSL_CTX_load_verify_locations(made, peer.authorities.c_str(), nullptr) == 1;
  if (!has_authorities) raise_ssl("cannot read the authorities of " + peer.authorities);
  if (peer.certificate.empty()) return;
  if (SSL_CTX_use_certificate_chain_file(made, peer.certificate.c_str()) != 1)
    raise_ssl("cannot read the certificate " + peer.certificate);
  if (SSL_CTX_use_PrivateKey_file(made, peer.key.c_str(), SSL_FILETYPE_PEM) != 1)
    raise_ssl("cannot read the key " + peer.key);
}

void tls_stream::state::expect_name() const {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  const bool is_address = inet_pton(AF_INET, peer.host.c_str(), bytes.data()) == 1 ||
                          inet_pton(AF_INET6, peer.host.c_str(), bytes.data()) == 1;
  X509_VERIFY_PARAM* const expected = SSL_get0_param(ssl.get());
  X509_VERIFY_PARAM_set_hostflags(expected, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  // What SSL_set_tlsext_host_name is, which casts as C does.
  const auto tell_name = [&] {
    std::string name = peer.host;
    return SSL_ctrl(ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                    name.data()) == 1;
  };
  const bool is_set =
      is_address ? X509_VERIFY_PARAM_set1_ip_asc(expected, peer.host.c_str()) == 1
                 : X509_VERIFY_PARAM_set1_host(expected, peer.host.c_str(), 0) == 1 && tell_name();
  if (!is_set) raise_ssl("cannot verify the name");
}

// Runs one of OpenSSL's until it has done what it can; what it returned, above 0. The end of the
// connection in order is 0.
int tls_stream::state::run(const char* what, const std::function<int()>& operation) const {
  while (true) {
    ERR_clear_error();
    errno = 0;
    const int result = operation();
    if (result > 0) return result;
    const auto end = tls_clock::now() + patience.silence;
    switch (SSL_get_error(ssl.get(), result)) {
      case SSL_ERROR_WANT_READ:
        if (!is_ready(POLLIN, end)) raise(std::string(what) + ": nothing came for too long");
        break;
      case SSL_ERROR_WANT_WRITE:
        if (!is_ready(POLLOUT, end)) raise(std::string(what) + ": it reads nothing");
        break;
      case SSL_ERROR_ZERO_RETURN:
        return 0;
      default:
        raise_ssl(what);
    }
  }
}

void tls_stream::state::shake_hands() {
  ssl.reset(SSL_new(context.get()));
  BIO* const bio = ssl ? BIO_new(quiet_socket()) : nullptr;
  if (bio == nullptr) throw std::bad_alloc();
  BIO_set_fd(bio, socket.get(), BIO_NOCLOSE);
  SSL_set_bio(ssl.get(), bio, bio);
  expect_name();
  if (run("no TLS", [this] { return SSL_connect(ssl.get()); }) == 0)
    raise("no TLS: the connection was closed");
}

// ---- the stream ----

tls_stream::tls_stream(const tls_peer& peer, const engine_options& options,
                       const tls_patience& patience)
    : state_(new state{.peer = peer,
                       .options = options,
                       .patience = patience,
                       .context = {},
                       .socket = open_descriptor(),
                       .ssl = {}}) {
  state_->make_context();
  state_->connect();
  state_->shake_hands();
}

tls_stream::~tls_stream() = default;

void tls_stream::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const int size = static_cast<int>(std::min<size_t>(bytes.size(), INT32_MAX));
    const int sent = state_->run("cannot send",
                                 [&] { return SSL_write(state_->ssl.get(), bytes.data(), size); });
    if (sent == 0) state_->raise("cannot send: the connection was closed");
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
}

// Reads what the other end sends, which is nothing but the news that it has left.
bool tls_stream::is_open() {
  std::array<char, 512> heard{};
  while (true) {
    ERR_clear_error();
    const int got = SSL_read(state_->ssl.get(), heard.data(), static_cast<int>(heard.size()));
    if (got <= 0) return SSL_get_error(state_->ssl.get(), got) == SSL_ERROR_WANT_READ;
  }
}

// Waits until the other end has closed the connection, by whichever words of TLS it did so or not.
// It had read all where its system has confirmed every byte, and does not say otherwise: what is
// left unread at the end, or comes behind it, is answered by a reset.
void tls_stream::state::require_all_read() const {
  constexpr const char* what = "ended without having read all";
  const auto end = tls_clock::now() + patience.silence;
  std::array<char, 512> heard{};
  for (ssize_t got = 1; got != 0;) {
    if (!is_ready(POLLIN, end)) raise(std::string(what) + ": nothing came for too long");
    got = recv(socket.get(), heard.data(), heard.size(), MSG_DONTWAIT);
    if (got < 0 && errno != EAGAIN && errno != EINTR) raise_errno(what, errno);
  }
  for (int unconfirmed = 1; unconfirmed != 0;) {
    int error = 0;
    socklen_t size = sizeof error;
    // In this order: a reset sets the error before it throws away what was not confirmed.
    if (ioctl(socket.get(), SIOCOUTQ, &unconfirmed) != 0) raise_errno(what, errno);
    if (getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    if (error != 0) raise_errno(what, error);
    if (tls_clock::now() > end) raise(what);
    if (unconfirmed != 0) wait_at_engine(std::chrono::milliseconds(1), options, peer.shown);
  }
}

void tls_stream::end() {
  SSL* const ssl = state_->ssl.get();
  // The first call says it, and is 0 then.
  state_->run("cannot end", [&] {
    const int result = SSL_shutdown(ssl);
    return result == 0 ? 1 : result;
  });
  shutdown(state_->socket.get(), SHUT_WR);
  // What it says still may be that it takes nothing from us.
  std::array<char, 512> heard{};
  const auto listen = [&] { return SSL_read(ssl, heard.data(), static_cast<int>(heard.size())); };
  while (state_->run("ended without having read all", listen) > 0) {
  }
  state_->require_all_read();
}
