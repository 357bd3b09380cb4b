// Which records fit which conditions.
#include "tools/find/conditions.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "recording/records/stored_start.h"
#include "tests/recording/records/record_events.h"

namespace chrono = std::chrono;

static constexpr chrono::system_clock::time_point now{
    chrono::sys_days(chrono::year(2026) / 11 / 15) + chrono::hours(9)};

// PORT is of two types, and NOTE of two families.
static ldf_file shop_file() {
  return {.log_version = "2.0",
          .globals = {{"NOTE", TypeMBChar64}},
          .entries = {{.id = 1001,
                       .msg_id = "USER_LOGIN",
                       .msg_text = "in",
                       .attributes = {{"USER_NAME", TypeMBChar64},
                                      {"PORT", TypeUInt2},
                                      {"OK", TypeBool},
                                      {"SHARE", TypeFloat},
                                      {"WHEN", TypeTimestamp},
                                      {"A=B", TypeSInt4}}},
                      {.id = 1002,
                       .msg_id = "USER_LOGOUT",
                       .msg_text = "out",
                       .attributes = {{"PORT", TypeUInt4}, {"NOTE", TypeSInt4}}},
                      {.id = 1003, .msg_text = "no name"}}};
}

class Conditions : public testing::Test {
 protected:
  // Whether the record fits.
  bool fits(const find_options& options, const std::string& record) {
    record_conditions conditions(options, events_.events(), now);
    line_ = record;
    return conditions.fit(parser_.parse(line_)) && conditions.fit_message("alice came in");
  }
  bool fits_where(const std::string& condition, const std::string& record) {
    return fits({.groups = {{.where = {condition}}}}, record);
  }
  // The same of a login with one attribute.
  bool login_fits(const std::string& condition, const std::string& attribute) {
    return fits_where(condition, R"({"event":1001,"attributes":{)" + attribute + "}}");
  }
  std::string fault_of(const find_options& options) {
    try {
      const record_conditions conditions(options, events_.events(), now);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "";
  }
  std::string fault_of_where(const std::string& condition) {
    return fault_of({.groups = {{.where = {condition}}}});
  }

  event_set_settings settings_;
  record_events events_{shop_file()};
  record_parser parser_;
  std::string line_;
};

TEST_F(Conditions, EventsAreNamesPatternsAndIDs) {
  const auto fits_event = [&](const std::string& event, const std::string& record) {
    return fits({.groups = {{.events = {event}}}}, record);
  };
  for (const char* record : {R"({"event":1001})", R"({"event":"USER_LOGIN"})"}) {
    for (const char* event : {"USER_LOGIN", "USER_*", "1001", "*", "1003,*_LOGI?"})
      EXPECT_TRUE(fits_event(event, record)) << event << record;
    for (const char* event : {"USER_LOGOUT", "100", "1002,1003", "X*"})
      EXPECT_FALSE(fits_event(event, record)) << event << record;
  }
  // Those that the definitions have no more.
  EXPECT_TRUE(fits_event("4711", R"({"event":4711})"));
  EXPECT_TRUE(fits_event("LINK_*", R"({"event":4711,"name":"LINK_UP"})"));
  EXPECT_TRUE(fits_event("LINK_*", R"({"event":"LINK_UP"})"));
  EXPECT_FALSE(fits_event("LINK_*", R"({"event":4711})"));
  EXPECT_TRUE(fits_event("kplog.lost", R"({"event":0,"attributes":{"COUNT":1,"REASON":"x"}})"));
  EXPECT_FALSE(fits({.groups = {{.events = {"USER_*", "1002"}}}}, R"({"event":1001})"));
}

TEST_F(Conditions, NumbersCompareByWhatTheyAre) {
  EXPECT_TRUE(login_fits("PORT>=1024", R"("PORT":1024)"));
  EXPECT_TRUE(login_fits("PORT >= 1024", R"("PORT":51234)"));
  EXPECT_FALSE(login_fits("PORT>1024", R"("PORT":1024)"));
  EXPECT_TRUE(login_fits("PORT<=9", R"("PORT":9)"));
  EXPECT_FALSE(login_fits("PORT<9", R"("PORT":10)"));
  EXPECT_TRUE(login_fits("PORT!=9", R"("PORT":10)"));
  EXPECT_FALSE(login_fits("PORT!=9", R"("PORT":9)"));
  EXPECT_TRUE(login_fits("SHARE<0.5", R"("SHARE":1e-3)"));
  EXPECT_TRUE(login_fits("SHARE=2", R"("SHARE":2.0)"));
  EXPECT_TRUE(login_fits("SHARE=NaN", R"("SHARE":"NaN")"));
  EXPECT_FALSE(login_fits("SHARE>1", R"("SHARE":"NaN")"));
  EXPECT_TRUE(login_fits("SHARE>1", R"("SHARE":"Infinity")"));
  EXPECT_TRUE(login_fits("OK=true", R"("OK":true)"));
  EXPECT_TRUE(login_fits("OK!=true", R"("OK":false)"));
  EXPECT_TRUE(login_fits(R"("A=B"=-5)", R"("A=B":-5)"));
}

// As another version of the definitions has had it.
TEST_F(Conditions, ValuesOfAnotherTypeAreWhatTheyLookLike) {
  for (const char* share : {"\"0\"", "\"21.5\"", "\"nan\"", "\"infinity\"", "\"\"", "true", "null"})
    for (const char* how : {"=", "!=", "<", ">="})
      for (const char* asked : {"0", "21.5", "NaN", "Infinity"})
        EXPECT_FALSE(
            login_fits(std::string("SHARE") + how + asked, R"("SHARE":)" + std::string(share)))
            << share << how << asked;
  EXPECT_TRUE(login_fits("PORT>5", R"("PORT":6.5)"));
  EXPECT_TRUE(login_fits("PORT=5", R"("PORT":5.0)"));
  EXPECT_FALSE(login_fits("PORT<6", R"("PORT":6.5)"));
  EXPECT_TRUE(login_fits("PORT>5", R"("PORT":99999999999999999999)"));
  EXPECT_TRUE(login_fits("PORT!=5", R"("PORT":99999999999999999999)"));
  EXPECT_FALSE(login_fits("PORT>5", R"("PORT":"6")"));
}

TEST_F(Conditions, TextsCompareByCodePoints) {
  EXPECT_TRUE(login_fits("USER_NAME=alice", R"("USER_NAME":"al\u0069ce")"));
  EXPECT_FALSE(login_fits("USER_NAME=alice", R"("USER_NAME":"Alice")"));
  EXPECT_TRUE(login_fits("USER_NAME<b", R"("USER_NAME":"Z")"));
  EXPECT_TRUE(login_fits("USER_NAME>\uffee", R"("USER_NAME":"\ud83d\ude00")"));
  EXPECT_TRUE(login_fits(R"(USER_NAME=" a\u0020")", R"("USER_NAME":" a ")"));
  EXPECT_TRUE(login_fits("USER_NAME=", R"("USER_NAME":"")"));
  EXPECT_TRUE(login_fits("USER_NAME~^a.*e$", R"("USER_NAME":"alice")"));
  EXPECT_TRUE(login_fits("USER_NAME~lic", R"("USER_NAME":"alice")"));
  EXPECT_FALSE(login_fits("USER_NAME~^lic", R"("USER_NAME":"alice")"));
  EXPECT_TRUE(login_fits(R"(USER_NAME=a\nb)", R"("USER_NAME":"a\nb")"));
}

TEST_F(Conditions, TimesCompareByInstant) {
  EXPECT_TRUE(login_fits("WHEN=2026-11-15T10:00:00Z", R"("WHEN":"2026-11-15T18:00:00+08:00")"));
  EXPECT_TRUE(login_fits("WHEN>2026-11-15T10:00:00Z", R"("WHEN":"2026-11-15T10:00:00-01:00")"));
  EXPECT_FALSE(login_fits("WHEN!=2026-11-15T10:00:00Z", R"("WHEN":"no time")"));
}

TEST_F(Conditions, RecordsWithoutTheAttributeFitNone) {
  for (const char* condition : {"PORT=1", "PORT!=1", "USER_NAME!=alice", "USER_NAME~"})
    EXPECT_FALSE(fits_where(condition, R"({"event":1001})")) << condition;
}

TEST_F(Conditions, ValuesOfAnotherTypeThanDeclaredAreTakenAsTheyLook) {
  EXPECT_TRUE(fits_where("NOTE=5", R"({"event":1002,"attributes":{"NOTE":5}})"));
  EXPECT_TRUE(fits_where("NOTE=5", R"({"event":1001,"attributes":{"NOTE":"5"}})"));
  EXPECT_TRUE(fits_where("NOTE=5", R"({"event":1001,"attributes":{"NOTE":5}})"));
  EXPECT_TRUE(fits_where("NOTE=five", R"({"event":1002,"attributes":{"NOTE":"five"}})"));
  EXPECT_TRUE(fits_where("PORT>1", R"({"event":4711,"attributes":{"PORT":51234}})"));
  EXPECT_FALSE(fits_where("PORT>1", R"({"event":4711,"attributes":{"PORT":"51234"}})"));
  EXPECT_FALSE(fits_where("PORT>1", R"({"event":1001,"attributes":{"PORT":null}})"));
  EXPECT_TRUE(fits_where("PORT>1", R"({"event":4711,"attributes":{"PORT":99999999999999999999}})"));
}

TEST_F(Conditions, OneOfTheGroupsIsToHoldWhole) {
  const find_options options{.groups = {{.events = {"USER_LOGIN"}, .where = {"PORT<10", "OK=true"}},
                                        {.events = {"1003"}, .grep = {"came", "^alice"}},
                                        {.where = {"SHARE>1"}, .grep = {"bob"}}}};
  EXPECT_TRUE(fits(options, R"({"event":1001,"attributes":{"PORT":9,"OK":true}})"));
  EXPECT_FALSE(fits(options, R"({"event":1001,"attributes":{"PORT":9}})"));
  EXPECT_FALSE(fits(options, R"({"event":1001,"attributes":{"PORT":10,"OK":true}})"));
  EXPECT_TRUE(fits(options, R"({"event":1003})"));
  EXPECT_FALSE(fits(options, R"({"event":1001,"attributes":{"SHARE":2}})"));
}

TEST_F(Conditions, LevelTimeAndOriginHoldForAllGroups) {
  const std::string record =
      R"({"event":1001,"level":5,"time":"2026-11-15T08:00:00Z","host":"web-1","pid":42})";
  const std::vector<condition_group> either = {{.events = {"1002"}}, {.events = {"1001"}}};
  EXPECT_TRUE(fits({.groups = either, .levels = level_range{3, 5}}, record));
  EXPECT_FALSE(fits({.groups = either, .levels = level_range{6, 9}}, record));
  EXPECT_TRUE(fits({.levels = level_range{3, 3}}, R"({"event":1001})"));
  EXPECT_TRUE(fits({.since = "1 hour ago", .until = "2026-11-15T09:00:00+01:00"}, record));
  EXPECT_FALSE(fits({.since = "3599 seconds ago"}, record));
  EXPECT_FALSE(fits({.until = "2026-11-15T07:59:59Z"}, record));
  EXPECT_TRUE(fits({.since = "now", .until = "now"}, R"({"event":1001})"));
  EXPECT_FALSE(fits({.since = "1 hour ago"}, R"({"event":1001,"time":"none"})"));
  EXPECT_TRUE(fits({.host = "web-*", .pid = 42}, record));
  EXPECT_FALSE(fits({.host = "db"}, record));
  EXPECT_FALSE(fits({.pid = 43}, record));
  EXPECT_FALSE(fits({.host = "*"}, R"({"event":1001})"));
  EXPECT_FALSE(fits({.pid = 0}, R"({"event":1001})"));
}

TEST_F(Conditions, TimesOfRecordsThatFollowOneAnotherAreEachLookedAt) {
  record_conditions conditions({.since = "2026-11-15T08:00:00Z"}, events_.events(), now);
  for (const auto& [time, is_fitting] :
       std::vector<std::pair<std::string, bool>>{{"2026-11-15T08:00:00Z", true},
                                                 {"2026-11-15T08:00:00Z", true},
                                                 {"2026-11-15T07:59:59Z", false},
                                                 {"2026-11-15T07:59:59Z", false},
                                                 {"2026-11-15T08:00:01Z", true}}) {
    line_ = R"({"event":1001,"time":")" + time + "\"}";
    EXPECT_EQ(conditions.fit(parser_.parse(line_)), is_fitting) << time;
  }
}

static constexpr const char* with_context =
    R"({"event":1001,"context":{"trace":"4bf9","n":1.50,"big":123456789012345678901,"ok":true,)"
    R"("none":null,"list":[1],"a.b":"dot","k8s":{"pod":"shop-4","a":{"b":"x"}},"=":"sign",)"
    R"("twice":"1","twice":"2","esc":"\u00e9\n"}})";

TEST_F(Conditions, ContextsAreAskedByTheirMembers) {
  for (const char* condition :
       {"context.trace=4bf9", " context.trace = 4bf9 ", "context.trace!=4bf", "context.trace~^4b",
        "context.n=1.50", "context.n!=1.5", "context.big=123456789012345678901", "context.ok=true",
        "context.none=null", "context.k8s.pod=shop-4", "context.k8s.a.b=x", R"(context."a.b"=dot)",
        R"(context."=" = "sign")", "context.twice=2", R"(context.esc="é\n")",
        R"(context."k8s"."pod" ~ "-4$")"})
    EXPECT_TRUE(fits_where(condition, with_context)) << condition;
  for (const char* condition :
       {"context.trace=4bf", "context.trace!=4bf9", "context.trace~^b", "context.n=1.5",
        "context.twice=1", "context.a.b=dot", "context.k8s.a.c=x", "context.trace.x=4bf9"})
    EXPECT_FALSE(fits_where(condition, with_context)) << condition;
}

// Nor does one whose member has nothing to compare.
TEST_F(Conditions, RecordsWithoutTheMemberFitNoConditionOnIt) {
  for (const char* condition : {"context.x=1", "context.x!=1", "context.x~", "context.list!=1",
                                "context.k8s!=1", "context.k8s.x!=1", "context.list.a!=1"})
    EXPECT_FALSE(fits_where(condition, with_context)) << condition;
  EXPECT_FALSE(fits_where("context.trace!=1", R"({"event":1001})"));
  EXPECT_FALSE(fits_where("context.trace!=1", R"({"event":1001,"context":{}})"));
  EXPECT_FALSE(fits_where("context.trace!=1", R"({"event":1001,"attributes":{"trace":"2"}})"));
}

TEST_F(Conditions, WrongConditionsOnContextsSayWhatIsExpected) {
  for (const char* text : {"context.", "context.=1", "context.a", "context.a.=1", "context..a=1",
                           "context.\"a=1", "context.\"a\"b=1"})
    EXPECT_EQ(fault_of_where(text),
              "--where \"" + std::string(text) +
                  "\": expected an attribute, one of = != < <= > >= ~, and a value");
  for (const char* text : {"context.a<1", "context.a>=1"})
    EXPECT_EQ(fault_of_where(text), "--where \"" + std::string(text) +
                                        "\": what stands in a context is compared by = != and ~");
  EXPECT_EQ(fault_of_where("context.a~("),
            "--where \"context.a~(\": no regular expression: \"(\": missing ): (");
  EXPECT_EQ(fault_of_where("\"context.a\"=1"),
            "--where \"\"context.a\"=1\": no event has an attribute \"context.a\"");
}

TEST_F(Conditions, TimesWithFractionsAreThoseOfTheirSeconds) {
  const find_options options = {.since = "2026-11-15T09:00:00Z", .until = "2026-11-15T09:00:00Z"};
  EXPECT_TRUE(fits(options, R"({"event":1001,"time":"2026-11-15T09:00:00.999Z"})"));
  EXPECT_FALSE(fits(options, R"({"event":1001,"time":"2026-11-15T08:59:59.999Z"})"));
}

TEST_F(Conditions, WrongOnesSayWhatIsExpected) {
  EXPECT_EQ(fault_of_where("PRT=1"),
            "--where \"PRT=1\": no event has an attribute \"PRT\"; did you mean \"PORT\"?");
  EXPECT_EQ(fault_of_where("PORT>=abc"),
            "--where \"PORT>=abc\": \"PORT\" is a UInt2: a whole number from 0 to 65535, not "
            "\"abc\"");
  EXPECT_EQ(fault_of_where("PORT>=70000"), "");  // that of the other event holds it
  EXPECT_EQ(fault_of_where("PORT~1"),
            "--where \"PORT~1\": \"PORT\" is a UInt2, and ~ is for texts");
  EXPECT_EQ(fault_of_where("OK>true"),
            "--where \"OK>true\": \"OK\" is a Bool, which is compared by = and !=");
  EXPECT_EQ(fault_of_where("OK=1"), "--where \"OK=1\": \"OK\" is a Bool: true or false, not \"1\"");
  EXPECT_EQ(fault_of_where("WHEN<soon"),
            "--where \"WHEN<soon\": \"WHEN\" is a Timestamp: a time such as "
            "\"2026-11-15T17:02:56+08:00\", not \"soon\"");
  EXPECT_EQ(fault_of_where("USER_NAME~("),
            "--where \"USER_NAME~(\": no regular expression: \"(\": missing ): (");
  for (const char* text : {"", "PORT", "=1", "PORT!1", "\"PORT", "\"PORT\" 1"})
    EXPECT_EQ(fault_of_where(text),
              "--where \"" + std::string(text) +
                  "\": expected an attribute, one of = != < <= > >= ~, and a value");
  EXPECT_EQ(fault_of({.groups = {{.events = {"USER_LOGIM"}}}}),
            "--event: no event \"USER_LOGIM\"; did you mean \"USER_LOGIN\"?");
  EXPECT_EQ(fault_of({.groups = {{.events = {"1001,"}}}}), "--event: a name is empty");
  EXPECT_EQ(fault_of({.groups = {{.grep = {"["}}}}),
            "--grep: no regular expression: \"[\": missing ]: [");
  EXPECT_EQ(fault_of({.since = "today", .until = "yesterday"}), "--until lies before --since");
  EXPECT_NE(fault_of({.since = "tomorrow"}), "");
  EXPECT_NE(fault_of({.until = ""}), "");
}

// Whatever definitions come later.
TEST_F(Conditions, AreRefusedWithoutDefinitionsWhereTheyAreNone) {
  const auto fault = [](const condition_group& group) -> std::string {
    try {
      require_readable({.groups = {group}});
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(fault({.events = {"NOBODY,1,X*"}, .where = {"NOTHING<3", "A~b"}, .grep = {"x"}}), "");
  EXPECT_EQ(fault({.events = {"A,,B"}}), "--event: a name is empty");
  EXPECT_EQ(fault({.where = {"PORT"}}),
            "--where \"PORT\": expected an attribute, one of = != < <= > >= ~, and a value");
  EXPECT_EQ(fault({.where = {"A~("}}),
            "--where \"A~(\": no regular expression: \"(\": missing ): (");
  EXPECT_EQ(fault({.grep = {"["}}), "--grep: no regular expression: \"[\": missing ]: [");
}

// An index tells times beyond these years as the nearest ones.
TEST_F(Conditions, MayFitBeyondTheTimesOfAnIndex) {
  const auto may_fit = [&](const find_options& options, int64_t first, int64_t last) {
    segment_index index;
    index.records = 1;
    index.first = first;
    index.last = last;
    return record_conditions(options, events_.events(), now).may_fit(index);
  };
  const find_options until = {.until = "0000-01-01T00:00:00+23:59"};
  EXPECT_TRUE(may_fit(until, first_told_instant, 0));
  EXPECT_FALSE(may_fit(until, first_told_instant + 1, 0));
  const find_options since = {.since = "9999-12-31T23:59:59-23:59"};
  EXPECT_TRUE(may_fit(since, 0, last_told_instant));
  EXPECT_FALSE(may_fit(since, 0, last_told_instant - 1));
}

TEST(LevelRange, IsOneLevelOrTwoWithDotsBetween) {
  const auto range = [](const std::string& text) {
    const level_range read = level_range_of(text);
    return std::to_string(read.lowest) + " " + std::to_string(read.highest);
  };
  EXPECT_EQ(range("0..3"), "0 3");
  EXPECT_EQ(range("3"), "3 3");
  EXPECT_EQ(range("..3"), "0 3");
  EXPECT_EQ(range("5.."), "5 9");
  for (const char* text : {"", "..", "10", "3..10", "5..3", "a", "1...3", "-1", "1..2..3", "1-3"})
    EXPECT_THROW(level_range_of(text), std::invalid_argument) << text;
}

// Random integers, by every operator, against what C++ says of them.
TEST_F(Conditions, RandomNumbersCompareAsInCpp) {
  const unsigned seed = std::random_device()();
  std::mt19937 random(seed);
  for (int i = 0; i < 60; ++i) {
    const int held = static_cast<int>(random()) >> (random() % 31);
    const int asked = random() % 3 == 0 ? held : static_cast<int>(random()) >> (random() % 31);
    for (const auto& [text, expected] :
         std::vector<std::pair<std::string, bool>>{{"=", held == asked},
                                                   {"!=", held != asked},
                                                   {"<", held < asked},
                                                   {"<=", held <= asked},
                                                   {">", held > asked},
                                                   {">=", held >= asked}})
      EXPECT_EQ(
          login_fits("\"A=B\"" + text + std::to_string(asked), "\"A=B\":" + std::to_string(held)),
          expected)
          << held << text << asked << " seed " << seed;
  }
}

// What is known of the record before says the same as the text of the time.
TEST_F(Conditions, TimesOfOneDayAreHeldAgainstItAsTheyAreAlone) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto one_of = [&](std::initializer_list<const char*> texts) {
    return std::string(texts.begin()[random() % texts.size()]);
  };
  const find_options options{.since = "2026-11-15T07:30:00+08:00", .until = "2026-11-16T00:00:30Z"};
  record_conditions conditions(options, events_.events(), now);
  for (unsigned i = 0; i < 2000 && !HasFailure(); ++i) {
    std::string time = one_of({"2026-11-15", "2026-11-15", "2026-11-16", "2026-11-14", "1650-01-01",
                               "9999-12-31", "2026-02-29", "0000-11-15"}) +
                       one_of({"T", "T", "T", " "}) +
                       one_of({"00", "07", "15", "23", "24", "2x", "99"}) +
                       one_of({":", ":", "-"}) + one_of({"00", "29", "30", "59", "60"}) + ":" +
                       one_of({"00", "30", "31", "59", "60", "61"}) + one_of({"", "", ".5"}) +
                       one_of({"Z", "+08:00", "-08:00", "", "+99:00", "x"});
    if (random() % 20 == 0) time.resize(random() % (time.size() + 1));
    const std::string record = R"({"event":1001,"time":")" + time + "\"}";
    const bool fits_alone = fits(options, record);
    EXPECT_EQ(conditions.fit(parser_.parse(record)), fits_alone) << time;
  }
}
