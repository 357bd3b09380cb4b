#include <gmock/gmock.h>

#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "kp_LOG_LogEntry.h"
#include "logging/logmsg_catalog_path.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/failing.h"
#include "tests/support/icu_setting.h"
#include "tests/support/message_entry.h"
#include "tests/support/raised.h"

using testing::ElementsAre;
using testing::IsEmpty;

static const char* const no_table =
    "< KPX_logging_missing_resource> Unable to access the string table resource.";
static const char* const no_string =
    "<KPX_logging_missing_resource> Unable to retrieve the string from the string table.";
static const char* const no_index =
    "<KPX_logging_invalid_message_string> Invalid selector message index specified.";

static std::string text_of(const char* id) {
  std::string utf8;
  _kp_LOG_log_message::_get_string(id).toUTF8String(utf8);
  return utf8;
}

using message_texts = std::map<std::string, std::string>;

// An installed catalog with these templates in its root locale, closed at the end of the scope.
class open_catalog {
 public:
  explicit open_catalog(const message_texts& templates) {
    folder_.add_locale("root", templates);
    _kp_LOG_log_message::set_resource_path(folder_.path().c_str());
  }
  open_catalog(const open_catalog&) = delete;
  open_catalog& operator=(const open_catalog&) = delete;
  ~open_catalog() { _kp_LOG_log_message::set_resource_path(nullptr); }
  std::string path() const { return folder_.path(); }

 private:
  catalog_folder folder_;
};

// --- Opening and closing ------------------------------------------------------------------------

TEST(MessageCatalog, ThereIsNoneAtFirst) {
  EXPECT_FALSE(_kp_LOG_log_message::has_catalog());
  EXPECT_STREQ(_kp_LOG_log_message::get_resource_path(), "");
}

// What ICU shows of a catalog of one text, as it is at the path now.
static std::string text_at(const std::string& path) {
  _kp_LOG_log_message::set_resource_path(path.c_str());
  return text_of("M1");
}

TEST(MessageCatalog, OneThatWasMissingIsHadOnceItIsThere) {
  const settings_guard settings;
  const temp_folder parent;
  const std::string path = parent.file("messages");
  EXPECT_THROW(text_at(path), KPX_logging_missing_resource);
  EXPECT_THROW(text_at(path), KPX_logging_missing_resource);
  catalog_folder made;
  made.add_locale("root", {{"M1", "one"}});
  std::filesystem::rename(made.path(), path);
  EXPECT_EQ(text_at(path), "one");
  EXPECT_STREQ(_kp_LOG_log_message::get_resource_path(), path.c_str());
  std::filesystem::remove_all(path);
  EXPECT_THROW(text_at(path), KPX_logging_missing_resource);
}

TEST(MessageCatalog, OneWhoseFilesAreReplacedIsHadAsItIsNow) {
  const settings_guard settings;
  catalog_folder folder;
  catalog_folder other;
  const std::string file = folder.path() + "/root.res", others_file = other.path() + "/root.res";
  for (const char* text : {"one", "two", "six"}) {
    folder.add_locale("root", {{"M1", text}});  // written in place
    EXPECT_EQ(text_at(folder.path()), text);
  }
  for (const char* text : {"ten", "one", "two"}) {
    other.add_locale("root", {{"M1", text}});
    std::filesystem::rename(others_file, file);
    EXPECT_EQ(text_at(folder.path()), text);
  }
}

TEST(MessageCatalog, OneWhoseFolderIsReplacedIsHadAsItIsNow) {
  const settings_guard settings;
  const temp_folder parent;
  const std::string path = parent.file("messages");
  for (const char* text : {"one", "two", "six"}) {
    catalog_folder made;
    made.add_locale("root", {{"M1", text}});
    std::filesystem::remove_all(path);
    std::filesystem::rename(made.path(), path);
    EXPECT_EQ(text_at(path), text);
    EXPECT_EQ(text_at(path + "/"), text);
  }
}

TEST(MessageCatalog, OneBehindALinkIsTheOneThatItLeadsToNow) {
  const settings_guard settings;
  const temp_folder parent;
  const std::string link = parent.file("current");
  catalog_folder first, second;
  first.add_locale("root", {{"M1", "one"}});
  second.add_locale("root", {{"M1", "two"}});
  for (const catalog_folder* target : {&first, &second, &first}) {
    std::filesystem::remove(link);
    std::filesystem::create_symlink(target->path(), link);
    EXPECT_EQ(text_at(link), target == &first ? "one" : "two");
  }
}

TEST(MessageCatalog, OneByARelativePathIsTheOneOfTheWorkingFolder) {
  const settings_guard settings;
  const temp_folder first, second;
  for (const auto& [folder, text] : {std::pair(&first, "one"), std::pair(&second, "two")}) {
    catalog_folder made;
    made.add_locale("root", {{"M1", text}});
    std::filesystem::create_directory(folder->file("a"));
    std::filesystem::rename(made.path(), folder->file("a/messages"));
  }
  for (const auto& [folder, text] :
       {std::pair(&first, "one"), std::pair(&second, "two"), std::pair(&first, "one")}) {
    const working_folder here(folder->path());
    EXPECT_EQ(text_at("./a/messages"), text);
    EXPECT_EQ(text_at("a/messages"), text);
  }
}

TEST(MessageCatalog, PathsWithOneSlashOrNoneLeadToFoldersOfTheWorkingFolder) {
  const settings_guard settings;
  catalog_folder made;
  made.add_locale("root", {{"M1", "one"}});
  const temp_folder here;
  const working_folder inside(here.path());
  std::filesystem::create_directories("build/lib-72");
  for (const char* path :
       {"messages", "messages/", "build/messages", "build/lib-72/messages", "a-b"}) {
    std::filesystem::copy(made.path(), path);
    EXPECT_EQ(text_at(path), "one") << path;
    EXPECT_STREQ(_kp_LOG_log_message::get_resource_path(), path);
    std::filesystem::remove_all(path);
  }
}

TEST(MessageCatalog, ALocaleThatWasAddedIsFound) {
  const settings_guard settings;
  const icu_locale_setting locale("de_DE");
  catalog_folder folder;
  folder.add_locale("root", {{"M1", "one"}});
  EXPECT_EQ(text_at(folder.path()), "one");
  folder.add_locale("de", {{"M1", "eins"}});
  EXPECT_EQ(text_at(folder.path()), "eins");
}

TEST(MessageCatalog, ThatHasNotChangedIsAskedForUnderOneName) {
  const std::string old = "/usr/include", missing = "/no-such-folder/messages";
  EXPECT_EQ(logmsg_catalog_path_for_icu(old.c_str()), logmsg_catalog_path_for_icu(old.c_str()));
  EXPECT_EQ(logmsg_catalog_path_for_icu(missing.c_str()),
            logmsg_catalog_path_for_icu(missing.c_str()));
  EXPECT_EQ(logmsg_catalog_path_for_icu("package"), "package");
}

TEST(MessageCatalog, ThatMayHaveChangedIsAskedForUnderAnother) {
  const temp_folder folder;
  const std::string path = folder.path();
  std::set<std::string> names;
  for (int i = 0; i < 20; ++i) names.insert(logmsg_catalog_path_for_icu(path.c_str()));
  EXPECT_EQ(names.size(), 20U);
  // However the caller spells it.
  for (const std::string& name : std::set<std::string>(names)) {
    EXPECT_TRUE(std::filesystem::equivalent(name, path)) << name;
    names.insert(logmsg_catalog_path_for_icu(name.c_str()));
  }
  EXPECT_EQ(names.size(), 40U);
}

// What comes of opening `path` with the n-th of ICU's allocations failing, and reading from it
// then.
static fault_outcome opening_without_memory(const std::string& path, unsigned n) {
  bool met = false;
  try {
    const failing_icu fault(n);
    _kp_LOG_log_message::set_resource_path(path.c_str());
    met = fault.met();
  } catch (const kp_EXCEPTION_base&) {
    return fault_outcome::sound;
  }
  if (!met) return fault_outcome::none_left;
  try {
    return text_of("M1") == "one" ? fault_outcome::sound : fault_outcome::unsound;
  } catch (const kp_EXCEPTION_base&) {
    return fault_outcome::unsound;
  }
}

TEST(MessageCatalog, OneThatOpensWithoutMemoryForSomePartIsWholeWhenItIsRead) {
  const icu_locale_setting locale("en_US");
  catalog_folder folder;
  folder.add_locale("root", {{"M1", "one"}});
  const std::string path = folder.path();
  fault_outcome outcome = fault_outcome::sound;
  unsigned n = 1;
  for (; outcome != fault_outcome::none_left; ++n) {
    outcome = in_a_child([&] { return opening_without_memory(path, n); });
    ASSERT_NE(outcome, fault_outcome::unsound) << "allocation " << n;
  }
  EXPECT_GT(n, 5U);
}

TEST(MessageCatalog, ClosingNothingWritesOneDebugLine) {
  const settings_guard settings;
  const debug_log_in_temp_folder log;
  _kp_LOG_log_message::set_resource_path(nullptr);
  EXPECT_STREQ(_kp_LOG_log_message::get_resource_path(), "");
  EXPECT_FALSE(_kp_LOG_log_message::has_catalog());
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logmsg:N _kp_LOG_log_message::set_resource_path set "
                          "resource_path=\"\"!"));
}

TEST(MessageCatalog, TheLineAboutClosingIsOfLevelTwo) {
  const settings_guard settings;
  const debug_log_in_temp_folder log(1);
  _kp_LOG_log_message::set_resource_path(nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(MessageCatalog, TextsAreFoundById) {
  const open_catalog catalog(message_texts{{"M1", "one"}, {"M2", "zwei Größen"}});
  EXPECT_TRUE(_kp_LOG_log_message::has_catalog());
  EXPECT_EQ(_kp_LOG_log_message::get_resource_path(), catalog.path());
  EXPECT_EQ(text_of("M1"), "one");
  EXPECT_EQ(text_of("M2"), "zwei Größen");
}

TEST(MessageCatalog, OpeningWritesNoDebugLine) {
  const settings_guard settings;
  const debug_log_in_temp_folder log;
  const open_catalog catalog(message_texts{{"M1", "one"}});
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(MessageCatalog, AnUnknownIdIsAMissingResource) {
  const open_catalog catalog(message_texts{{"M1", "one"}});
  EXPECT_EQ(raised<KPX_logging_missing_resource>([] { text_of("M2"); }), no_string);
}

TEST(MessageCatalog, ABundleWithoutTheTableIsAMissingResource) {
  catalog_folder folder;
  folder.add_source("root", "root { OTHER_TABLE { M1 { \"one\" } } }");
  _kp_LOG_log_message::set_resource_path(folder.path().c_str());
  EXPECT_EQ(raised<KPX_logging_missing_resource>([] { text_of("M1"); }), no_table);
  _kp_LOG_log_message::set_resource_path(nullptr);
}

TEST(MessageCatalog, AnEntryThatIsNoStringIsAMissingResource) {
  catalog_folder folder;
  folder.add_source("root", "root { STRING_TABLE { M1:int { 7 } } }");
  _kp_LOG_log_message::set_resource_path(folder.path().c_str());
  EXPECT_EQ(raised<KPX_logging_missing_resource>([] { text_of("M1"); }), no_string);
  _kp_LOG_log_message::set_resource_path(nullptr);
}

TEST(MessageCatalog, TheLocaleIsThatOfTheCall) {
  const icu_locale_setting german("de_DE");
  catalog_folder folder;
  folder.add_locale("root", {{"M1", "one"}});
  folder.add_locale("de", {{"M1", "eins"}});
  folder.add_locale("ja", {{"M1", "一"}});
  _kp_LOG_log_message::set_resource_path(folder.path().c_str());
  EXPECT_EQ(text_of("M1"), "eins");
  const icu_locale_setting japanese("ja_JP");
  EXPECT_EQ(text_of("M1"), "eins");
  _kp_LOG_log_message::set_resource_path(folder.path().c_str());
  EXPECT_EQ(text_of("M1"), "一");
  _kp_LOG_log_message::set_resource_path(nullptr);
}

TEST(MessageCatalog, OpeningItsOwnPathAgainWorks) {
  const open_catalog catalog(message_texts{{"M1", "one"}});
  _kp_LOG_log_message::set_resource_path(_kp_LOG_log_message::get_resource_path());
  EXPECT_EQ(_kp_LOG_log_message::get_resource_path(), catalog.path());
  EXPECT_EQ(text_of("M1"), "one");
}

TEST(MessageCatalog, ATextOutlivesTheCatalogItCameFrom) {
  icu::UnicodeString text;
  {
    const open_catalog catalog(
        message_texts{{"M1", "a text that is longer than any text kept inside"}});
    text = _kp_LOG_log_message::_get_string("M1");
  }
  const open_catalog other(message_texts{{"M1", "two"}});
  EXPECT_EQ(text, icu::UnicodeString("a text that is longer than any text kept inside"));
}

// --- A catalog that cannot be opened ------------------------------------------------------------

static std::string not_located(const std::string& path) {
  return "<KPX_logging_missing_resource> Unable to locate resource bundle \"" + path + "\".";
}

TEST(MessageCatalog, AMissingCatalogIsReportedAndStaysInstalled) {
  const settings_guard settings;
  const debug_log_in_temp_folder log(1);
  const std::string path = log.folder().file("nowhere");
  EXPECT_EQ(raised<KPX_logging_missing_resource>(
                [&] { _kp_LOG_log_message::set_resource_path(path.c_str()); }),
            not_located(path));
  EXPECT_THAT(log.lines(), ElementsAre("logging/logmsg:N _kp_LOG_log_message::set_resource_path "
                                       "Unable to locate resource bundle " +
                                       path + "!"));
  EXPECT_EQ(_kp_LOG_log_message::get_resource_path(), path);
  EXPECT_TRUE(_kp_LOG_log_message::has_catalog());
  EXPECT_EQ(raised<KPX_logging_missing_resource>([] { text_of("M1"); }), no_table);
}

TEST(MessageCatalog, AFailedCatalogReplacesAGoodOne) {
  const open_catalog catalog(message_texts{{"M1", "one"}});
  EXPECT_EQ(raised<KPX_logging_missing_resource>(
                [] { _kp_LOG_log_message::set_resource_path("./nowhere"); }),
            not_located("./nowhere"));
  EXPECT_EQ(raised<KPX_logging_missing_resource>([] { text_of("M1"); }), no_table);
}

TEST(MessageCatalog, AnEmptyPathIsAMissingCatalog) {
  const settings_guard settings;
  EXPECT_EQ(
      raised<KPX_logging_missing_resource>([] { _kp_LOG_log_message::set_resource_path(""); }),
      not_located(""));
}

TEST(MessageCatalog, DamagedBundlesAreMissingOnes) {
  const settings_guard settings;
  const temp_folder folder;
  folder.write("root.res", std::string(100, '\xa5'));
  EXPECT_EQ(raised<KPX_logging_missing_resource>(
                [&] { _kp_LOG_log_message::set_resource_path(folder.path().c_str()); }),
            not_located(folder.path()));
}

TEST(MessageCatalog, ACatalogThatIcuRefusesForAnotherReasonIsInaccessible) {
  const debug_log_in_temp_folder log(1);
  const icu_locale_setting too_long(("en_US_" + std::string(200, 'X')).c_str());
  EXPECT_EQ(raised<KPX_logging_missing_resource>(
                [] { _kp_LOG_log_message::set_resource_path("/some/catalog"); }),
            "<KPX_logging_missing_resource> Unable to access resource bundle \"/some/catalog\".");
  EXPECT_THAT(log.lines(), ElementsAre("logging/logmsg:N _kp_LOG_log_message::set_resource_path "
                                       "Unable to access resource bundle /some/catalog!"));
  EXPECT_STREQ(_kp_LOG_log_message::get_resource_path(), "/some/catalog");
  EXPECT_EQ(raised<KPX_logging_missing_resource>([] { text_of("M1"); }), no_table);
  _kp_LOG_log_message::set_resource_path(nullptr);
}

TEST(MessageCatalog, RenderingWithAFailedCatalogNamesTheStringTable) {
  const message_entry entry("text");
  EXPECT_EQ(raised<KPX_logging_missing_resource>(
                [] { _kp_LOG_log_message::set_resource_path("./nowhere"); }),
            not_located("./nowhere"));
  EXPECT_EQ(raised<KPX_logging_missing_resource>([&] { entry.unicode(); }), no_table);
}

// --- The choice of the message ------------------------------------------------------------------

// Messages by index and by value, over the attribute SELECT of that type.
static ldf_entry with_selector(unsigned type) {
  return {.id = 17,
          .msg_id = "M17",
          .msg_text = "default%s%TEXT%",
          .selector = "SELECT",
          .attributes = {{"SELECT", type}, {"TEXT", TypeChar32}},
          .messages = {{1, 7, "M7", "seven%s%TEXT%"},
                       {2, 8, "M8", ""},
                       {3, 7, "M9", "second seven%s%TEXT%"},
                       {4, 9, "", "nine%s%TEXT%"}}};
}

TEST(TemplateChoice, TheDefaultMessageOnRequestWhateverTheIndex) {
  const message_entry entry(with_selector(TypeUInt4));
  EXPECT_EQ(entry.bytes(true, 0), "default");
  EXPECT_EQ(entry.bytes(true, 1), "default");
  EXPECT_EQ(entry.bytes(true, 99), "default");
}

TEST(TemplateChoice, AnIndexNamesASelectorMessage) {
  const message_entry entry(with_selector(TypeUInt4));
  EXPECT_EQ(entry.bytes(false, 1), "seven");
  EXPECT_EQ(entry.bytes(false, 3), "second seven");
}

TEST(TemplateChoice, AnIndexWithoutAMessageIsRefused) {
  const message_entry entry(with_selector(TypeUInt4));
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>([&] { entry.bytes(false, 5); }), no_index);
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>([&] { entry.unicode(false, 5); }), no_index);
}

TEST(TemplateChoice, WithoutAValueTheDefaultMessage) {
  EXPECT_EQ(message_entry(with_selector(TypeUInt4)).bytes(), "default");
}

TEST(TemplateChoice, WithoutASelectorAttributeTheDefaultMessage) {
  ldf_entry definition = with_selector(TypeUInt4);
  definition.selector = "";
  message_entry entry(definition);
  entry->add_attrib_4u("SELECT", 7);
  EXPECT_EQ(entry.bytes(), "default");
}

TEST(TemplateChoice, TheFirstMessageWithTheValueOfEachUnsignedType) {
  message_entry one(with_selector(TypeUInt1));
  one->add_attrib_1u("SELECT", 7);
  EXPECT_EQ(one.bytes(), "seven");
  one.use(with_selector(TypeUInt2));
  one->add_attrib_2u("SELECT", 7);
  EXPECT_EQ(one.bytes(), "seven");
  one.use(with_selector(TypeUInt4));
  one->add_attrib_4u("SELECT", 7);
  EXPECT_EQ(one.bytes(), "seven");
}

TEST(TemplateChoice, AValueWithoutAMessageTakesTheDefaultMessage) {
  message_entry entry(with_selector(TypeUInt1));
  entry->add_attrib_1u("SELECT", 200);
  EXPECT_EQ(entry.bytes(), "default");
}

TEST(TemplateChoice, ASelectorOfAnotherTypeIsReadAsAnUnsignedIntegerAndRefused) {
  message_entry entry(with_selector(TypeSInt4));
  entry->add_attrib_4("SELECT", 7);
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>([&] { entry.bytes(); }),
            "Use the wrong get method under Entry ID 17 !");
}

TEST(TemplateChoice, AMessageWithoutATextFallsBackToTheDefaultText) {
  message_entry entry(with_selector(TypeUInt4));
  entry->add_attrib_4u("SELECT", 8);
  EXPECT_EQ(entry.bytes(), "default");
}

TEST(TemplateChoice, BothRenderersChooseTheSameText) {
  message_entry entry(with_selector(TypeUInt4));
  entry->add_attrib_4u("SELECT", 7);
  entry->add_attrib_str("TEXT", "!", true);
  EXPECT_EQ(entry.unicode(), "seven!");
  EXPECT_EQ(entry.unicode(true), "default!");
  EXPECT_EQ(entry.bytes(), "seven!");
}

TEST(TemplateChoice, ADefinitionWithoutADefaultTextGivesAnEmptyMessage) {
  const message_entry entry("");
  EXPECT_EQ(entry.bytes(), "");
  EXPECT_EQ(entry.unicode(), "");
}

TEST(TemplateChoice, ADefinitionThatNeverGotATextGivesAnEmptyTemplate) {
  const _kp_LOG_log_entry_imp entry;
  const _kp_LOG_log_definition definition;
  EXPECT_FALSE(
      _kp_LOG_log_message::_get_message_kpString(entry, &definition, true, 0).has_buffer());
  EXPECT_TRUE(_kp_LOG_log_message::get_message(entry, &definition, true, 0).isEmpty());
}

// --- The choice through a catalog ---------------------------------------------------------------

static std::map<std::string, std::string> catalog_texts() {
  return {{"M17", "catalog default%s%TEXT%"},
          {"M7", "catalog seven%s%TEXT%"},
          {"M8", "catalog eight%s%TEXT%"}};
}

TEST(CatalogChoice, TheMessageIdOfTheChosenMessage) {
  message_entry entry(with_selector(TypeUInt4));
  const open_catalog catalog(catalog_texts());
  entry->add_attrib_4u("SELECT", 7);
  EXPECT_EQ(entry.unicode(), "catalog seven");
  EXPECT_EQ(entry.unicode(true), "catalog default");
  EXPECT_EQ(entry.unicode(false, 2), "catalog eight");
}

TEST(CatalogChoice, TheByteRendererNeverLooksIntoTheCatalog) {
  const message_entry entry(with_selector(TypeUInt4));
  const open_catalog catalog(catalog_texts());
  EXPECT_EQ(entry.bytes(false, 1), "seven");
}

TEST(CatalogChoice, AMessageWithoutAnIdFallsBackToTheDefaultId) {
  const message_entry entry(with_selector(TypeUInt4));
  const open_catalog catalog(catalog_texts());
  EXPECT_EQ(entry.unicode(false, 4), "catalog default");
}

TEST(CatalogChoice, AnIdThatTheCatalogLacksIsAMissingResource) {
  const message_entry entry(with_selector(TypeUInt4));
  const open_catalog catalog(catalog_texts());
  EXPECT_EQ(raised<KPX_logging_missing_resource>([&] { entry.unicode(false, 3); }), no_string);
}

TEST(CatalogChoice, WithoutAnyIdTheDefinitionIsInvalid) {
  const _kp_LOG_log_entry_imp entry;
  const _kp_LOG_log_definition definition;
  const open_catalog catalog(catalog_texts());
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { _kp_LOG_log_message::get_message(entry, &definition, true, 0); }),
            "<KPX_logging_invalid_definition>  no default message");
}

TEST(CatalogChoice, WithoutAnyIdAChosenMessageIsInvalidAsWell) {
  const _kp_LOG_log_entry_imp entry;
  _kp_LOG_log_definition definition;
  definition.add_selector_msg(1, 7, nullptr, "seven%s%TEXT%");
  const open_catalog catalog(catalog_texts());
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { _kp_LOG_log_message::get_message(entry, &definition, false, 1); }),
            "<KPX_logging_invalid_definition>  no default message");
}

TEST(CatalogChoice, ATemplateOfTheCatalogIsUnicode) {
  const message_entry entry(with_selector(TypeUInt4));
  const open_catalog catalog(message_texts{{"M17", "起動しました %s%TEXT%"}});
  EXPECT_EQ(entry.unicode(), "起動しました ");
}

TEST(CatalogChoice, ClosingTheCatalogBringsTheTextsOfTheDefinitionBack) {
  const message_entry entry(with_selector(TypeUInt4));
  {
    const open_catalog catalog(catalog_texts());
    EXPECT_EQ(entry.unicode(), "catalog default");
  }
  EXPECT_EQ(entry.unicode(), "default");
}
