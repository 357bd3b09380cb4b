// Fleets whose records went to an engine: shown as their journals would be, and each of them once.
#include <gmock/gmock.h>

#include <random>

#include "recording/records/stored_start.h"
#include "recording/text/check_sum.h"
#include "tests/engines/command/fleet_fixture.h"

using testing::HasSubstr;

template <class Server>
class Fleet : public testing::Test {
 protected:
  // What is shown of the engine's records, and of the journals in that order.
  void expect_same(const std::string& journals, const std::string& hosts,
                   const std::string& product, const std::string& options) const {
    SCOPED_TRACE(options + " of " + hosts);
    const std::string all = "render -q --no-pager " + options;
    const auto local = fleet_.run(all + " --definitions " + product + ".ldf " +
                                  (product == "shop" ? "--catalog messages " : "") + journals);
    const auto asked = fleet_.run(all + " --host " + hosts + " '" + server_.address() + "'");
    EXPECT_EQ(asked.status, local.status) << asked.err << local.err;
    EXPECT_EQ(asked.out, local.out);
  }

  Server server_;
  fleet_folder fleet_;
};

TYPED_TEST_SUITE(Fleet, fleet_servers, name_of_server);

static void prepare(const fleet_server& server, const fleet_folder& fleet) {
  if (!server.address().starts_with("postgresql")) return;
  EXPECT_EQ(fleet.run("ship --create --to '" + server.address() + "'").status, 0);
}

static const std::vector<std::string> conditions = {
    "",
    "--event USER_LOGIN",
    "--event 'LINK_*,1003'",
    "--event NOTE --or --where 'PORT<100'",
    "--where 'PORT=77'",
    "--where 'PORT>=1990'",
    "--where 'PORT<=-1990'",
    "--where 'PORT!=5' --where 'USER_NAME=alice'",
    "--where 'USER_NAME=愛'",
    "--where USER_NAME=\"x' OR 1=1 --\"",
    R"(--where 'TEXT="a\\nb\\\\"')",
    "--where 'TEXT=\"\"'",
    R"(--where 'TEXT="a\u0000b"')",
    "--where 'TEXT=\xff'",
    "--where 'OK=true' --where 'SHARE=0.5'",
    "--where 'SHARE=NaN'",
    "--where 'SHARE<=0'",
    "--where 'WHEN=2026-11-15T03:00:00Z'",
    "--where 'LINK~h[12]'",
    "--where context.trace=t3",
    "--grep 'bob|alice'",
    "--level ..2",
    "--level 9",
    "--since 2026-11-15 --until 2026-11-15",
    "--since 2026-11-15T12:00:00Z",
    "--last 7",
    "--event kplog.lost",
    "--since 2036-01-01",
};

static const std::vector<std::string> forms = {"--format json", "--format csv", "--format table",
                                               "--format log", "--by event,day,level"};

TYPED_TEST(Fleet, ShowsTheBytesOfTheJournals) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  prepare(this->server_, this->fleet_);
  const std::string address = this->server_.address();
  for (const auto& [machine, product] : std::vector<std::pair<std::string, std::string>>{
           {"web1", "shop"}, {"web 2.*", "shop"}, {"dbü", "bank"}}) {
    this->fleet_.emit(machine, product, random_fleet_records(400, seed));
    this->fleet_.ship(machine, product, address, "--once -q");
    this->fleet_.emit(machine, product, random_fleet_records(200, seed + 1));
    this->fleet_.ship(machine, product, address, "--once -q");
    EXPECT_THAT(this->fleet_.ship(machine, product, address, "--once").err,
                HasSubstr("0 records: 0 stored"));
    const auto verified =
        this->fleet_.ship(machine, product, address, "--verify --count '" + machine + "/shop'");
    EXPECT_THAT(verified.err, HasSubstr("602 records in the engine; all alike"));
  }
  for (const std::string& condition : conditions)
    this->expect_same("web1/shop", "web1", "shop", "--locale en_US " + condition);
  for (const std::string& form : forms)
    this->expect_same("'web 2.*/shop' web1/shop", "'web?*'", "shop", "--locale ja_JP " + form);
  this->expect_same("web1/shop", "web1", "shop", "--locale ja_JP --codepage EUC-JP");
  this->expect_same("dbü/shop", "'db*'", "bank", "--locale ja_JP");
  this->expect_same("dbü/shop", "'db?'", "bank", "--locale en_US");
  const auto all = this->fleet_.run("render -q --no-pager --locale ja_JP '" + address + "'");
  EXPECT_EQ(all.status, 1) << "empty texts have no message: " << all.err;
  EXPECT_THAT(all.out, HasSubstr("paid"));
  EXPECT_THAT(all.out, HasSubstr("ログイン"));
}

TYPED_TEST(Fleet, FollowsWhatArrivesFromAnyMachine) {
  prepare(this->server_, this->fleet_);
  const std::string address = this->server_.address();
  const auto note = [](const std::string& text) {
    return R"({"event":"NOTE","time":"2026-11-15T00:00:00Z","attributes":{"TEXT":")" + text +
           "\"}}\n";
  };
  const auto send = [&](const std::string& machine, const std::string& text) {
    this->fleet_.emit(machine, "shop", note(text));
    this->fleet_.ship(machine, "shop", address, "--once -q");
  };
  send("web1", "one");
  send("web2", "two");
  running_command follower(this->fleet_.path(),
                           {"render", "--locale", "en_US", "--follow", "--event", "NOTE", address});
  EXPECT_EQ(follower.out_line(), "one");
  EXPECT_EQ(follower.out_line(), "two");
  send("web2", "three");
  EXPECT_EQ(follower.out_line(), "three");
  send("web1", "four");
  EXPECT_EQ(follower.out_line(), "four");
  follower.signal(SIGTERM);
  const command_end end = follower.wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "");
  running_command last(this->fleet_.path(), {"render", "--locale", "en_US", "--follow", "--last",
                                             "1", "--host", "web1", address});
  EXPECT_EQ(last.out_line(), "four");
  send("web2", "five");
  send("web1", "six");
  EXPECT_EQ(last.out_line(), "six");
}

static std::string event_line(const std::string& event) {
  return R"({"event":")" + event + R"(","time":"2026-11-15T00:00:00Z"})" + "\n";
}

// Senders and those who ask may have definitions that lack what is recorded already.
TYPED_TEST(Fleet, FindsEventsThatDefinitionsLack) {
  prepare(this->server_, this->fleet_);
  const std::string address = this->server_.address();
  const std::string begin = "kplog: 1\nlog_version: \"2.0\"\nevents:\n";
  const std::string boot = "  BOOT: {id: 1, message: \"up\"}\n";
  this->fleet_.make_set("old", begin + boot);
  this->fleet_.make_set("new", begin + boot + "  DISK_FULL: {id: 50, message: \"full\"}\n");
  const std::string records =
      event_line("BOOT") + event_line("DISK_FULL") + event_line("DISK_FULL");
  for (const std::string sender : {"old", "new"}) {
    this->fleet_.emit(sender, "new", records);
    this->fleet_.ship(sender, sender, address, "-q --once");
    for (const std::string known : {"old", "new"}) {
      const auto verified =
          this->fleet_.ship(sender, known, address, "--verify --count " + sender + "/shop");
      EXPECT_THAT(verified.err, HasSubstr("3 records in the engine; all alike")) << sender << known;
      for (const std::string event : {"DISK_*", "'*'", "50", "BOOT"}) {
        const std::string asked = "render -q --no-pager --locale en_US --event " + event +
                                  " --definitions " + known + ".ldf ";
        const auto local = this->fleet_.run(asked + sender + "/shop");
        const auto found = this->fleet_.run(asked + "--host " + sender + " '" + address + "'");
        EXPECT_EQ(found.out, local.out) << asked << found.err << local.err;
        EXPECT_EQ(found.status, local.status) << asked;
      }
    }
    this->expect_same(sender + "/shop", sender, sender, "--locale en_US --event 'DISK_*'");
  }
}

// What definitions of one version say may change, and change back.
TYPED_TEST(Fleet, ShowsByTheDefinitionsThatWereSentLast) {
  prepare(this->server_, this->fleet_);
  const std::string address = this->server_.address();
  for (const std::string word : {"first", "second"})
    this->fleet_.make_set(word,
                          "kplog: 1\nlog_version: \"2.0\"\nevents:\n"
                          "  BOOT: {id: 1, message: \"" +
                              word + " {N}\", attributes: {N: UInt1}}\n");
  const auto send = [&](const std::string& machine, const std::string& set) {
    this->fleet_.emit(machine, set,
                      R"({"event":1,"time":"2026-11-15T00:00:00Z","attributes":{"N":7}})"
                      "\n");
    this->fleet_.ship(machine, set, address, "-q --once");
  };
  for (const std::string set : {"first", "second", "first"}) send("web1", set);
  send("web2", "second");
  this->expect_same("web1/shop", "web1", "first", "--locale en_US");
  this->expect_same("web2/shop", "web2", "second", "--locale en_US");
  // What is given stands for what was sent with them.
  const auto shown = this->fleet_.run("render --aux none.ldf '" + address + "'");
  EXPECT_EQ(shown.status, 3);
  EXPECT_THAT(shown.err, HasSubstr("none.ldf"));
  EXPECT_THAT(shown.err, HasSubstr(address + ": the definitions there cannot be read; "
                                             "--definitions gives others\n"));
}

TYPED_TEST(Fleet, FollowsByDefinitionsThatComeLater) {
  prepare(this->server_, this->fleet_);
  const std::string address = this->server_.address();
  const std::string begin = "kplog: 1\nlog_version: \"";
  const std::string boot = "\"\nevents:\n  BOOT: {id: 1, message: \"";
  this->fleet_.make_set("red",
                        begin + "2.0" + boot + "red\"}\n  CALL: {id: 2, message: \"call\"}\n");
  this->fleet_.make_set("blue", begin + "2.0" + boot + "blue\"}\n");
  this->fleet_.make_set("later",
                        begin + "3.0" + boot + "later\"}\n  BACK: {id: 9, message: \"back\"}\n");
  this->fleet_.make_set("other", begin + "4.0\"\nevents:\n  BUSY: {id: 2, message: busy}\n");
  const auto send = [&](const std::string& machine, const std::string& set,
                        const std::string& records) {
    this->fleet_.emit(machine, set, records);
    this->fleet_.ship(machine, set, address, "-q --once");
  };
  const std::string now = text_of_instant(time(nullptr));
  const auto called = [&](const std::string& event) {
    return R"({"event":")" + event + R"(","time":")" + now + "\"}\n";
  };
  running_command follower(this->fleet_.path(),
                           {"render", "--locale", "en_US", "--follow", "--event", "B*", "--since",
                            "1 hour ago", address});
  EXPECT_TRUE(follower.wait_for_err(address + " has no records by now; they are waited for"));
  send("web2", "blue", event_line("BOOT"));
  send("web1", "red", called("CALL") + called("BOOT"));
  EXPECT_EQ(follower.out_line(), "red");
  send("web2", "blue", called("BOOT"));
  EXPECT_EQ(follower.out_line(), "blue") << "its definitions came with a record that was too old";
  send("web3", "later", called("BACK"));
  EXPECT_EQ(follower.out_line(), "back");
  send("web1", "later", called("BOOT") + called("BACK"));
  EXPECT_EQ(follower.out_line(), "later");
  EXPECT_EQ(follower.out_line(), "back");
  send("web2", "other", called("BUSY"));
  EXPECT_EQ(follower.out_line(), "busy") << "an ID that had another name before";
  follower.signal(SIGTERM);
  const command_end end = follower.wait_for_end();
  EXPECT_EQ(end.status, 0) << end.err;
}

TYPED_TEST(Fleet, FollowsForEventsThatNobodyKnowsYet) {
  prepare(this->server_, this->fleet_);
  const std::string address = this->server_.address();
  const auto follow = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"render", "--locale", "en_US", "--follow"});
    words.push_back(address);
    return std::make_unique<running_command>(this->fleet_.path(), words);
  };
  // What can be no condition is refused at once.
  for (const std::vector<std::string>& none : std::vector<std::vector<std::string>>{
           {"--where", "PORT"}, {"--where", "TEXT~("}, {"--event", "A,,B"}, {"--grep", "("}})
    EXPECT_EQ(follow(none)->wait_for_end().status, 2) << none[1];
  const auto follower = follow({"--event", "PAID", "--where", "USER_NAME=zoe"});
  EXPECT_TRUE(follower->wait_for_err("they are waited for"));
  this->fleet_.make_set("boot",
                        "kplog: 1\nlog_version: \"2.0\"\nevents:\n"
                        "  BOOT: {id: 1001, message: up}\n");
  this->fleet_.emit("web1", "boot", event_line("BOOT"));
  this->fleet_.ship("web1", "boot", address, "-q --once");
  this->fleet_.emit("web2", "bank",
                    R"({"event":"PAID","time":"2026-11-15T00:00:00Z","attributes":{)"
                    R"("USER_NAME":"zoe","PORT":7,"OK":true,"SHARE":1,)"
                    R"("WHEN":"2026-11-15T00:00:00Z"}})"
                    "\n");
  this->fleet_.ship("web2", "bank", address, "-q --once");
  EXPECT_EQ(follower->out_line(), "zoe paid 7");
}

TYPED_TEST(Fleet, WaitingForTheFirstRecordEndsAtASignal) {
  prepare(this->server_, this->fleet_);
  running_command follower(this->fleet_.path(), {"render", "--follow", this->server_.address()});
  EXPECT_TRUE(follower.wait_for_err("they are waited for"));
  follower.signal(SIGINT);
  const command_end end = follower.wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "");
  EXPECT_THAT(end.err, HasSubstr("kplog: 0 records: 0 rendered, 0 marked, 0 bad"));
}

// A record at a place, as the stored form has it.
static std::string stored_line(const std::string& text) {
  return R"({"version":"2.0","event":1003,"name":"NOTE","level":3,"time":"2026-11-15T08:00:00Z",)"
         R"("attributes":{"TEXT":")" +
         text + R"("},"types":{"TEXT":"MBChar2K"},"message_index":0,"message":")" + text + "\"}";
}

TEST(FleetOfTwoEngines, HasRecordsOfOnePlaceInOneOrder) {
  const fleet_database database;
  const fleet_broker broker;
  const fleet_folder fleet;
  prepare(database, fleet);
  std::filesystem::create_directories(fleet.file("web1"));
  std::vector<std::vector<std::string>> places(60);
  for (const std::string version : {"first ", "second ", "third "}) {
    std::string lines;
    for (size_t i = 0; i < places.size(); ++i) {
      const std::string text = i == 0 ? "begin" : version + std::to_string(i);
      if (i > 0 || places[0].empty()) places[i].push_back(text);
      lines += stored_line(text) + "\n";
    }
    fleet.write("web1/shop.20261115.0001.jsonl", lines);
    for (const fleet_server* server :
         {static_cast<const fleet_server*>(&database), static_cast<const fleet_server*>(&broker)})
      fleet.ship("web1", "shop", server->address(), "--once -q");
  }
  const auto sum = [](const std::string& text) { return check_sum(stored_line(text)); };
  std::string expected;
  bool is_order_of_signs_another = false;
  for (auto& texts : places) {
    std::ranges::sort(texts, {}, sum);
    is_order_of_signs_another |= sum(texts.front()) >> 63 != sum(texts.back()) >> 63;
    for (const std::string& text : texts) expected += text + "\n";
  }
  ASSERT_TRUE(is_order_of_signs_another);
  const std::string all = "render -q --no-pager --locale en_US ";
  for (const std::string condition : {"", "--event NOTE "}) {
    EXPECT_EQ(fleet.run(all + condition + "'" + database.address() + "'").out, expected);
    EXPECT_EQ(fleet.run(all + condition + "'" + broker.address() + "'").out, expected);
  }
}
