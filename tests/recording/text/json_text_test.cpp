#include "recording/text/json_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/command/characters.h"

TEST(JsonText, CommasStandBetweenMembersAndBetweenValues) {
  std::string line;
  json_text json(line);
  json.begin_object().key("none").begin_object().end_object().key("list").begin_list();
  json.number(1).text("two").written("null").begin_list().end_list();
  json.begin_object().key("a").text("{").key("b").text("[").key("c").text(":").end_object();
  json.end_list().key("last\n\"").written("true").end_object();
  EXPECT_EQ(line,
            R"({"none":{},"list":[1,"two",null,[],{"a":"{","b":"[","c":":"}],"last\n\"":true})");
}

TEST(JsonText, NothingStandsBetweenLinesAndBetweenPiecesOfSeveral) {
  std::string lines = "{}\n";
  json_text(lines).begin_object().key("a");
  json_text(lines).number(1);
  std::string members;
  json_text(members).key("b").number(2).key("c").number(3);
  json_text(lines).written(members).end_object();
  EXPECT_EQ(lines, "{}\n{\"a\":1,\"b\":2,\"c\":3}");
}

template <class Number>
static std::string number_in_json(Number number) {
  std::string json;
  json_text(json).number(number);
  return json;
}

TEST(JsonText, NumbersAreWrittenUpToTheLimitsOfTheirTypes) {
  EXPECT_EQ(number_in_json(int8_t{-128}), "-128");
  EXPECT_EQ(number_in_json(uint8_t{255}), "255");
  EXPECT_EQ(number_in_json(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(number_in_json(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(number_in_json(-std::numeric_limits<double>::max()), "-1.7976931348623157e+308");
  EXPECT_EQ(number_in_json(std::numeric_limits<double>::denorm_min()), "5e-324");
  EXPECT_EQ(number_in_json(0.1), "0.1");
}

// Appends a value of any kind, and says what it is.
template <class Random>
static nlohmann::ordered_json append_any(json_text& json, Random& random, int depth) {
  nlohmann::ordered_json value;
  const auto any_text = [&] {
    std::string text;
    for (size_t size = random() % 4; size > 0; --size) append_utf8(text, random_character(random));
    return text;
  };
  switch (random() % (depth == 0 ? 4 : 6)) {
    case 0:
      value = any_text();
      json.text(value.template get_ref<const std::string&>());
      break;
    case 1:
      value = static_cast<int64_t>(random());
      json.number(value.template get<int64_t>());
      break;
    case 2:
      value = std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 600) - 300);
      json.number(value.template get<double>());
      break;
    case 3:
      json.written("null");
      break;
    case 4:
      value = nlohmann::ordered_json::array();
      json.begin_list();
      for (size_t size = random() % 4; size > 0; --size)
        value.push_back(append_any(json, random, depth - 1));
      json.end_list();
      break;
    default:
      value = nlohmann::ordered_json::object();
      json.begin_object();
      for (size_t size = random() % 4; size > 0; --size) {
        const std::string key = any_text() + std::to_string(size);
        json.key(key);
        value[key] = append_any(json, random, depth - 1);
      }
      json.end_object();
  }
  return value;
}

TEST(JsonText, AnyTreeIsReadAgainByAnotherLibrary) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  for (int round = 0; round < 2000; ++round) {
    std::string line;
    json_text json(line);
    const nlohmann::ordered_json value = append_any(json, random, 4);
    ASSERT_EQ(nlohmann::ordered_json::parse(line), value) << line;
  }
}
