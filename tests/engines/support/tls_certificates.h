// Certificates of tests: an authority of their own, and what it says of servers.
#ifndef TESTS_ENGINES_SUPPORT_TLS_CERTIFICATES_H
#define TESTS_ENGINES_SUPPORT_TLS_CERTIFICATES_H

#include <memory>
#include <string>

#include "tests/support/temp_folder.h"

// Files of PEM.
struct tls_identity {
  std::string key;
  std::string certificate;
};

class tls_authority {
 public:
  tls_authority();
  ~tls_authority();

  // Its certificate, a file.
  std::string file() const { return folder_.file("authority.pem"); }
  const temp_folder& folder() const { return folder_; }
  // A server's, of that name ("localhost"), which is valid for so many seconds from an hour ago on.
  tls_identity issue(const std::string& name, long seconds = 1000000) const;

 private:
  struct state;

  temp_folder folder_;
  std::unique_ptr<state> state_;
};

#endif
