#include "engines/nats/subject.h"

#include <gtest/gtest.h>

#include <random>

#include "engines/common/digest.h"
#include "engines/nats/record_filter.h"

TEST(NatsSubject, HoldsAnyHostInOneToken) {
  EXPECT_EQ(nats_token("web1"), "web1");
  EXPECT_EQ(nats_token("web-1_A.example"), "web-1_A%2Eexample");
  EXPECT_EQ(nats_token(""), "%");
  EXPECT_EQ(nats_token("%"), "%25");
  const std::string longer(129, 'h');
  EXPECT_EQ(nats_token(longer.substr(1)), longer.substr(1));
  EXPECT_EQ(nats_token(longer), std::string(80, 'h') + "%~" + content_hash(longer).substr(0, 32));
  EXPECT_FALSE(nats_token_text(nats_token(longer)));
  for (const char* none : {"", "a%", "%4", "%zz", "a.b", "%~"}) EXPECT_FALSE(nats_token_text(none));

  std::mt19937 random(1);
  for (int i = 0; i < 20'000; ++i) {
    std::string host;
    for (size_t size = random() % 50; host.size() < size;)
      host += static_cast<char>(random() % 256);
    const std::string token = nats_token(host);
    EXPECT_EQ(token.find_first_of(std::string_view(" .*>\t\r\n\0\x7F", 9)), std::string::npos);
    EXPECT_LE(token.size(), 128U);
    if (token.find('~') == std::string::npos) {
      EXPECT_EQ(nats_token_text(token), host);
    }
  }
}

TEST(NatsSubject, IsMadeOfWhatIsKnown) {
  const nats_subjects subjects("nats://a", "Shop");
  shipped_record record;
  EXPECT_EQ(subjects.record("web1.example", record), "shop.web1%2Eexample.-.-");
  record.event = 4'000'000'000;
  record.level = 9;
  EXPECT_EQ(subjects.record("web1", record), "shop.web1.4000000000.9");
  EXPECT_EQ(subjects.records_stream(), "Shop");
  EXPECT_EQ(subjects.state_stream(), "Shop_STATE");
  EXPECT_EQ(subjects.all_records(), "shop.*.*.*");
  EXPECT_EQ(subjects.all_states(), "shop-state.>");
}

TEST(NatsSubject, OfAQuestionAreFew) {
  const nats_subjects subjects("nats://a", "KPLOG");
  const auto asked = [&](const archive_query& query) {
    return nats_record_filter(subjects, query).subjects();
  };
  using list = std::vector<std::string>;
  EXPECT_EQ(asked({}), list{"kplog.*.*.*"});
  EXPECT_EQ(asked({.hosts = {"a", "b"}, .lowest_level = 9}),
            (list{"kplog.a.*.9", "kplog.a.*.-", "kplog.b.*.9", "kplog.b.*.-"}));
  EXPECT_EQ(asked({.groups = {{.events = {{7}}}, {.events = {{8}}}}}),
            (list{"kplog.*.7.*", "kplog.*.8.*", "kplog.*.-.*"}));
  EXPECT_EQ(asked({.groups = {{.events = {{7}}}, {}}}), list{"kplog.*.*.*"});
  EXPECT_EQ(asked({.hosts = {"a*", "b"}}), list{"kplog.*.*.*"});
  EXPECT_EQ(asked({.groups = {{.events = {{1, 2, 3}}}}, .hosts = {"a", "b"}, .lowest_level = 5}),
            (list{"kplog.a.1.*", "kplog.a.2.*", "kplog.a.3.*", "kplog.a.-.*", "kplog.b.1.*",
                  "kplog.b.2.*", "kplog.b.3.*", "kplog.b.-.*"}));
}

TEST(NatsSubject, OfAQuestionForHostsAreThoseThatFit) {
  const nats_subjects subjects("nats://a", "KPLOG");
  const nats_record_filter filter(subjects, {.hosts = {"web?", "日本?", "db*.example", "[b]"}});
  for (const char* host : {"web1", "webü", "日本語", "db.example", "db1.example", "[b]"})
    EXPECT_TRUE(filter.is_host(host)) << host;
  for (const char* host : {"web", "web12", "日本", "日本語1", "db1", "b", ""})
    EXPECT_FALSE(filter.is_host(host)) << host;
  EXPECT_TRUE(nats_record_filter(subjects, {}).is_host("any"));
}
