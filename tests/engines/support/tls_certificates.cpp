#include "tests/engines/support/tls_certificates.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>

template <auto free>
struct openssl_freer {
  template <class Thing>
  void operator()(Thing* thing) const {
    free(thing);
  }
};
using tls_key = std::unique_ptr<EVP_PKEY, openssl_freer<EVP_PKEY_free>>;
using tls_certificate = std::unique_ptr<X509, openssl_freer<X509_free>>;

struct tls_authority::state {
  tls_key key{EVP_EC_gen("P-256")};
  tls_certificate certificate;
};

static void add_extension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
  ASSERT_NE(extension, nullptr);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

static tls_certificate begin_certificate(EVP_PKEY* key, const std::string& name, long seconds) {
  static long serial = 0;
  constexpr long hour = 3600;
  tls_certificate certificate(X509_new());
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -hour);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), seconds - hour);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  return certificate;
}

static void write_certificate(const std::string& path, X509* certificate) {
  FILE* const file = fopen(path.c_str(), "w");
  EXPECT_EQ(PEM_write_X509(file, certificate), 1);
  fclose(file);
}

tls_authority::tls_authority() : state_(std::make_unique<state>()) {
  constexpr long a_day = 86400;
  static int authorities = 0;
  const std::string name = "kplog test authority " + std::to_string(++authorities);
  state_->certificate = begin_certificate(state_->key.get(), name, a_day);
  X509* const own = state_->certificate.get();
  X509_set_issuer_name(own, X509_get_subject_name(own));
  add_extension(own, own, NID_basic_constraints, "critical,CA:TRUE");
  EXPECT_NE(X509_sign(own, state_->key.get(), EVP_sha256()), 0);
  write_certificate(file(), own);
}

tls_authority::~tls_authority() = default;

tls_identity tls_authority::issue(const std::string& name, long seconds) const {
  const tls_key key(EVP_EC_gen("P-256"));
  const tls_certificate certificate = begin_certificate(key.get(), name, seconds);
  X509* const issuer = state_->certificate.get();
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
  add_extension(certificate.get(), issuer, NID_subject_alt_name, "DNS:" + name);
  EXPECT_NE(X509_sign(certificate.get(), state_->key.get(), EVP_sha256()), 0);
  const std::string stem = name + "." + std::to_string(seconds);
  tls_identity identity{folder_.file(stem + ".key"), folder_.file(stem + ".pem")};
  write_certificate(identity.certificate, certificate.get());
  FILE* const file = fopen(identity.key.c_str(), "w");
  EXPECT_EQ(PEM_write_PrivateKey(file, key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
  fclose(file);
  return identity;
}
