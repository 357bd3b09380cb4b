// kplog catalog check, from outside: what is wrong with translations.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <tuple>

#include "tests/command/catalog_fixture.h"
#include "tests/command/documentation_page.h"
#include "tests/command/golden_file.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class CatalogChecked : public CatalogFolder {};

TEST(CatalogCheck, GoldenListOfEverythingWrongWithTranslations) {
  const auto run = run_kplog(test_data_folder(),
                             "catalog check catalog_shop.yaml --po catalog_bad.po --po "
                             "catalog_placeholders.po --codepage ISO-8859-1");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("catalog_bad.expected", run.err);
}

TEST(CatalogCheck, GoldenListOfEverythingThatIsNoPoFile) {
  const auto run =
      run_kplog(test_data_folder(), "catalog check catalog_shop.yaml --po catalog_syntax.po");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("catalog_syntax.expected", run.err);
}

TEST_F(CatalogChecked, GoodTranslationsGiveStatus0) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  const auto check = run("check s.yaml --po de.po");
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.err, "kplog: de: 1 translated, 0 fuzzy, 0 untranslated, 0 obsolete\n");
}

TEST_F(CatalogChecked, CheckReportsForPrograms) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo"));
  const auto check = run("check --format json s.yaml --po de.po");
  EXPECT_EQ(check.err,
            "{\"file\":\"de.po\",\"line\":8,\"column\":8,\"severity\":\"error\",\"code\":"
            "\"catalog-placeholder\",\"text\":\"the placeholder {NAME} of the source is missing\","
            "\"notes\":[]}\n");
  EXPECT_EQ(check.out,
            "{\"locale\":\"de\",\"files\":[\"de.po\"],\"translated\":1,\"fuzzy\":0,"
            "\"untranslated\":0,\"obsolete\":0}\n");
}

// Everything that two files of one locale, names and headers, and ends of texts can have wrong.
TEST_F(CatalogChecked, GoldenListOfFilesThatDoNotAgree) {
  folder.write("s.yaml", source_with("  A: {id: 1, message: one}\n"
                                     "  B: {id: 2, message: \"two\\n\"}\n"
                                     "  C: {id: 3, message: \"\\nthree\"}\n"
                                     "  D: {id: 4, message: four}\n"));
  folder.write("sr@latin.po", po_file("sr@latin", translation("A", "one", "jedan") +
                                                      translation("D", "four", "četiri")));
  folder.write("sr_Latn.po", po_file("sr_Latn", translation("D", "four", "četiri") +
                                                    translation("A", "one", "jedna") +
                                                    translation("B", "two\\n", "две")));
  folder.write("fr.po", po_file("sr-Latn", translation("A", "one", "jedno") +
                                               translation("C", "\\nthree", "tri\\n")));
  const auto check = run("check s.yaml --po sr@latin.po --po sr_Latn.po --po fr.po");
  EXPECT_EQ(check.status, 1);
  expect_golden_file("catalog_conflicts.expected", check.err);
}

TEST_F(CatalogChecked, BuildRefusesFilesThatContradictEachOther) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  folder.write("more.po", po_file("de", translation("GREETED", "Hello {NAME}", "Moin {NAME}")));
  EXPECT_EQ(run("build s.yaml --po de.po --po more.po -o messages").status, 1);
  EXPECT_FALSE(std::filesystem::exists(folder.file("messages")));
}

TEST_F(CatalogChecked, WhatIsNotShownContradictsNothing) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  const std::string hello = "Hello {NAME}";
  for (const std::string& other :
       {translation("GREETED", hello, "Hallo {NAME}"), translation("GREETED", hello, ""),
        translation("GREETED", hello, "Moin {NAME}", "#, fuzzy\n")}) {
    folder.write("more.po", po_file("de", other));
    EXPECT_EQ(run("check s.yaml --po de.po --po more.po --po de.po").status, 0) << other;
  }
  folder.write("at.po", po_file("de_AT", translation("GREETED", hello, "Servus {NAME}")));
  EXPECT_EQ(run("check s.yaml --po de.po --po at.po").status, 0);
}

TEST_F(CatalogChecked, FileNamedForTheLocaleOfItsHeaderOrForNoneIsNotTold) {
  folder.write("s.yaml", greeting_source);
  for (const auto& [name, language, is_told] :
       std::vector<std::tuple<std::string, std::string, bool>>{{"de", "de", false},
                                                               {"de.UTF-8", "de", false},
                                                               {"pt-BR", "pt_BR", false},
                                                               {"sr_Latn", "sr@latin", false},
                                                               {"shop", "de", false},
                                                               {"shop.de", "fr", false},
                                                               {"app", "de", false},
                                                               {"de_shop", "fr", false},
                                                               {"de", "", false},
                                                               {"de", "de_AT", true},
                                                               {"de_AT", "de", true},
                                                               {"sr", "sr@latin", true},
                                                               {"nds", "de", true}}) {
    folder.write(name + ".po", po_file(language, ""));
    const auto check = run("check s.yaml --po " + name + ".po");
    EXPECT_EQ(check.status, is_told ? 1 : 0) << name << " " << language << check.err;
    EXPECT_EQ(check.err.find("warning[catalog-name]: ") != std::string::npos, is_told) << check.err;
    EXPECT_EQ(run("build s.yaml --po " + name + ".po -o messages").status, 0);
  }
}

TEST_F(CatalogChecked, LostPlaceholdersAreToldBesideOtherFaults) {
  const std::string events =
      "  A: {id: 1, attributes: {X: UInt1, XY: Float, T: Timestamp},"
      " message: \"{X} {XY:currency} {T:date}\"}\n"
      "  B: {id: 2, attributes: {X: UInt1, XY: UInt1}, message: {raw: \"%d%X% %d%XY%\"}}\n";
  const std::string id = "{X} {XY:currency} {T:date}";
  const std::string raw = "%d%X% %d%XY%";
  using problems = std::vector<std::string>;
  const std::string lost = "the placeholder ";
  const std::string end = " of the source is missing";
  for (const auto& [context, text, expected] :
       std::vector<std::tuple<std::string, std::string, problems>>{
           {"A",
            "{Z} {XY:currency}",
            {lost + "{T:date}" + end, lost + "{X}" + end, "no attribute \"Z\" here"}},
           {"A",
            "{Z} {X} {XY} {T:date}",
            {lost + "{XY:currency}" + end, "no attribute \"Z\" here",
             "the source has no placeholder {XY}"}},
           {"A",
            "{XY:currency} {T}",
            {lost + "{X}" + end, "a timestamp needs a format: {T:date} or {T:time}"}},
           {"A",
            "{X {XY:currency}",
            {lost + "{T:date}" + end, "this brace has no partner; write {{ for a brace"}},
           {"B", "%d%Z% %d%XY%", {lost + "%d%X%" + end, "no attribute \"Z\" here"}},
           {"B", "%s%XY%", {lost + "%d%X%" + end, "the format %s does not suit \"XY\", a UInt1"}},
           {"B", "%d%X% %", {lost + "%d%XY%" + end, "the template has a percent sign at the end"}},
       }) {
    write(source_with(events), translation(context, context == "A" ? id : raw, text));
    problems found;
    std::istringstream lines(run("check -q s.yaml --po de.po").err);
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with("de.po:")) found.push_back(line.substr(line.find("]: ") + 3));
    EXPECT_EQ(found, expected) << text;
  }
}

TEST_F(CatalogChecked, HeaderIsThereOnce) {
  write(greeting_source, "\nmsgid \"\"\nmsgstr \"Language: fr\\n\"\n");
  EXPECT_EQ(run("check -q s.yaml --po de.po").err,
            "de.po:6:1: error[po-syntax]: the header is here twice\n"
            "msgid \"\"\n"
            "^\n"
            "de.po:1:1: note: it is here first\n"
            "msgid \"\"\n"
            "^\n");
}

static const char* const three_events =
    "kplog: 1\nlog_version: \"1.0\"\nevents:\n"
    "  A: {id: 1, message: one}\n  B: {id: 2, message: two}\n  C: {id: 3, message: three}\n";

TEST_F(CatalogChecked, CheckCountsEachLocaleOnce) {
  write(three_events, translation("A", "one", "eins") + translation("B", "two", "") +
                          "\n#~ msgctxt \"X\"\n#~ msgid \"x\"\n#~ msgstr \"y\"\n");
  folder.write("more.po", po_file("de", translation("B", "two", "zwo", "#, fuzzy\n")));
  folder.write("at.po", po_file("de_AT", translation("C", "three", "drei")));
  folder.write("latin.po", po_file("sr@latin", ""));
  folder.write("sr.po", po_file("sr", translation("A", "one", "један")));
  const std::string files = "s.yaml --po de.po --po at.po --po more.po --po latin.po --po sr.po";
  const auto check = run("check " + files);
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.err,
            "kplog: de: 1 translated, 1 fuzzy, 1 untranslated, 1 obsolete\n"
            "kplog: de_AT: 1 translated, 0 fuzzy, 1 untranslated, 0 obsolete\n"
            "kplog: sr_Latn: 0 translated, 0 fuzzy, 3 untranslated, 0 obsolete\n"
            "kplog: sr: 1 translated, 0 fuzzy, 2 untranslated, 0 obsolete\n");
  EXPECT_EQ(run("check -q " + files).err, "");
  EXPECT_THAT(run("check --format json " + files).out,
              StartsWith("{\"locale\":\"de\",\"files\":[\"de.po\",\"more.po\"],\"translated\":1,"
                         "\"fuzzy\":1,\"untranslated\":1,\"obsolete\":1}\n"));
}

TEST(CatalogCheck, GoldenListOfWhatIsNotReady) {
  const auto run =
      run_kplog(test_data_folder(),
                "catalog check catalog_shop.yaml --po catalog_unready.po "
                "--severity catalog-untranslated=error --severity catalog-fuzzy=warning");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("catalog_unready.expected", run.err);
}

TEST_F(CatalogChecked, CheckFailsOnWhatItIsToldTo) {
  write(three_events, translation("A", "one", "eins") +
                          translation("B", "two", "zwo", "#, fuzzy\n") +
                          translation("GONE", "gone", "weg"));
  EXPECT_EQ(run("check s.yaml --po de.po").status, 1) << "a translation of nothing is a warning";
  for (const auto& [arguments, status] : std::vector<std::pair<const char*, int>>{
           {"--fail-on error", 0},
           {"--fail-on warning", 1},
           {"--severity catalog-unknown=off", 0},
           {"--severity catalog-unknown=error --fail-on error", 1},
           {"--severity catalog-unknown=off --severity catalog-fuzzy=warning", 1},
           {"--severity catalog-fuzzy=warning --fail-on error", 0},
           {"--severity catalog-fuzzy=error --fail-on error", 1},
           {"--severity catalog-untranslated=error --fail-on error", 1},
           {"--severity catalog-placeholder=off", 2},
           {"--severity catalog-fuzzy", 2},
           {"--fail-on fuzzy", 2}})
    EXPECT_EQ(run(std::string("check -q s.yaml --po de.po ") + arguments).status, status)
        << arguments;
}

TEST_F(CatalogChecked, InvalidUtf8IsRefusedOnceAtItsFirstPlace) {
  write(source_with("  A: {id: 1, message: one}\n  B: {id: 2, message: two}\n"),
        translation("A", "one", "Hall\xF6",
                    "# Gr\xF6\xDF"
                    "e\n") +
            translation("B", "two", "{X}"));
  EXPECT_EQ(run("check -q s.yaml --po de.po").err,
            "de.po:6:5: error[po-syntax]: the PO file is not valid UTF-8, here and in 1 more line\n"
            "# Gr\\xF6\\xDFe\n"
            "    ^\n"
            "de.po:13:10: error[text-attribute]: no attribute \"X\" here\n"
            "msgstr \"{X}\"\n"
            "         ^\n");
}

TEST_F(CatalogChecked, FileInAnotherCodePageIsRefusedForThatAlone) {
  folder.write("s.yaml", greeting_source);
  folder.write("de.po", "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=ISO-8859-1\\n\"\n" +
                            translation("GREETED", "Hello {NAME}", "Sch\xF6n, {NAME}"));
  EXPECT_EQ(run("check -q s.yaml --po de.po").err,
            "de.po:2:8: error[po-syntax]: PO files are read in UTF-8, and this one is in another "
            "code page\n"
            "msgstr \"Content-Type: text/plain; charset=ISO-8859-1\\n\"\n"
            "       ^\n");
}

TEST_F(CatalogChecked, Utf8IsTakenHoweverItIsSpelt) {
  folder.write("s.yaml", greeting_source);
  for (const std::string charset : {"UTF-8", "utf-8", "utf8", "UTF8", "Utf8", "utf8 "}) {
    folder.write("de.po", "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=" + charset +
                              "\\n\"\n" + translation("GREETED", "Hello {NAME}", "Grüß {NAME}"));
    EXPECT_EQ(run("check s.yaml --po de.po").status, 0) << charset;
  }
}

TEST_F(CatalogChecked, FaultyFileIsNotMerged) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "\\q"));
  const std::string before = read_whole_file(folder.file("de.po"));
  EXPECT_EQ(run("merge s.yaml --po de.po").status, 1);
  EXPECT_EQ(read_whole_file(folder.file("de.po")), before);
}

TEST_F(CatalogChecked, FileAbove16MiBIsNotRead) {
  write(greeting_source, "# " + std::string(size_t{16} << 20, 'x') + "\n");
  EXPECT_THAT(run("check s.yaml --po de.po").err,
              StartsWith("de.po:1:1: error[too-large]: the PO file is larger than 16 MiB\n"));
}

TEST_F(CatalogChecked, TranslatorMayRepeatAndReorderPlaceholders) {
  write(source_with("  A: {id: 1, attributes: {X: UInt1, Y: UInt1}, message: \"{X}, {Y}\"}\n"),
        translation("A", "{X}, {Y}", "l'{Y}'{X} {{'}} {Y}% ''"));
  EXPECT_EQ(run("check s.yaml --po de.po").status, 0);
}

TEST_F(CatalogChecked, EleventhPlaceholderIsOneTooMany) {
  std::string text;
  for (int i = 0; i < 11; ++i) text += "{NAME} ";
  write(greeting_source, translation("GREETED", "Hello {NAME}", text));
  EXPECT_THAT(run("check s.yaml --po de.po").err, StartsWith("de.po:8:79: error[text-too-many]: "));
}
