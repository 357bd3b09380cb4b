// The events that records may name: names, attributes and merging as the library has them, and the
// errors of files that cannot be used.
#include "recording/records/event_set.h"

#include <gmock/gmock.h>
#include <unicode/locid.h>

#include <sstream>
#include <stdexcept>

#include "tests/recording/records/record_events.h"
#include "tests/support/catalog_folder.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

static std::string names_of(const known_event& event) {
  std::string names;
  for (const known_attribute& attribute : event.attributes)
    names += attribute.name + ":" + std::to_string(attribute.type) + " ";
  return names;
}

static std::string set_error(const event_set_options& options) {
  try {
    const event_set set(options);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

static ldf_file standard_file() {
  return {.log_version = "2.5",
          .globals = {{"HOST", TypeChar32}, {"PORT", TypeUInt2}},
          .entries = {{.id = 30, .msg_id = "LATE", .attributes = {{"PORT", TypeUInt4}}},
                      {.id = 20,
                       .msg_id = "PAID",
                       .msg_text = "paid",
                       .selector = "KIND",
                       .attributes = {{"KIND", TypeUInt1}, {"PAYER", TypeChar32}}}}};
}

TEST(EventSet, KnowsTheEventsOfTheFileById) {
  const record_events known(standard_file());
  const event_set& set = known.events();
  EXPECT_EQ(set.version(), "2.5");
  ASSERT_EQ(set.events().size(), 2u);
  EXPECT_EQ(set.events()[0].id, 20u);
  EXPECT_EQ(set.events()[1].id, 30u);
  EXPECT_EQ(set.find(20)->name, "PAID");
  EXPECT_EQ(set.find("PAID"), set.find(20));
  EXPECT_EQ(set.find(21), nullptr);
  EXPECT_EQ(set.find("PAI"), nullptr);
  EXPECT_FALSE(set.is_ambiguous("PAI"));
}

TEST(EventSet, PutsTheAttributesOfEveryEventBehindTheOwn) {
  const record_events known(standard_file());
  EXPECT_EQ(names_of(*known.events().find(20)), "KIND:2 PAYER:9 HOST:9 PORT:4 ");
  EXPECT_EQ(names_of(*known.events().find(30)), "PORT:6 HOST:9 ");
  EXPECT_EQ(known.events().find(30)->find("PORT")->type, TypeUInt4);
  EXPECT_EQ(known.events().find(30)->find("POR"), nullptr);
}

TEST(EventSet, MergesAFileThatAddsToTheStandardOne) {
  const ldf_file aux{.log_version = "3.0",
                     .globals = {{"HOST", TypeMBChar64}},
                     .entries = {{.id = 20,
                                  .msg_id = "NO_TEXT_WITH_IT",
                                  .selector = "KIND",
                                  .attributes = {{"SHOP", TypeChar64}, {"KIND", TypeUInt2}}},
                                 {.id = 40, .msg_id = "ADDED"}}};
  const record_events known(standard_file(), aux);
  const event_set& set = known.events();
  EXPECT_EQ(set.version(), "2.5");
  EXPECT_EQ(names_of(*set.find(20)), "PAYER:9 SHOP:10 KIND:4 PORT:4 HOST:16 ");
  EXPECT_EQ(set.find("PAID"), set.find(20));
  EXPECT_EQ(set.find("NO_TEXT_WITH_IT"), nullptr);
  EXPECT_EQ(set.find("ADDED")->id, 40u);
  // The library says the same.
  kp_LOG_LogEntry entry(20, 3);
  for (const known_attribute& attribute : set.find(20)->attributes) {
    kp_AttributeType type = TypeUnknown;
    EXPECT_EQ(entry.CheckAttribute(attribute.name.c_str(), type), 1) << attribute.name;
    EXPECT_EQ(type, attribute.type) << attribute.name;
  }
}

TEST(EventSet, TakesAWholeMessageOfTheFileThatAdds) {
  const ldf_file aux{.entries = {{.id = 20, .msg_id = "SETTLED", .msg_text = "settled"}}};
  const record_events known(standard_file(), aux);
  EXPECT_EQ(known.events().find("SETTLED"), known.events().find(20));
  EXPECT_EQ(known.events().find("PAID"), nullptr);
}

TEST(EventSet, KnowsNoEventByANameThatTwoHave) {
  const ldf_file file{.entries = {{.id = 1, .msg_id = "TWICE"},
                                  {.id = 2, .msg_id = "TWICE"},
                                  {.id = 3, .msg_id = "TWICE"},
                                  {.id = 4},
                                  {.id = 5}}};
  const record_events known(file);
  EXPECT_EQ(known.events().find("TWICE"), nullptr);
  EXPECT_TRUE(known.events().is_ambiguous("TWICE"));
  EXPECT_EQ(known.events().find(2)->name, "TWICE");
  EXPECT_EQ(known.events().find(""), nullptr);
  EXPECT_FALSE(known.events().is_ambiguous(""));
}

TEST(EventSet, SetsTheLibraryUp) {
  const event_set_settings settings;
  temp_folder folder;
  catalog_folder catalog;
  catalog.add_locale("root", {{"PAID", "paid (root)"}});
  catalog.add_locale("de", {{"PAID", "bezahlt von %s%PAYER%"}});
  event_set_options options;
  const ldf_file file{
      .entries = {{.id = 20, .msg_id = "PAID", .attributes = {{"PAYER", TypeChar32}}}}};
  options.definitions = folder.write("std.ldf", file.bytes());
  options.locale = "de_DE";
  options.catalog = catalog.path();
  const event_set set(options);
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "UTF-8");
  EXPECT_STREQ(icu::Locale::getDefault().getName(), "de_DE");
  entry_maker maker(set);
  record_parser parser;
  const std::string line = R"({"event":"PAID","attributes":{"PAYER":"é"}})";
  EXPECT_EQ(entry_message(maker.make(parser.parse(line))).text, "bezahlt von é");
}

TEST(EventSet, FindsACatalogInTheWorkingFolder) {
  const event_set_settings settings;
  temp_folder folder;
  catalog_folder catalog;
  catalog.add_locale("root", {{"PAID", "paid (root)"}});
  const std::filesystem::path path(catalog.path());
  const working_folder here(path.parent_path().string());
  event_set_options options;
  options.definitions = folder.write("std.ldf", standard_file().bytes());
  options.locale = "en";
  options.catalog = path.filename().string();
  EXPECT_EQ(set_error(options), "");
}

TEST(EventSet, ReplacesTheSetBefore) {
  const record_events first(
      {.globals = {{"OLD", TypeBool}}, .entries = {{.id = 9, .msg_id = "OLD"}}});
  const record_events second(standard_file());
  kp_LOG_LogEntry entry(20, 3);
  kp_AttributeType type = TypeUnknown;
  EXPECT_EQ(entry.CheckAttribute("OLD", type), -1);
}

// --- errors

class EventSetError : public testing::Test {
 protected:
  std::string error() const { return set_error(options_); }
  std::string damage() const {
    std::ostringstream shown;
    try {
      const event_set set(options_);
    } catch (const damaged_definitions& error) {
      error.write(shown, diagnostic_format::text, false);
    }
    return shown.str();
  }
  std::string write(const char* name, const std::string& bytes) const {
    return folder_.write(name, bytes);
  }

  event_set_settings settings_;
  temp_folder folder_;
  event_set_options options_;
};

TEST_F(EventSetError, NamesAFileThatIsNotThere) {
  options_.definitions = folder_.file("none.ldf");
  EXPECT_EQ(error(), options_.definitions + ": No such file or directory");
  options_.definitions = write("std.ldf", standard_file().bytes());
  options_.aux = folder_.file("none.ldf");
  EXPECT_EQ(error(), options_.aux + ": No such file or directory");
}

TEST_F(EventSetError, ShowsWhereAFileIsDamaged) {
  const std::string bytes = standard_file().bytes();
  options_.definitions = write("std.ldf", bytes.substr(0, bytes.size() - 1));
  EXPECT_THAT(damage(),
              AllOf(StartsWith(options_.definitions + ":0x"), HasSubstr("error[file-short]")));
  options_.definitions = write("events.yaml", "kplog: 1\n");
  EXPECT_THAT(
      damage(),
      HasSubstr(":0x0: error[file-magic]: this is a source, and a compiled file is expected: "
                "kplog compile makes it"));
}

TEST_F(EventSetError, SaysWhyTheLibraryRefusesAFile) {
  options_.definitions = write("std.ldf", standard_file().bytes());
  options_.aux = write(
      "aux.ldf", ldf_file{.entries = {{.id = 20, .attributes = {{"PAYER", TypeChar32}}}}}.bytes());
  EXPECT_EQ(error(),
            options_.aux + ": <KPX_logging_invalid_definition> attribute PAYER already exist.");
}

TEST_F(EventSetError, NamesALocaleThatIsNone) {
  options_.definitions = write("std.ldf", standard_file().bytes());
  options_.locale = "../de";
  EXPECT_EQ(error(), "the locale \"../de\": invalid argument");
}

TEST_F(EventSetError, NamesACatalogThatCannotBeOpened) {
  options_.definitions = write("std.ldf", standard_file().bytes());
  options_.catalog = folder_.file("none");
  EXPECT_EQ(error().rfind(options_.catalog + ": ", 0), 0u) << error();
}

TEST_F(EventSetError, NamesAnEventWhoseTimeCannotBeKept) {
  const ldf_file file{.globals = {{"DAYLIGHT_SAVING_ACTIVE", TypeBool}},
                      .entries = {{.id = 5, .attributes = {{"TIMEZONE_DIFFERENCE", TypeUInt1}}}}};
  options_.definitions = write("std.ldf", file.bytes());
  EXPECT_EQ(error(), options_.definitions +
                         ": the event 5 declares TIMEZONE_DIFFERENCE as a UInt1; records need a "
                         "SInt2 there for their time");
}
