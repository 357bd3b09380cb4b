// Requests of HTTP to one address, over a connection that is kept.
#ifndef ENGINES_OTLP_HTTP_POST_H
#define ENGINES_OTLP_HTTP_POST_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engines/common/address.h"
#include "tools/ship/engine.h"

// Why a user, or a password, is refused there.
inline constexpr std::string_view fault_of_users_without_tls =
    "a password is not sent without TLS, where others can read it: otlp+https://... has it";

struct http_answer {
  long status = 0;
  std::string content_type;  // in lower case, without parameters; empty: none
  std::string body;          // the first 64 KiB
  std::optional<std::chrono::seconds> retry_after;  // what it asks for
};

// How long somebody at the other end may say nothing.
struct http_patience {
  std::chrono::seconds connecting{10};
  // Beyond it less than a byte a second came and went; the speed is that of five seconds.
  std::chrono::seconds silence{25};
};

// Used by one thread at a time.
class http_post {
 public:
  // TLS where the scheme ends with "https": verified, and by options.tls_ca where it is given. A
  // password goes with the user, or alone as a bearer token.
  http_post(const engine_address& address, const engine_options& options, const std::string& path,
            const http_patience& patience);
  ~http_post();

  // Sends the body, JSON that is compressed with gzip. Raises engine_error where no answer comes,
  // and where it is to end.
  http_answer send(const std::string& body);

 private:
  struct state;

  std::unique_ptr<state> state_;
};

#endif
