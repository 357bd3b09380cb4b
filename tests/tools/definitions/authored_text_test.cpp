// The template that an authored text becomes, letter by letter.
#include "tools/definitions/authored_text.h"

#include <gmock/gmock.h>

#include <map>

static const std::map<std::string_view, kp_AttributeType> known_types = {
    {"N", TypeUInt4},
    {"F", TypeFloat},
    {"S", TypeMBChar64},
    {"C", TypeChar32},
    {"B", TypeBool},
    {"D", TypeDate},
    {"T", TypeTime},
    {"W", TypeTimestamp},
    {"G", TypeGUID},
    {"A:B", TypeSInt1},
    {"TIMESTAMP", TypeTimestamp},
    {"50%", TypeUInt1},
    {"日本日本", TypeUInt1},
    {"äöü", TypeUInt1}};

static const template_attributes known_attributes = {
    [](std::string_view name) {
      const auto known = known_types.find(name);
      return known == known_types.end() ? TypeUnknown : known->second;
    },
    [] {
      std::vector<std::string_view> names;
      for (const auto& [name, type] : known_types) names.push_back(name);
      return names;
    }};

static std::string icu_template(std::string_view authored) {
  std::vector<template_problem> problems;
  std::string text =
      template_from_text(authored, message_renderer::icu, known_attributes, problems);
  for (const auto& problem : problems) ADD_FAILURE() << problem.offset << ": " << problem.text;
  return text;
}

static std::string byte_template(std::string_view authored) {
  std::vector<template_problem> problems;
  std::string text =
      template_from_text(authored, message_renderer::bytes, known_attributes, problems);
  for (const auto& problem : problems) ADD_FAILURE() << problem.offset << ": " << problem.text;
  return text;
}

// "OFFSET CODE" of every problem.
static std::vector<std::string> problems_of(std::string_view authored, message_renderer renderer) {
  std::vector<template_problem> problems;
  template_from_text(authored, renderer, known_attributes, problems);
  std::vector<std::string> shown;
  for (const auto& problem : problems)
    shown.push_back(std::to_string(problem.offset) + " " + problem.rule->code);
  return shown;
}

using testing::ElementsAre;
using testing::IsEmpty;

TEST(TemplateText, PlaceholderTakesItsFormatFromTheType) {
  EXPECT_EQ(icu_template("{N}"), "%d%N%");
  EXPECT_EQ(icu_template("{F}"), "%f%F%");
  EXPECT_EQ(icu_template("{S}"), "%s%S%");
  EXPECT_EQ(icu_template("{C}"), "%s%C%");
  EXPECT_EQ(icu_template("{D}"), "%D%D%");
  EXPECT_EQ(icu_template("{T}"), "%T%T%");
}

TEST(TemplateText, ChosenFormatsReplaceTheDefault) {
  EXPECT_EQ(icu_template("{N:currency}"), "%C%N%");
  EXPECT_EQ(icu_template("{F:percent}"), "%P%F%");
  EXPECT_EQ(icu_template("{W:date}"), "%D%W%");
  EXPECT_EQ(icu_template("{D:time}"), "%T%D%");
  EXPECT_EQ(icu_template("{TIMESTAMP:time}"), "%T%TIMESTAMP%");
}

TEST(TemplateText, TextAtTheEndIsClosedForIcuAndLeftAloneForBytes) {
  EXPECT_EQ(icu_template("Port {N} open"), "Port %d%N% open%x%TIMESTAMP%");
  EXPECT_EQ(byte_template("Port {N} open"), "Port %d%N% open");
  EXPECT_EQ(icu_template("Started"), "Started%x%TIMESTAMP%");
  EXPECT_EQ(byte_template("Started"), "Started");
}

TEST(TemplateText, EmptyTextIsAnEmptyTemplate) {
  EXPECT_EQ(icu_template(""), "");
  EXPECT_EQ(byte_template(""), "");
}

TEST(TemplateText, PercentSignIsKeptFromSwallowingWhatStandsBefore) {
  EXPECT_EQ(icu_template("50% done"), "50%x%TIMESTAMP% %% done%x%TIMESTAMP%");
  EXPECT_EQ(icu_template("{N}%"), "%d%N% %%");
  EXPECT_EQ(icu_template("%{N}"), "%%%d%N%");
  EXPECT_EQ(icu_template("%%"), "%%%%");
}

TEST(TemplateText, AdjacentPlaceholdersAreSeparatedByAPieceThatShowsNothing) {
  EXPECT_EQ(icu_template("{N}{S}"), "%d%N%{0,plural,other{}}%s%S%");
  EXPECT_EQ(icu_template("{F}{N}"), "%f%F%{0,plural,other{}}%d%N%");
  EXPECT_EQ(icu_template("{N} {S}{N}"), "%d%N% %s%S%{1,select,other{}}%d%N%");
  EXPECT_EQ(icu_template("{D}{N}"), "%D%D%{0,date,l}%d%N%");
}

TEST(TemplateText, BracesAndApostrophesAreQuotedForIcu) {
  EXPECT_EQ(icu_template("{{{N}}}"), "'{'%d%N%'}'%x%TIMESTAMP%");
  EXPECT_EQ(icu_template("it's {N}"), "it''s %d%N%");
  EXPECT_EQ(icu_template("{{'{{ {N}"), "'{''{' %d%N%");
  EXPECT_EQ(icu_template("}}%"), "'}'%x%TIMESTAMP% %%");
}

TEST(TemplateText, BracesAndApostrophesStandAsTheyAreForBytes) {
  EXPECT_EQ(byte_template("{{{N}}} it''s"), "{%d%N%} it''s");
}

TEST(TemplateText, ColonBelongsToANameThatHoldsOneBeforeAFormat) {
  EXPECT_EQ(icu_template("{A:B:percent}"), "%P%A:B%");
}

TEST(TemplateText, BracesWithoutPartnerAreProblemsAtTheirPlace) {
  EXPECT_THAT(problems_of("a { b", message_renderer::icu), ElementsAre("2 text-brace"));
  EXPECT_THAT(problems_of("a } b", message_renderer::icu), ElementsAre("2 text-brace"));
  EXPECT_THAT(problems_of("a {} b", message_renderer::icu), ElementsAre("2 text-brace"));
  EXPECT_THAT(problems_of("{N{N}", message_renderer::icu), ElementsAre("0 text-brace"));
}

TEST(TemplateText, UnknownAttributeAndUnsuitableFormatAreProblems) {
  EXPECT_THAT(problems_of("x {M}", message_renderer::icu), ElementsAre("3 text-attribute"));
  EXPECT_THAT(problems_of("{W}", message_renderer::icu), ElementsAre("1 text-format"));
  EXPECT_THAT(problems_of("{S:percent}", message_renderer::icu), ElementsAre("3 text-format"));
  EXPECT_THAT(problems_of("{N:date}", message_renderer::icu), ElementsAre("3 text-format"));
  EXPECT_THAT(problems_of("{N:}", message_renderer::icu), ElementsAre("3 text-format"));
}

TEST(TemplateText, NamesThatATemplateCannotHoldAreProblems) {
  EXPECT_THAT(problems_of("{50%}", message_renderer::bytes), ElementsAre("1 text-name"));
  EXPECT_THAT(problems_of("{日本日本}", message_renderer::icu), ElementsAre("1 text-name"));
  EXPECT_THAT(problems_of("{日本日本}", message_renderer::bytes), IsEmpty());
  EXPECT_THAT(problems_of("{äöü}", message_renderer::icu), IsEmpty());
}

TEST(TemplateText, ByteRendererCannotShowPercentAndAdjacency) {
  EXPECT_THAT(problems_of("5 %", message_renderer::bytes), ElementsAre("2 text-percent"));
  EXPECT_THAT(problems_of("{N}{N}", message_renderer::bytes), ElementsAre("3 text-adjacent"));
}

TEST(TemplateText, NoRendererShowsABoolOrAGuid) {
  for (const auto renderer : {message_renderer::icu, message_renderer::bytes}) {
    EXPECT_THAT(problems_of("{B}", renderer), ElementsAre("1 text-bool"));
    EXPECT_THAT(problems_of("{B:percent}", renderer), ElementsAre("1 text-bool"));
    EXPECT_THAT(problems_of("{G}", renderer), ElementsAre("1 text-guid"));
  }
}

TEST(TemplateText, BothRenderersShareOnlyWhatNeitherQuotes) {
  EXPECT_THAT(problems_of("it's", message_renderer::both), IsEmpty());
  EXPECT_THAT(problems_of("s'", message_renderer::both), IsEmpty());
  EXPECT_THAT(problems_of("it''s", message_renderer::both), ElementsAre("2 text-quote"));
  EXPECT_THAT(problems_of("'{N}'", message_renderer::both), ElementsAre("0 text-quote"));
  EXPECT_THAT(problems_of("{{", message_renderer::both), ElementsAre("0 text-quote"));
}

TEST(TemplateText, EleventhPlaceholderIsTooManyForIcuOnly) {
  std::string ten;
  for (int i = 0; i < 10; ++i) ten += "{N} ";
  EXPECT_THAT(problems_of(ten, message_renderer::icu), IsEmpty());
  EXPECT_THAT(problems_of(ten + "{N}{N}", message_renderer::icu), ElementsAre("40 text-too-many"));
  EXPECT_THAT(problems_of(ten + "{N}", message_renderer::bytes), IsEmpty());
}
