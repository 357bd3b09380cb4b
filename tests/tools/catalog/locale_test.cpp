// What ICU calls the locales that translators' tools name.
#include "tools/catalog/locale.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CatalogLocale, NamesBecomeIcus) {
  for (const auto& [given, icu] :
       std::vector<std::pair<const char*, const char*>>{{"de", "de"},
                                                        {"de_AT", "de_AT"},
                                                        {"pt-BR", "pt_BR"},
                                                        {"DE_at", "de_AT"},
                                                        {"deu", "de"},
                                                        {"szl", "szl"},
                                                        {"es_419", "es_419"},
                                                        {"zh_Hans", "zh_Hans"},
                                                        {"zh_hant_tw", "zh_Hant_TW"},
                                                        {"de.UTF-8", "de"},
                                                        {"de_DE.utf8", "de_DE"},
                                                        {"de_DE@euro", "de_DE"},
                                                        {"de_DE.ISO-8859-15@euro", "de_DE"},
                                                        {"sr@latin", "sr_Latn"},
                                                        {"sr_RS.UTF-8@latin", "sr_Latn_RS"},
                                                        {"uz@cyrillic", "uz_Cyrl"},
                                                        {"sr@Latn", "sr_Latn"},
                                                        {"ca@valencia", "ca_ES_VALENCIA"},
                                                        {"ca_ES@valencia", "ca_ES_VALENCIA"},
                                                        {"ca_ES_VALENCIA", "ca_ES_VALENCIA"},
                                                        {"de_1996", "de_DE_1996"},
                                                        {"tt_RU@iqtelif", "tt_RU_IQTELIF"}}) {
    EXPECT_EQ(icu_locale(given).name, icu) << given;
    EXPECT_EQ(icu_locale(given).problem, "") << given;
  }
}

TEST(CatalogLocale, WhatIsNoneIsRefusedWithTheReason) {
  for (const auto& [given, problem] : std::vector<std::pair<const char*, const char*>>{
           {"xx_YYYY_ZZ", "\"xx\" is no language"},
           {"sr_YYYY_RS", "\"Yyyy\" is no script"},
           {"sr_Latn_ZZ", "\"ZZ\" is no region"},
           {"de_DE@no", "\"NO\" is no variant"},
           {"de_DE@collation=phonebook", "\"collation=phonebook\" is no variant"},
           {"events", "\"events\" is no language"},
           {"", "it begins with no language"},
           {"@latin", "it begins with no language"},
           {"root", "it begins with no language"},
           {"../de", "it begins with no language"},
           {"d/e", "a locale is letters, digits, _ and -"}}) {
    EXPECT_EQ(icu_locale(given).name, "") << given;
    EXPECT_EQ(icu_locale(given).problem, problem) << given;
  }
}

TEST(CatalogLocale, VeryLongNameIsNone) {
  EXPECT_EQ(icu_locale(std::string(100000, 'd')).name, "");
  EXPECT_EQ(icu_locale("de_" + std::string(100000, 'D')).name, "");
  EXPECT_EQ(icu_locale("de_DE@" + std::string(100000, 'd')).name, "");
  EXPECT_EQ(icu_locale("de_DE@" + std::string(200, 'd')).problem, "it begins with no language");
}

TEST(CatalogLocale, PartOfOthersInTheSameScript) {
  EXPECT_THAT(broader_locales("de"), IsEmpty());
  EXPECT_THAT(broader_locales("de_AT"), ElementsAre("de"));
  EXPECT_THAT(broader_locales("ca_ES_VALENCIA"), ElementsAre("ca_ES", "ca"));
  EXPECT_THAT(broader_locales("sr_Cyrl_RS"), ElementsAre("sr_Cyrl", "sr"));
  EXPECT_THAT(broader_locales("sr_Latn_RS"), ElementsAre("sr_Latn"));
  EXPECT_THAT(broader_locales("sr_Latn"), IsEmpty());
  EXPECT_THAT(broader_locales("zh_TW"), IsEmpty());
  EXPECT_THAT(broader_locales("zh_SG"), ElementsAre("zh"));
}
