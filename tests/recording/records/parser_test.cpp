// Records as text: what is read of them, and the exact place and reason of every fault.
#include "recording/records/parser.h"

#include "recording/records/context.h"
#include "tests/recording/records/record_events.h"

static std::string fault_in(const std::string& line) {
  record_parser parser;
  try {
    parser.parse(line);
  } catch (const record_error& error) {
    return shown_fault(error, line);
  }
  return "";
}

// --- what is read

TEST(RecordParser, ReadsEveryKey) {
  record_parser parser;
  const parsed_record& record = parser.parse(
      R"( {"event": "USER_LOGIN", "level": 5, "time": "2026-11-15T17:02:56+08:00", )"
      R"("attributes": {"USER": "a\"b", "PORT": -12, "LOAD": 1.5e3, "OK": true, "NO": null}, )"
      R"("message_index": 4294967295} )");
  EXPECT_EQ(record.event.text, "USER_LOGIN");
  EXPECT_EQ(record.event.kind, record_value_kind::text);
  EXPECT_EQ(record.event.offset, 11u);
  EXPECT_EQ(record.level, 5u);
  EXPECT_EQ(record.time->text, "2026-11-15T17:02:56+08:00");
  EXPECT_EQ(record.message_index, 4294967295u);
  ASSERT_EQ(record.attributes.size(), 5u);
  using kinds = record_value_kind;
  const struct {
    std::string_view name, text;
    kinds kind;
  } expected[] = {{"USER", "a\"b", kinds::text},
                  {"PORT", "-12", kinds::integer},
                  {"LOAD", "1.5e3", kinds::real},
                  {"OK", "true", kinds::boolean},
                  {"NO", "null", kinds::null}};
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(record.attributes[i].name, expected[i].name);
    EXPECT_EQ(record.attributes[i].value.text, expected[i].text);
    EXPECT_EQ(record.attributes[i].value.kind, expected[i].kind);
  }
}

TEST(RecordParser, TellsWhereNamesAndValuesBegin) {
  record_parser parser;
  const std::string line = R"({"attributes":{ "A" : 12 },"event":7})";
  const parsed_record& record = parser.parse(line);
  EXPECT_EQ(record.attributes[0].offset, line.find("\"A\""));
  EXPECT_EQ(record.attributes[0].value.offset, line.find("12"));
  EXPECT_EQ(record.event.offset, line.find('7'));
}

TEST(RecordParser, NeedsAnEventOnly) {
  record_parser parser;
  const parsed_record& record = parser.parse(R"({"event":1001})");
  EXPECT_EQ(record.event.text, "1001");
  EXPECT_EQ(record.event.kind, record_value_kind::integer);
  EXPECT_FALSE(record.level.has_value());
  EXPECT_FALSE(record.time.has_value());
  EXPECT_FALSE(record.name.has_value());
  EXPECT_TRUE(record.attributes.empty());
  EXPECT_EQ(record.message_index, 0u);
}

TEST(RecordParser, ForgetsTheRecordBefore) {
  record_parser parser;
  parser.parse(
      R"({"event":1,"level":1,"time":"","attributes":{"A":1},"message_index":3,"name":"N"})");
  const parsed_record& record = parser.parse(R"({"event":2})");
  EXPECT_FALSE(record.level.has_value());
  EXPECT_FALSE(record.time.has_value());
  EXPECT_FALSE(record.name.has_value());
  EXPECT_TRUE(record.attributes.empty());
  EXPECT_EQ(record.message_index, 0u);
}

TEST(RecordParser, ReadsTheStoredForm) {
  record_parser parser;
  const parsed_record& record =
      parser.parse(R"({"version":"2.0","event":1001,"name":"USER_LOGIN","level":3,)"
                   R"("time":"2026-11-15T17:02:56+08:00","attributes":{"PORT":51234},)"
                   R"("types":{"PORT":"UInt2"},"message_index":0,"message":"came in"})");
  EXPECT_EQ(record.name->text, "USER_LOGIN");
  EXPECT_EQ(record.attributes.size(), 1u);
}

TEST(RecordParser, ReadsWhereARecordCameFrom) {
  record_parser parser;
  const record_origin& origin =
      parser
          .parse(R"({"event":1,"recorded":"2026-11-15T17:02:56.123456789+08:00","host":"h\u00e9",)"
                 R"("recorder":"0f3a","pid":0,"thread":18446744073709551615,"sequence":1,)"
                 R"("client":"c\n","number":12,"peer":{"process":34,"user":0}})")
          .origin;
  EXPECT_EQ(origin.recorded, "2026-11-15T17:02:56.123456789+08:00");
  EXPECT_EQ(origin.host, "hé");
  EXPECT_EQ(origin.recorder, "0f3a");
  EXPECT_EQ(origin.pid, 0u);
  EXPECT_EQ(origin.thread, 18446744073709551615u);
  EXPECT_EQ(origin.sequence, 1u);
  EXPECT_EQ(origin.client, "c\n");
  EXPECT_EQ(origin.number, 12u);
  EXPECT_EQ(origin.peer, (record_peer{0, 34}));
  parser.parse(R"({"event":1})");
  EXPECT_EQ(origin.recorded, "");
  EXPECT_EQ(origin.host, "");
  EXPECT_EQ(origin.recorder, "");
  EXPECT_FALSE(origin.pid.has_value());
  EXPECT_FALSE(origin.thread.has_value());
  EXPECT_FALSE(origin.sequence.has_value());
  EXPECT_EQ(origin.client, "");
  EXPECT_FALSE(origin.number.has_value());
  EXPECT_FALSE(origin.peer.has_value());
}

// The context that is read of a record that has it.
static std::string context_of(const std::string& context) {
  record_parser parser;
  return std::string(parser.parse(R"({"event":1,"context":)" + context + "}").origin.context);
}

TEST(RecordParser, ReadsAContextWithoutItsBlanks) {
  EXPECT_EQ(context_of("{}"), "{}");
  EXPECT_EQ(context_of("\t{ \"b\" : [ 1.50e+3 , -0, true,null, { } , [ ] ],\n \"a\":\"x  y\" } "),
            R"({"b":[1.50e+3,-0,true,null,{},[]],"a":"x  y"})");
  EXPECT_EQ(context_of(R"({"a":1,"a":{"a":"2"}})"), R"({"a":1,"a":{"a":"2"}})");
  EXPECT_EQ(context_of(R"({"n":123456789012345678901234567890,"r":1e999})"),
            R"({"n":123456789012345678901234567890,"r":1e999})");
  record_parser parser;
  parser.parse(R"({"event":1,"context":{"a":1}})");
  EXPECT_EQ(parser.parse(R"({"event":1})").origin.context, "");
}

// What it says stays; what would steer a terminal is written out.
TEST(RecordParser, ReadsTextsOfAContextAsThoseOfTheStoredForm) {
  EXPECT_EQ(context_of("{\"\\u00e9\\/\":\"\\ud83d\\ude00\\u0000\\b\xE2\x80\xAE\\\"\\n\"}"),
            "{\"é/\":\"\xF0\x9F\x98\x80\\u0000\\u0008\\u202E\\\"\\n\"}");
}

TEST(RecordParser, ReadsAContextAgainAsItIsStored) {
  const std::string stored =
      context_of("{\"a\x7F\":[\"\xE2\x80\xAE\",\"\xF3\xA0\x81\x81\"], \"b\":1.0}");
  EXPECT_EQ(context_of(stored), stored);
}

// A record whose context is an object of one text, that many bytes in all.
static std::string context_of_size(size_t size) {
  return R"({"event":1,"context":{"a":")" + std::string(size - 8, 'x') + "\"}}";
}

TEST(RecordParser, TakesFourKiBOfContext) {
  record_parser parser;
  for (const size_t size : {record_context_limit - 1, record_context_limit})
    EXPECT_EQ(parser.parse(context_of_size(size)).origin.context.size(), size);
  EXPECT_EQ(fault_in(context_of_size(record_context_limit + 1)),
            "record-context 22: \"context\" has at most 4096 bytes");
  std::string numbers = R"({"event":1,"context":{"a":[1)";
  for (size_t i = 0; i < record_context_limit; ++i) numbers += ",1";
  EXPECT_EQ(fault_in(numbers + "]}}"), "record-context 22: \"context\" has at most 4096 bytes");
}

// A context is as large as it can be written: six bytes for one that is stored escaped count as
// that one, and so a context of any texts is read again.
TEST(RecordParser, CountsNeitherBlanksNorEscapesThatJsonDoesNotNeed) {
  record_parser parser;
  const auto with = [](const std::string& piece, size_t pieces, size_t rest) {
    std::string text;
    for (size_t i = 0; i < pieces; ++i) text += piece;
    return R"({"event":1,"context":{"a":  ")" + text + std::string(rest, 'x') + "\"}}";
  };
  constexpr size_t room = record_context_limit - 8;
  const struct {
    std::string piece;
    size_t size;  // that counts
  } rows[] = {{"\x7F", 1},
              {"\xE2\x80\xAE", 3},
              {"\\u202e", 3},
              {"\\u0001", 6},
              {"\\n", 2},
              {"\\u000a", 2},
              {"\\b", 2},
              {"\\/", 1},
              {"\\ud83d\\ude00", 4},
              {"\\\"", 2},
              {"\xF3\xA0\x81\x81", 4}};
  for (const auto& row : rows) {
    const size_t pieces = room / row.size;
    const size_t rest = room % row.size;
    const std::string stored(parser.parse(with(row.piece, pieces, rest)).origin.context);
    EXPECT_EQ(context_of(stored), stored) << row.piece;
    EXPECT_EQ(fault_in(with(row.piece, pieces, rest + 1)),
              "record-context 22: \"context\" has at most 4096 bytes")
        << row.piece;
  }
}

TEST(RecordParser, TakesAContextThatIsNested64Deep) {
  const auto nested = [](size_t depth) {
    std::string context = "{}";
    for (size_t i = 1; i < depth; ++i)
      context = i + 1 == depth ? "{\"a\":" + context + "}" : "[" + context + "]";
    return context;
  };
  EXPECT_EQ(context_of(nested(record_context_depth)), nested(record_context_depth));
  EXPECT_EQ(fault_in(R"({"event":1,"context":)" + nested(record_context_depth + 1) + "}"),
            "record-context 22: \"context\" is nested at most 64 deep");
  EXPECT_EQ(fault_in(R"({"event":1,"context":)" + nested(100000) + "}"),
            "record-context 22: \"context\" is nested at most 64 deep");
}

TEST(RecordParser, TakesUpToNineDigitsOfASecond) {
  for (const char* time :
       {"2026-11-15T17:02:56+08:00", "2026-11-15T17:02:56Z", "2026-11-15T17:02:56.1Z",
        "2026-11-15 17:02:56.000000000-11:30", "0000-01-01T00:00:00.123456789+23:59"})
    EXPECT_EQ(fault_in(R"({"event":1,"recorded":")" + std::string(time) + "\"}"), "") << time;
  for (const char* time :
       {"", "2026-11-15", "2026-11-15T17:02:56", "2026-11-15T17:02:56.5", "2026-11-15T17:02:56.Z",
        "2026-11-15T17:02:56.1234567890Z", "2026-11-15T17:02:56,5Z", "2026-02-29T00:00:00.5Z",
        "2026-11-15T17:02:56.5+24:00", "2026-11-15T17:02:56.5+0800", "2026-11-15T17:02:56.5Z ",
        "2026-11-15T17:02.5Z", "2026-11-15.5T17:02:56Z", "1795338176.123456789"})
    EXPECT_EQ(fault_in(R"({"event":1,"recorded":")" + std::string(time) + "\"}"),
              "record-value 23: \"recorded\" is a time such as "
              "\"2026-11-15T17:02:56.123456789+08:00\", not \"" +
                  std::string(time) + "\"");
  EXPECT_NE(fault_in(R"({"event":1,"recorded":"2026-11-15T17:02:56\u0000Z"})"), "");
  EXPECT_NE(fault_in(R"({"event":1,"recorded":"2026-11-15\u0000T17:02:56Z"})"), "");
}

TEST(RecordParser, ReadsEscapesAndCharactersOfEverySize) {
  record_parser parser;
  const parsed_record& record =
      parser.parse(R"({"event":"\u00e9\ud83d\ude00 åå 日本 😀\n\t\\\/","attributes":{"\u0041":1}})");
  EXPECT_EQ(record.event.text, "é😀 åå 日本 😀\n\t\\/");
  EXPECT_EQ(record.attributes[0].name, "A");
}

TEST(RecordParser, ReadsTheLargestRecord) {
  const std::string head = R"({"event":")", tail = "\"}";
  const std::string name(record_size_limit - head.size() - tail.size(), 'x');
  record_parser parser;
  EXPECT_EQ(parser.parse(head + name + tail).event.text, name);
  EXPECT_EQ(fault_in(head + name + "x" + tail),
            "record-syntax 1048577: a record has at most 1048576 bytes, and this has 1048577");
}

// --- places

TEST(RecordParser, CountsColumnsInCharacters) {
  EXPECT_EQ(fault_in(R"({"attributes":{"日本":"é😀","X":[]},"event":1})"),
            "record-key 30: a value is a text, a number, true or false, not an array");
}

TEST(RecordParser, CutsLongTextsInFaults) {
  const std::string cut = std::string(63, 'x') + "...";
  EXPECT_EQ(fault_in("{\"event\":1,\"" + std::string(63, 'x') + "ééé\":1}"),
            "record-key 12: unknown key \"" + cut + "\"");
  EXPECT_EQ(fault_in("{\"event\":1,\"level\":" + std::string(1000, '9') + "}"),
            "record-key 20: \"level\" is a whole number from 0 to 9, not " + std::string(64, '9') +
                "...");
}

// --- faults

struct faulty_record {
  const char* line;
  const char* fault;
};

class RecordFault : public testing::TestWithParam<faulty_record> {};

TEST_P(RecordFault, IsToldWithItsPlace) {
  EXPECT_EQ(fault_in(GetParam().line), GetParam().fault);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, RecordFault,
    testing::ValuesIn(std::vector<faulty_record>{
        {R"({"level":3})", "record-key 1: the record has no \"event\""},
        {R"(  {})", "record-key 3: the record has no \"event\""},
        {R"({"event":1,"levle":3})",
         "record-key 12: unknown key \"levle\"; did you mean \"level\"?"},
        {R"({"event":1,"":3})", "record-key 12: unknown key \"\""},
        {R"({"event":1,"Event":2})",
         "record-key 12: unknown key \"Event\"; did you mean \"event\"?"},
        {R"({"event":1,"\u0065vent":2})", "record-key 12: the key \"event\" comes twice"},
        {R"({"event":1,"types":{},"types":{}})", "record-key 23: the key \"types\" comes twice"},
        {R"({"event":1,"attributes":{"A":1,"B":2,"A":3}})",
         "record-key 38: the attribute \"A\" comes twice"},
        {R"({"event":true})", "record-key 10: \"event\" is a name or an ID, not true"},
        {R"({"event":null})", "record-key 10: \"event\" is a name or an ID, not null"},
        {R"({"event":1.0})", "record-key 10: \"event\" is a name or an ID, not 1.0"},
        {R"({"event":[1]})", "record-key 10: \"event\" is a name or an ID, not an array"},
        {R"({"event":{}})", "record-key 10: \"event\" is a name or an ID, not an object"},
        {R"({"event":1,"level":10})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not 10"},
        {R"({"event":1,"level":-1})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not -1"},
        {R"({"event":1,"level":3.0})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not 3.0"},
        {R"({"event":1,"level":"3"})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not \"3\""},
        {R"({"event":1,"level":null})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not null"},
        {R"({"event":1,"level":4294967299})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not 4294967299"},
        {R"({"event":1,"level":{"a":1}})",
         "record-key 20: \"level\" is a whole number from 0 to 9, not an object"},
        {R"({"event":1,"time":5})", "record-key 19: \"time\" is a text, not 5"},
        {R"({"event":1,"message_index":4294967296})",
         "record-key 28: \"message_index\" is a whole number from 0 to 4294967295, not "
         "4294967296"},
        {R"({"event":1,"attributes":[]})",
         "record-key 25: \"attributes\" is an object, not an array"},
        {R"({"event":1,"attributes":null})",
         "record-key 25: \"attributes\" is an object, not null"},
        {R"({"event":1,"attributes":{"A":{}}})",
         "record-key 30: a value is a text, a number, true or false, not an object"},
        {R"({"event":1,"version":2.0})", "record-key 22: \"version\" is a text, not 2.0"},
        {R"({"event":1,"name":7})", "record-key 19: \"name\" is a text, not 7"},
        {R"({"event":1,"message":[]})", "record-key 22: \"message\" is a text, not an array"},
        {R"({"event":1,"types":"x"})", "record-key 20: \"types\" is an object, not \"x\""},
        {R"({"event":1,"types":{"A":5}})", "record-key 25: a type is a text, not 5"},
        {R"({"event":1,"recorded":5})",
         "record-key 23: \"recorded\" is a time such as "
         "\"2026-11-15T17:02:56.123456789+08:00\", not 5"},
        {R"({"event":1,"recorded":"2026-11-15T17:02:56Z","recorded":""})",
         "record-key 46: the key \"recorded\" comes twice"},
        {R"({"event":1,"host":["h"]})",
         "record-key 19: \"host\" is a text of at least one character, not an array"},
        {R"({"event":1,"host":""})",
         "record-key 19: \"host\" is a text of at least one character, not \"\""},
        {R"({"event":1,"recorder":null})",
         "record-key 23: \"recorder\" is a text of at least one character, not null"},
        {R"({"event":1,"recorder":""})",
         "record-key 23: \"recorder\" is a text of at least one character, not \"\""},
        {R"({"event":1,"pid":-1})",
         "record-key 18: \"pid\" is a whole number from 0 to 18446744073709551615, not -1"},
        {R"({"event":1,"thread":"7"})",
         "record-key 21: \"thread\" is a whole number from 0 to 18446744073709551615, not \"7\""},
        {R"({"event":1,"sequence":18446744073709551616})",
         "record-key 23: \"sequence\" is a whole number from 0 to 18446744073709551615, not "
         "18446744073709551616"},
        {R"({"event":1,"sequence":1e3})",
         "record-key 23: \"sequence\" is a whole number from 0 to 18446744073709551615, not 1e3"},
        {R"({"event":1,"context":"a"})", "record-context 22: \"context\" is an object, not \"a\""},
        {R"({"event":1,"context":null})", "record-context 22: \"context\" is an object, not null"},
        {R"({"event":1,"context":[{}]})",
         "record-context 22: \"context\" is an object, not an array"},
        {R"({"event":1,"context":{},"context":{}})",
         "record-key 25: the key \"context\" comes twice"},
        {R"({"event":1,"context":{"a":01}})",
         "record-syntax 28: syntax error while parsing object - unexpected number literal; "
         "expected '}'"},
        {R"({"event":1,"context":{"a":[1,]}})",
         "record-syntax 30: syntax error while parsing value - unexpected ']'; expected '[', '{', "
         "or a literal"},
        {R"({"event":1,"recoder":"r"})",
         "record-key 12: unknown key \"recoder\"; did you mean \"recorder\"?"},
    }));

INSTANTIATE_TEST_SUITE_P(
    Syntax, RecordFault,
    testing::ValuesIn(std::vector<faulty_record>{
        {"", "record-syntax 1: a record is an object, not an empty line"},
        {" \t\r", "record-syntax 1: a record is an object, not an empty line"},
        {"[1]", "record-syntax 1: a record is one JSON object"},
        {" \"event\"", "record-syntax 2: a record is one JSON object"},
        {"1", "record-syntax 1: a record is one JSON object"},
        {"null", "record-syntax 1: a record is one JSON object"},
        {"\xEF\xBB\xBF{\"event\":1}", "record-syntax 1: a record is one JSON object"},
        {R"({"event":1} x)", "record-syntax 13: text behind the record"},
        {R"({"event":1}})", "record-syntax 12: text behind the record"},
        {R"({"event":1}{"event":1})", "record-syntax 12: text behind the record"},
        {R"({"event":1)",
         "record-syntax 11: syntax error while parsing object - unexpected end of input; expected "
         "'}'"},
        {R"({"event")",
         "record-syntax 9: syntax error while parsing object separator - unexpected end of input; "
         "expected ':'"},
        {R"({"event":)",
         "record-syntax 10: syntax error while parsing value - unexpected end of input; expected "
         "'[', '{', or a literal"},
        {R"({"event":1,})",
         "record-syntax 12: syntax error while parsing object key - unexpected '}'; expected "
         "string literal"},
        {R"({event:1})",
         "record-syntax 2: syntax error while parsing object key - invalid literal; expected "
         "string literal"},
        {R"({"event" 1})",
         "record-syntax 10: syntax error while parsing object separator - unexpected number "
         "literal; expected ':'"},
        {R"({"event":01})",
         "record-syntax 11: syntax error while parsing object - unexpected number literal; "
         "expected '}'"},
        {R"({"event":+1})", "record-syntax 10: syntax error while parsing value - invalid literal"},
        {R"({"event":1.})",
         "record-syntax 12: syntax error while parsing value - invalid number; expected digit "
         "after '.'"},
        {R"({"event":NaN})",
         "record-syntax 10: syntax error while parsing value - invalid literal"},
        {R"({"event":tru})",
         "record-syntax 13: syntax error while parsing value - invalid literal"},
        {R"({"event":truex})",
         "record-syntax 14: syntax error while parsing object - invalid literal; expected '}'"},
        {R"({"event":'x'})",
         "record-syntax 10: syntax error while parsing value - invalid literal"},
        {R"({"event":"x})",
         "record-syntax 13: syntax error while parsing value - invalid string: missing closing "
         "quote"},
        {"{\"event\":\"a\tb\"}",
         "record-syntax 12: syntax error while parsing value - invalid string: control character "
         "U+0009 (HT) must be escaped to \\u0009 or \\t"},
        {R"({"event":"\x"})",
         "record-syntax 12: syntax error while parsing value - invalid string: forbidden "
         "character after backslash"},
        {R"({"event":"\ud800"})",
         "record-syntax 17: syntax error while parsing value - invalid string: surrogate "
         "U+D800..U+DBFF must be followed by U+DC00..U+DFFF"},
        {R"({"event":"\udc00"})",
         "record-syntax 16: syntax error while parsing value - invalid string: surrogate "
         "U+DC00..U+DFFF must follow U+D800..U+DBFF"},
        {"{\"event\":\"é\xFF\"}", "record-syntax 12: a record is UTF-8, and the byte FF is not"},
        {"{\"event\":\"\xC0\xAF\"}", "record-syntax 11: a record is UTF-8, and the byte C0 is not"},
        {"{\"event\":\"\xED\xA0\x80\"}",
         "record-syntax 11: a record is UTF-8, and the byte ED is not"},
        {"{\"event\":\"\xF0\x9F\x98",
         "record-syntax 11: a record is UTF-8, and the byte F0 is not"},
        {R"({"event":1 /* x */})",
         "record-syntax 12: syntax error while parsing object - invalid literal; expected '}'"},
        {R"({"event":1,"attributes":{"A":1e999 1}})",
         "record-syntax 34: a number beyond those of a Float"},
    }));

TEST(RecordParser, RefusesANulBetweenTokens) {
  const std::string line("{\"event\":1\0}", 12);
  EXPECT_EQ(fault_in(line), "record-syntax 11: a NUL, which a record cannot hold");
  EXPECT_EQ(fault_in(std::string("{\"event\":\"\0\"}", 13)),
            "record-syntax 11: a NUL, which a record cannot hold");
  EXPECT_EQ(fault_in(std::string("{\"event\":1}\0{", 13)),
            "record-syntax 12: a NUL, which a record cannot hold");
}

TEST(RecordParser, CutsLongTokensInFaults) {
  const std::string token = "'; expected " + std::string(1000, 'x');
  EXPECT_EQ(fault_in("{\"event\":\"" + token),
            "record-syntax 1023: syntax error while parsing value - invalid string: missing "
            "closing quote");
}

// --- hostile records

TEST(RecordParser, RefusesDeepNesting) {
  const std::string deep(500'000, '[');
  EXPECT_EQ(fault_in(deep),
            "record-syntax 500001: syntax error while parsing value - unexpected "
            "end of input; expected '[', '{', or a literal");
  EXPECT_EQ(fault_in("{\"event\":" + deep), fault_in("{\"event\":" + deep));
  std::string objects;
  for (int i = 0; i < 100'000; ++i) objects += "{\"event\":";
  EXPECT_NE(fault_in(objects), "");
}

TEST(RecordParser, TakesAsManyAttributesAsAnEventCanHave) {
  const auto line_of = [](size_t count) {
    std::string line = "{\"event\":1,\"attributes\":{";
    for (size_t i = 0; i < count; ++i)
      line += (i == 0 ? "\"A" : ",\"A") + std::to_string(i) + "\":0";
    return line + "}}";
  };
  record_parser parser;
  EXPECT_EQ(parser.parse(line_of(record_attribute_limit)).attributes.size(), 510u);
  const std::string one_more = line_of(record_attribute_limit + 1);
  EXPECT_EQ(fault_in(one_more), "record-key " + std::to_string(one_more.find("\"A510\"") + 1) +
                                    ": a record has at most 510 attributes");
}

TEST(RecordParser, RefusesEveryTruncation) {
  const std::string line =
      R"({"event":"LOGIN","level":3,"attributes":{"USER":"é😀","PORT":51234,"OK":true}})";
  ASSERT_EQ(fault_in(line), "");
  for (size_t size = 0; size < line.size(); ++size)
    EXPECT_NE(fault_in(line.substr(0, size)), "") << size;
}

TEST(RecordParser, SurvivesEveryChangedByte) {
  const std::string line = R"({"event":"\u00e9","time":"x","attributes":{"A":-1.5e+3,"B":true}})";
  record_parser parser;
  for (size_t at = 0; at < line.size(); ++at)
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = line;
      changed[at] = static_cast<char>(byte);
      try {
        parser.parse(changed);
      } catch (const record_error& error) {
        EXPECT_NE(error.text(), "");
        EXPECT_LE(error.offset(), line.size());
      }
    }
}

TEST(RecordParser, ReadsOnAfterAFault) {
  record_parser parser;
  for (const char* bad : {"{", "{\"event\":[", "[", "", "{\"event\":1,\"x\":1}"})
    EXPECT_THROW(parser.parse(bad), record_error);
  EXPECT_EQ(parser.parse(R"({"event":"GOOD"})").event.text, "GOOD");
}

// --- what a fault costs

TEST(RecordError, IsWorkedOutOnceAndOnlyForWhoAsks) {
  int asked = 0;
  const std::string line = "äx";
  const record_error error("record-key"_rule, [&]() -> record_finding {
    ++asked;
    return {2, "found"};
  });
  const record_error copy = error;
  EXPECT_EQ(copy.rule(), "record-key"_rule);
  EXPECT_STREQ(copy.what(), "record-key");
  EXPECT_EQ(asked, 0);
  EXPECT_EQ(shown_fault(copy, line), "record-key 2: found");
  EXPECT_EQ(shown_fault(error, line), "record-key 2: found");
  EXPECT_EQ(asked, 1);
}

TEST(RecordParser, FindsNamesThatComeTwiceAmongMany) {
  for (const size_t count : {1u, 15u, 16u, 17u, 18u, 300u}) {
    for (size_t twice = 0; twice < count; twice += count / 3 + 1) {
      std::string line = "{\"event\":1,\"attributes\":{";
      for (size_t i = 0; i < count; ++i) line += "\"A" + std::to_string(i) + "\":0,";
      const std::string name = "\"A" + std::to_string(twice) + "\"";
      const size_t column = line.size() + 1;
      EXPECT_EQ(fault_in(line + name + ":0}}"), "record-key " + std::to_string(column) +
                                                    ": the attribute " + name + " comes twice");
      EXPECT_EQ(fault_in(line + "\"B\":0}}"), "");
    }
  }
}

TEST(RecordParser, TakesLongerLinesOfTheStoredForm) {
  const auto line_of = [](const std::string& begin, size_t size) {
    const std::string end = "\"event\":1}";
    return begin + std::string(size - begin.size() - end.size(), ' ') + end;
  };
  const std::string stored = "{\"version\":\"2.0\",";
  record_parser parser;
  EXPECT_EQ(parser.parse(line_of(stored, stored_record_size_limit)).event.text, "1");
  try {
    const std::string line = line_of(stored, stored_record_size_limit + 1);
    parser.parse(line);
    ADD_FAILURE() << "nothing was raised";
  } catch (const record_error& error) {
    EXPECT_EQ(error.text(), "a record has at most 16777216 bytes, and this has 16777217");
  }
  EXPECT_EQ(fault_in(line_of("{", record_size_limit)), "");
  EXPECT_EQ(fault_in(line_of("{", record_size_limit + 1)),
            "record-syntax 1048577: a record has at most 1048576 bytes, and this has 1048577");
}
