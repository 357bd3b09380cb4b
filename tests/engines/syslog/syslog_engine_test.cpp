#include "engines/syslog/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "recording/files/descriptor.h"
#include "tests/engines/support/loopback_socket.h"
#include "tests/engines/support/made_batch.h"
#include "tests/engines/syslog/rsyslog_server.h"

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class SyslogEngine : public testing::Test {
 protected:
  SyslogEngine() { options_.tls_ca = authority_.file(); }

  std::unique_ptr<ship_engine> open(const std::string& address) {
    options_.address = address;
    options_.tell = [this](const std::string& text) { told_.push_back(text); };
    return open_syslog_engine(options_, patience_);
  }
  // What storing raises; "" where it raises nothing.
  std::string error_of(const std::string& address, const ship_batch& batch) {
    try {
      open(address)->store(batch);
    } catch (const engine_error& error) {
      return error.what();
    }
    return "";
  }

  const tls_authority authority_;
  engine_options options_;
  tls_patience patience_;
  std::vector<std::string> told_;
};

static std::string line_of(const std::string& text, const std::string& more = "") {
  return R"({"version":"2.0","event":1003,"name":"NOTE","level":3,"time":"2026-11-15T17:02:56+08:00")" +
         more + R"(,"attributes":{"TEXT":")" + text +
         R"("},"types":{"TEXT":"MBChar64"},"message_index":0,"message":"note: )" + text + R"("})";
}

TEST_F(SyslogEngine, SendsAllThatARecordSays) {
  rsyslog_server server(authority_, authority_.issue("localhost"));
  const auto engine = open(server.address("/?facility=daemon&enterprise=4711"));
  const made_batch made({
      R"({"version":"2.0","event":1001,"name":"USER_LOGIN","level":2,"time":"2026-11-15T17:02:56+08:00",)"
      R"("recorded":"2026-11-15T17:02:56.123456789+08:00","host":"till 3","recorder":"r-77","pid":4711,)"
      R"("thread":4712,"sequence":5,"client":"till","number":9,"peer":{"user":1000,"process":4713},)"
      R"("context":{"trace":"4bf92f35","k8s":{"pod":"shop-4"},"tags":["a",1],"none":null},)"
      R"("attributes":{"USER_NAME":"a\"l]\\i\u001bce \u202eé😀","PORT":51234,"RATIO":1.5,"OPEN":true},)"
      R"("types":{"USER_NAME":"MBChar64","PORT":"UInt2","RATIO":"Float","OPEN":"Bool"},"message_index":0,)"
      R"("message":"älice came in\nby \"port\" 51,234"})",
      R"({"version":"2.0","event":7,"level":9,"time":"1969-12-31T23:59:59Z","attributes":{},"types":{},)"
      R"("message_index":0})",
  });
  EXPECT_FALSE(engine->positions(made.journal).has_value());
  EXPECT_THAT(engine->store(made.batch()).refused, IsEmpty());
  const std::vector<json> got = server.messages(2);
  json first = got.at(0);
  EXPECT_THAT(first["parsed"]["kplog@4711"]["id"].get<std::string>(),
              StartsWith("shop-1:/var/log/shop/shop:shop.20261115.0001.jsonl:1:"));
  first["parsed"]["kplog@4711"].erase("id");
  EXPECT_THAT(first["data"].get<std::string>(), HasSubstr(" USER_NAME=\"a\\\"l\\]"));
  first.erase("data");
  // rsyslog reads names of parameters in lower case.
  EXPECT_EQ(first,
            json::parse(R"({"pri":"27","time":"2026-11-15T17:02:56.123456+08:00","host":"till_3",
      "application":"shop","process":"4711","kind":"USER_LOGIN","parsed":{
      "kplog@4711":{"version":"2.0","event":"1001","name":"USER_LOGIN","level":"2",
        "recorded":"2026-11-15T17:02:56.123456789+08:00","recorder":"r-77","thread":"4712","sequence":"5",
        "client":"till","number":"9","peer.user":"1000","peer.process":"4713"},
      "attributes@4711":{"user_name":"a\"l]\\i\\x1Bce \\u{202E}é😀","port":"51234","ratio":"1.5","open":"true"},
      "context@4711":{"trace":"4bf92f35","k8s.pod":"shop-4","tags":"[\"a\",1]","none":"null"}},
      "message":"\ufeffälice came in\\x0Aby \"port\" 51,234"})"));
  const json second = got.at(1);
  EXPECT_EQ(second["pri"], "31");
  EXPECT_EQ(second["time"], "1969-12-31T23:59:59Z");
  EXPECT_EQ(second["host"], "shop-1");
  EXPECT_EQ(second["process"], "-");
  EXPECT_EQ(second["kind"], "7");
  EXPECT_EQ(second["message"], "");
}

TEST_F(SyslogEngine, SendsBatchesOneBehindTheOther) {
  rsyslog_server server(authority_, authority_.issue("localhost"));
  std::vector<std::string> lines, texts;
  for (int i = 0; i < 1200; ++i) {
    texts.push_back("\xEF\xBB\xBFnote: " + std::to_string(i));
    lines.push_back(line_of(std::to_string(i)));
  }
  lines[600] = "{no record}";
  texts.erase(texts.begin() + 600);
  // One connection for each batch, which confirms it; one for all of them, which confirms nothing.
  for (const std::string query : {"", "?confirm=none"}) {
    const auto engine = open(server.address(query));
    for (size_t begin = 0; begin < lines.size(); begin += 400) {
      const made_batch made({lines.begin() + static_cast<std::ptrdiff_t>(begin),
                             lines.begin() + static_cast<std::ptrdiff_t>(begin) + 400},
                            begin + 1);
      const store_result result = engine->store(made.batch());
      ASSERT_EQ(result.refused.size(), begin == 400 ? 1U : 0U);
      for (const refused_record& refused : result.refused) EXPECT_EQ(refused.line, 601U);
    }
  }
  const std::vector<std::string> once = texts;
  texts.insert(texts.end(), once.begin(), once.end());
  std::vector<std::string> got;
  for (const json& message : server.messages(texts.size())) got.push_back(message["message"]);
  std::sort(got.begin(), got.end());
  std::sort(texts.begin(), texts.end());
  EXPECT_EQ(got, texts);
}

TEST_F(SyslogEngine, CutsWhatTheReceiverWouldCut) {
  rsyslog_server server(authority_, authority_.issue("localhost"));
  std::string long_text;
  while (long_text.size() < 20000) long_text += "üé😀x";
  const made_batch made({line_of("short"), line_of(long_text), line_of("behind")}, 41);
  open(server.address())->store(made.batch());
  const std::vector<json> got = server.messages(3);
  ASSERT_EQ(got.size(), 3U);
  EXPECT_EQ(got[2]["message"], "\xEF\xBB\xBFnote: behind");
  const std::string part = got[1]["message"];
  EXPECT_GT(part.size(), 7000U);
  EXPECT_LT(part.size(), 8192U);
  EXPECT_EQ(part, ("\xEF\xBB\xBFnote: " + long_text).substr(0, part.size()));
  EXPECT_EQ(got[1]["parsed"]["kplog@0"]["cut"], "true");
  EXPECT_FALSE(got[0]["parsed"]["kplog@0"].contains("cut"));
  EXPECT_THAT(told_,
              ElementsAre(server.address() +
                          ": messages are cut at 8192 bytes, and marked: max-size in the URL "
                          "is how many the receiver takes (line 42 of "
                          "shop.20261115.0001.jsonl)"));
}

TEST_F(SyslogEngine, VerifiesWhoReceives) {
  const tls_identity good = authority_.issue("localhost");
  const made_batch made({line_of("one")});
  rsyslog_server server(authority_, good, "x509/certvalid");
  const std::string at = server.address();
  const std::string no_tls = ": no TLS: its certificate: ";
  // rsyslog asks for a certificate, and ends the connection without one.
  EXPECT_THAT(error_of(at, made.batch()), StartsWith(at + ": "));
  const tls_identity client = authority_.issue("client");
  const std::string query = "?certificate=" + client.certificate + "&key=" + client.key;
  EXPECT_EQ(error_of(server.address(query), made.batch()), "");
  EXPECT_EQ(server.messages(1).size(), 1U);
  const std::string other = "syslog+tls://127.0.0.1:" + std::to_string(server.port());
  EXPECT_EQ(error_of(other + query, made.batch()), other + no_tls + "IP address mismatch");
  EXPECT_EQ(error_of(server.address("?certificate=none.pem&key=" + client.key), made.batch()),
            at + ": cannot read the certificate none.pem: No such file or directory");
  const tls_authority stranger;
  options_.tls_ca = stranger.file();
  EXPECT_EQ(error_of(server.address(query), made.batch()),
            at + no_tls + "unable to get local issuer certificate");
  options_.tls_ca = "";  // the system's
  EXPECT_EQ(error_of(server.address(query), made.batch()),
            at + no_tls + "unable to get local issuer certificate");
  options_.tls_ca = "none.pem";
  EXPECT_THAT(error_of(at, made.batch()),
              StartsWith(at + ": cannot read the authorities of none.pem"));
  options_.tls_ca = authority_.file();
  rsyslog_server named(authority_, authority_.issue("elsewhere.example"));
  EXPECT_EQ(error_of(named.address(), made.batch()),
            named.address() + no_tls + "hostname mismatch");
  rsyslog_server expired(authority_, authority_.issue("localhost", 60));
  EXPECT_EQ(error_of(expired.address(), made.batch()),
            expired.address() + no_tls + "certificate has expired");
  EXPECT_EQ(server.messages(1).size(), 1U);
}

TEST_F(SyslogEngine, SendsAgainWhatAReceiverThatDiedMayHaveLost) {
  rsyslog_server server(authority_, authority_.issue("localhost"));
  const auto engine = open(server.address());
  const made_batch first({line_of("first")}), second({line_of("second")}, 2);
  engine->store(first.batch());
  EXPECT_EQ(server.messages(1).size(), 1U);
  server.kill();
  EXPECT_THROW(engine->store(second.batch()), engine_error);
  server.start_again();
  engine->store(second.batch());
  const std::vector<json> got = server.messages(2);
  ASSERT_EQ(got.size(), 2U);
  EXPECT_EQ(got[1]["message"], "\xEF\xBB\xBFnote: second");
  // A connection that is kept is looked at before it is used.
  const auto keeper = open(server.address("?confirm=none"));
  keeper->store(first.batch());
  EXPECT_EQ(server.messages(3).size(), 3U);
  server.start_again();
  EXPECT_TRUE(comes_true([&] {
    try {
      keeper->store(second.batch());
    } catch (const engine_error&) {
      return false;
    }
    return true;
  }));
  EXPECT_EQ(server.messages(4).at(3)["message"], "\xEF\xBB\xBFnote: second");
}

// A listener on loopback, which does with connections what a test says.
class tls_listener {
 public:
  explicit tls_listener(std::function<void(int)> serve) : serve_(std::move(serve)) {
    listening_.listen();
    thread_ = std::thread([this] {
      for (int peer = accept(); peer >= 0; peer = accept()) serve_(peer);
    });
  }
  ~tls_listener() {
    shutdown(listening_.get(), SHUT_RDWR);
    thread_.join();
  }
  std::string address() const {
    return "syslog+tls://localhost:" + std::to_string(listening_.port());
  }

 private:
  int accept() const { return accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC); }

  std::function<void(int)> serve_;
  loopback_socket listening_;
  std::thread thread_;
};

TEST_F(SyslogEngine, TakesNoEndForTheReadingOfWhatWasNotRead) {
  const tls_identity identity = authority_.issue("localhost");
  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  ASSERT_EQ(SSL_CTX_use_certificate_file(context, identity.certificate.c_str(), SSL_FILETYPE_PEM),
            1);
  ASSERT_EQ(SSL_CTX_use_PrivateKey_file(context, identity.key.c_str(), SSL_FILETYPE_PEM), 1);
  std::vector<std::string> lines(2000, line_of("text"));
  const made_batch made(lines), one({line_of("one")});
  std::atomic<int> way = 0;
  {
    // It ends the connection behind some of what it is sent, with the word of TLS for it and
    // without.
    tls_listener listener([&](int peer) {
      SSL* const ssl = SSL_new(context);
      SSL_set_fd(ssl, peer);
      std::array<char, 1000> heard{};
      if (SSL_accept(ssl) == 1) {
        for (int i = 0; i < way / 2; ++i)
          SSL_read(ssl, heard.data(), static_cast<int>(heard.size()));
        if (way % 2 == 0) SSL_shutdown(ssl);
      }
      SSL_free(ssl);
      close(peer);
    });
    for (way = 0; way < 20; ++way)
      EXPECT_THAT(error_of(listener.address(), made.batch()), StartsWith(listener.address() + ": "))
          << way;
    // Also where all of it fits into one piece that is on its way when the other end leaves.
    for (int i = 0; i < 100; ++i) {
      way = i % 2;
      EXPECT_NE(error_of(listener.address(), one.batch()), "") << i;
    }
  }
  SSL_CTX_free(context);
}

TEST_F(SyslogEngine, SpeaksNoTlsThatIsTooOld) {
  const tls_identity identity = authority_.issue("localhost");
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                  SSL_CTX_free);
  ASSERT_EQ(SSL_CTX_set_cipher_list(context.get(), "DEFAULT:@SECLEVEL=0"), 1);
  ASSERT_EQ(
      SSL_CTX_use_certificate_file(context.get(), identity.certificate.c_str(), SSL_FILETYPE_PEM),
      1);
  ASSERT_EQ(SSL_CTX_use_PrivateKey_file(context.get(), identity.key.c_str(), SSL_FILETYPE_PEM), 1);
  std::atomic<int> accepted = 0;
  tls_listener listener([&](int peer) {
    SSL* const ssl = SSL_new(context.get());
    SSL_set_fd(ssl, peer);
    accepted += SSL_accept(ssl) == 1;
    SSL_free(ssl);
    close(peer);
  });
  const made_batch made({line_of("one")});
  for (const int version : {TLS1_VERSION, TLS1_1_VERSION}) {
    ASSERT_EQ(SSL_CTX_set_min_proto_version(context.get(), version), 1);
    ASSERT_EQ(SSL_CTX_set_max_proto_version(context.get(), version), 1);
    EXPECT_THAT(error_of(listener.address(), made.batch()),
                StartsWith(listener.address() + ": no TLS: "));
  }
  EXPECT_EQ(accepted, 0);
  ASSERT_EQ(SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION), 1);
  static_cast<void>(error_of(listener.address(), made.batch()));
  EXPECT_EQ(accepted, 1);
}

TEST_F(SyslogEngine, EndsWhileItWaits) {
  std::atomic<int> connections = 0;
  std::vector<open_descriptor> silent;
  tls_listener listener([&](int peer) {
    silent.emplace_back(peer);
    ++connections;
  });
  const made_batch made({line_of("one")});
  patience_.silence = std::chrono::milliseconds(200);
  EXPECT_EQ(error_of(listener.address(), made.batch()),
            listener.address() + ": no TLS: nothing came for too long");
  patience_.silence = std::chrono::minutes(10);
  options_.is_to_end = [&] { return connections == 2; };
  EXPECT_EQ(error_of(listener.address(), made.batch()),
            listener.address() + ": given up, because kplog is to end");
  options_.is_to_end = nullptr;
  // Somebody who has no TLS.
  tls_listener plain([&](int peer) {
    EXPECT_GT(write(peer, "220 hello\r\n", 11), 0);
    close(peer);
  });
  EXPECT_THAT(error_of(plain.address(), made.batch()), StartsWith(plain.address() + ": no TLS: "));
}

TEST_F(SyslogEngine, RefusesAddressesThatAreNone) {
  const auto refused = [&](const std::string& rest) -> std::string {
    try {
      open("syslog+tls://host" + rest);
    } catch (const engine_error& error) {
      return error.what();
    }
    return "";
  };
  const std::string at = "syslog+tls://host:6514: ";
  EXPECT_EQ(refused(""), "");
  EXPECT_EQ(refused("?facility=local7&max-size=2K&enterprise=32473&confirm=close"), "");
  EXPECT_EQ(refused("/path"), at + "the URL takes no path");
  EXPECT_EQ(refused("?colour=red"), at + "the URL takes no \"colour\"");
  EXPECT_EQ(refused("?facility=local8"),
            at + "no facility \"local8\"; local0 to local7, user, daemon and their like are");
  EXPECT_EQ(refused("?enterprise=kplog"),
            at + "\"enterprise\" is a private enterprise number, not \"kplog\"");
  EXPECT_EQ(refused("?max-size=1K"), at + "\"max-size\" is a size from 2K to 64M, not \"1K\"");
  EXPECT_EQ(refused("?confirm=yes"), at + "\"confirm\" is close or none, not \"yes\"");
  EXPECT_EQ(refused("?certificate=c.pem"),
            at + "a certificate and its key are given together, or neither");
  options_.user = "shop";
  EXPECT_EQ(refused(""), at + "syslog knows no users: a certificate and its key say who sends");
  options_.user = "";
  const made_batch made({line_of("one")});
  EXPECT_EQ(error_of("syslog+tls://127.0.0.1:1", made.batch()),
            "syslog+tls://127.0.0.1:1: cannot connect: Connection refused");
  EXPECT_THAT(error_of("syslog+tls://host.invalid", made.batch()),
              StartsWith("syslog+tls://host.invalid:6514: cannot find the host: "));
}
