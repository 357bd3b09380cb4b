#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "base/kp_i18n.h"
#include "tests/support/temp_folder.h"

// Puts ICU's default locale back.
class default_locale_guard {
 public:
  default_locale_guard() : before_(kp_I18N_get_locale()) {}
  ~default_locale_guard() { kp_I18N_set_locale(before_); }

 private:
  kp_Locale before_;
};

static std::string current() {
  return kp_I18N_get_locale().get_name();
}

TEST(Locale, SettingMakesItIcusDefaultAndReadsBack) {
  const default_locale_guard guard;
  EXPECT_TRUE(kp_I18N_set_locale("de_DE"));
  EXPECT_EQ(current(), "de_DE");
  EXPECT_STREQ(icu::Locale::getDefault().getName(), "de_DE");
}

TEST(Locale, OtherSpellingsAreMadeCanonical) {
  const default_locale_guard guard;
  EXPECT_TRUE(kp_I18N_set_locale("ja-jp"));
  EXPECT_EQ(current(), "ja_JP");
  EXPECT_TRUE(kp_I18N_set_locale("de_DE.UTF-8"));
  EXPECT_EQ(current(), "de_DE");
  EXPECT_TRUE(kp_I18N_set_locale("de_DE@collation=phonebook"));
  EXPECT_EQ(current(), "de_DE@collation=phonebook");
}

TEST(Locale, ModifiersAreScriptsAndVariants) {
  const default_locale_guard guard;
  for (const auto& [given, icu] :
       std::vector<std::pair<const char*, const char*>>{{"sr_RS@latin", "sr_Latn_RS"},
                                                        {"sr@latin", "sr_Latn"},
                                                        {"uz_UZ@cyrillic", "uz_Cyrl_UZ"},
                                                        {"uz_UZ.UTF-8@cyrillic", "uz_Cyrl_UZ"},
                                                        {"sd_IN@devanagari", "sd_Deva_IN"},
                                                        {"sr_RS_LATIN", "sr_Latn_RS"},
                                                        {"de_DE@euro", "de_DE"},
                                                        {"ca@valencia", "ca_ES_VALENCIA"},
                                                        {"ca_ES@valencia", "ca_ES_VALENCIA"},
                                                        {"de_1996", "de_DE_1996"},
                                                        {"en_US_POSIX", "en_US_POSIX"},
                                                        {"de_DE@", "de_DE"},
                                                        {"zh_Hant_TW", "zh_Hant_TW"}}) {
    ASSERT_TRUE(kp_I18N_set_locale(given)) << given;
    EXPECT_EQ(current(), icu) << given;
    EXPECT_STREQ(kp_I18N_canonical_locale(given).get_name(), icu) << given;
    EXPECT_STREQ(kp_I18N_canonical_locale(icu).get_name(), icu) << "the canonical name is its own";
  }
}

TEST(Locale, EmptyNameIsTheEnvironmentsLocale) {
  const default_locale_guard guard;
  ASSERT_TRUE(kp_I18N_set_locale(""));
  const std::string environment = current();
  ASSERT_TRUE(kp_I18N_set_locale("sw_KE"));
  EXPECT_TRUE(kp_I18N_set_locale(static_cast<const char*>(nullptr)));
  EXPECT_EQ(current(), environment);
}

TEST(Locale, UsableNamesAreWhatSettingMakesTheDefault) {
  const default_locale_guard guard;
  for (const char* name : {"", "de_DE.UTF-8", "sr_RS@latin", "C", "de@collation=phonebook"}) {
    ASSERT_TRUE(kp_I18N_set_locale(name));
    EXPECT_STREQ(kp_I18N_usable_locale(name).get_name(), current().c_str()) << name;
  }
  for (const char* name : {"../etc", "de..DE", "de DE"})
    EXPECT_STREQ(kp_I18N_usable_locale(name).get_name(), "") << name;
}

// In the order in which ICU asks for them, when the process has set no locale of the C library's.
TEST(Locale, TheEnvironmentsIsThatOfTheFirstVariable) {
  const environment_value none[] = {
      {"LC_ALL", nullptr}, {"LC_MESSAGES", nullptr}, {"LANG", nullptr}};
  EXPECT_STREQ(kp_I18N_usable_locale("").get_name(), "en_US_POSIX");
  const environment_value lang("LANG", "de_DE.UTF-8");
  EXPECT_STREQ(kp_I18N_usable_locale("").get_name(), "de_DE");
  const environment_value messages("LC_MESSAGES", "fr_FR");
  EXPECT_STREQ(kp_I18N_usable_locale("").get_name(), "fr_FR");
  const environment_value all("LC_ALL", "C.UTF-8");
  EXPECT_STREQ(kp_I18N_usable_locale("").get_name(), "en_US_POSIX");
}

TEST(Locale, NameThatCouldBeAPathIsRefused) {
  const default_locale_guard guard;
  ASSERT_TRUE(kp_I18N_set_locale("fr"));
  for (const char* name : {"../etc", "..", "de..DE", "/tmp/de", "de/DE", "de\\DE", "de DE", "de\n"})
    EXPECT_FALSE(kp_I18N_set_locale(name)) << name;
  EXPECT_EQ(current(), "fr");
}

TEST(Locale, EveryByteOutsideTheListIsRefused) {
  const default_locale_guard guard;
  const std::string allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@=;.-";
  ASSERT_TRUE(kp_I18N_set_locale("fr"));
  for (int byte = 1; byte < 256; ++byte) {
    const std::string name = std::string("d") + static_cast<char>(byte);
    if (allowed.find(name[1]) != std::string::npos) continue;
    EXPECT_FALSE(kp_I18N_set_locale(name.c_str())) << byte;
  }
  EXPECT_EQ(current(), "fr");
}

TEST(Locale, NameThatIcuRefusesChangesNothing) {
  const default_locale_guard guard;
  ASSERT_TRUE(kp_I18N_set_locale("fr"));
  EXPECT_FALSE(kp_I18N_set_locale(std::string(200, 'a').c_str()));
  EXPECT_EQ(current(), "fr");
}

TEST(Locale, NamesAreComparedAsGiven) {
  EXPECT_EQ(kp_Locale("de_DE"), kp_Locale("de_DE"));
  EXPECT_NE(kp_Locale("de_DE"), kp_Locale("de-DE"));
  EXPECT_EQ(kp_Locale(), kp_Locale(""));
  EXPECT_STREQ(kp_Locale().get_name(), "");
}

TEST(Locale, TheNamesOfSetlocaleStandForThePlainLocale) {
  const default_locale_guard guard;
  for (const char* name : {"C", "POSIX", "C.UTF-8", "C.utf8", "POSIX.UTF-8", "C@x"}) {
    ASSERT_TRUE(kp_I18N_set_locale(kp_Locale(name)));
    EXPECT_STREQ(kp_I18N_get_locale().get_name(), "en_US_POSIX") << name;
  }
}
