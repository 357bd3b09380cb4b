// What the library renders from catalogs that "kplog catalog build" made.
#include <gtest/gtest.h>

#include "kp_LOG.h"
#include "logging/logentry_i.h"
#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

class CatalogBundle : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("s.yaml", read_whole_file(test_data_folder() + "/catalog_shop.yaml"));
    ASSERT_EQ(run_kplog(folder_.path(), "compile s.yaml -o s.ldf").status, 0);
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    kp_LOG_LogConfig::SetDefinitionPath(folder_.file("s.ldf").c_str());
  }

  void add_po(const std::string& locale, const std::string& messages) {
    folder_.write(locale + ".po",
                  "msgid \"\"\nmsgstr \"Language: " + locale + "\\n\"\n" + messages);
    po_options_ += " --po " + locale + ".po";
  }

  // Builds the catalogs, and opens them for the locale.
  void open(const char* locale) {
    const auto run =
        run_kplog(folder_.path(), "catalog build s.yaml" + po_options_ + " -o messages");
    ASSERT_EQ(run.status, 0) << run.err;
    kp_LOG_LogConfig::SetLocale(locale);
    kp_LOG_LogConfig::SetMessageCatalogPath(folder_.file("messages").c_str());
  }

  static std::string host_down() {
    kp_LOG_LogEntry entry(2, 1);
    entry.AddAttribStr("HOST", "zeus");
    return kp_LOG_RenderMessage(entry);
  }

  static std::string host_down(unsigned char kind) {
    kp_LOG_LogEntry entry(2, 1);
    entry.AddAttribStr("HOST", "zeus");
    entry.AddAttrib1u("KIND", kind);
    return kp_LOG_RenderMessage(entry);
  }

 private:
  settings_guard guard_;
  temp_folder folder_;
  std::string po_options_;
};

static const std::string host_down_message =
    "\nmsgctxt \"HOST_DOWN\"\nmsgid \"It's {HOST}: 100% {{down}}\"\n";

TEST_F(CatalogBundle, TranslationRendersAsItIsWritten) {
  add_po("de", host_down_message + "msgstr \"{{l'{HOST}'}} ist \\\"aus\\\": 100%\\nganz\\\\\"\n");
  open("de_DE");
  EXPECT_EQ(host_down(), "{l'zeus'} ist \"aus\": 100%\nganz\\");
}

TEST_F(CatalogBundle, MissingFuzzyAndChangedTranslationsFallBackToTheSource) {
  add_po("de", "#, fuzzy" + host_down_message + "msgstr \"{HOST} aus\"\n" +
                   "\nmsgctxt \"HOST_DOWN.2\"\nmsgid \"was %d%KIND%\"\nmsgstr \"war %d%KIND%\"\n");
  open("de");
  EXPECT_EQ(host_down(), "It's zeus: 100% {down}");
  EXPECT_EQ(host_down(2), "not so 2");
  EXPECT_EQ(host_down(3), "Two lines\nof 3");
}

TEST_F(CatalogBundle, RegionFallsBackToItsLanguageMessageByMessage) {
  add_po("de",
         host_down_message + "msgstr \"{HOST} ist aus\"\n" +
             "\nmsgctxt \"HOST_DOWN.2\"\nmsgid \"not so %d%KIND%\"\nmsgstr \"nicht %d%KIND%\"\n");
  add_po("de_AT", host_down_message + "msgstr \"{HOST} ist hin\"\n");
  open("de_AT");
  EXPECT_EQ(host_down(), "zeus ist hin");
  EXPECT_EQ(host_down(2), "nicht 2");
  EXPECT_EQ(host_down(3), "Two lines\nof 3");
  open("de_CH");
  EXPECT_EQ(host_down(), "zeus ist aus");
}

TEST_F(CatalogBundle, LocalesOfModifiersAreThoseOfIcu) {
  add_po("sr", host_down_message + "msgstr \"{HOST} не ради\"\n");
  add_po("sr@latin",
         "\nmsgctxt \"HOST_DOWN.2\"\nmsgid \"not so %d%KIND%\"\nmsgstr \"ne tako %d%KIND%\"\n");
  add_po("ca@valencia", host_down_message + "msgstr \"{HOST} està aturat\"\n");
  add_po("de.UTF-8", host_down_message + "msgstr \"{HOST} ist aus\"\n");
  for (const char* latin : {"sr_Latn_RS", "sr_RS@latin", "sr_RS.UTF-8@latin", "sr@latin"}) {
    open(latin);
    EXPECT_EQ(host_down(2), "ne tako 2") << latin;
    EXPECT_EQ(host_down(), "It's zeus: 100% {down}") << latin << " is not in another script";
  }
  open("sr_RS");
  EXPECT_EQ(host_down(), "zeus не ради");
  for (const char* valencian : {"ca_ES@valencia", "ca@valencia"}) {
    open(valencian);
    EXPECT_EQ(host_down(), "zeus està aturat") << valencian;
  }
  open("de_DE.UTF-8");
  EXPECT_EQ(host_down(), "zeus ist aus");
}

TEST_F(CatalogBundle, OtherLocalesSeeTheSourceTexts) {
  add_po("de", host_down_message + "msgstr \"{HOST} ist aus\"\n");
  open("fr");
  EXPECT_EQ(host_down(), "It's zeus: 100% {down}");
}

TEST_F(CatalogBundle, MessageWithoutASourceTextTakesItsTranslationOrElseTheDefaultText) {
  add_po("de", "\nmsgctxt \"PLANNED\"\nmsgid \"\"\nmsgstr \"geplant: {HOST}\"\n");
  open("de");
  EXPECT_EQ(host_down(1), "geplant: zeus");
  open("ja");
  EXPECT_EQ(host_down(1), "It's zeus: 100% {down}");
}

TEST_F(CatalogBundle, EventWithoutAMessageRendersAsNothing) {
  add_po("de", "");
  open("de");
  const kp_LOG_LogEntry entry(3, 1);
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "");
}
