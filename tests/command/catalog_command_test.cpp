// kplog catalog, from outside: what translators get, what becomes of what they give back.
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

// A shell command of gettext's, run in the folder.
static int run_gettext(const temp_folder& folder, const std::string& command) {
  const std::string line = "cd '" + folder.path() + "' && " + command + " >gettext.out 2>&1";
  return std::system(line.c_str());  // NOLINT(cert-env33-c): another program's view of a file
}

// --- extract

TEST(CatalogExtract, GoldenTemplateOfEveryKindOfMessage) {
  const auto run = run_kplog(test_data_folder(), "catalog extract catalog_shop.yaml -o -");
  EXPECT_EQ(run.status, 0) << run.err;
  expect_golden_file("catalog_shop.pot.expected", run.out);
}

TEST_F(CatalogFolder, ExtractSaysWhatItWrote) {
  write(greeting_source, "");
  EXPECT_EQ(run("extract s.yaml -o s.pot").err, "kplog: wrote s.pot: 1 message\n");
  EXPECT_EQ(run("extract --quiet s.yaml -o s.pot").err, "");
}

TEST_F(CatalogFolder, OneIdWithOneTextIsExtractedOnceAndWithTwoRefused) {
  write(source_with("  A: {id: 1, message: {id: X, text: one}}\n"
                    "  B: {id: 2, message: {id: X, text: one}}\n"),
        "");
  EXPECT_EQ(run("extract s.yaml -o s.pot").err, "kplog: wrote s.pot: 1 message\n");
  write(source_with("  A: {id: 1, message: {id: X, text: one}}\n"
                    "  B: {id: 2, message: {id: X, text: two}}\n"),
        "");
  const auto refused = run("extract s.yaml -o t.pot");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "s.yaml:5:28: error[catalog-id]: the message ID \"X\" has another text already\n"
            "  B: {id: 2, message: {id: X, text: two}}\n"
            "                           ^\n"
            "s.yaml:4:28: note: its text is given here first\n"
            "  A: {id: 1, message: {id: X, text: one}}\n"
            "                           ^\n"
            "kplog: 1 error, nothing written\n");
  EXPECT_FALSE(std::filesystem::exists(folder.file("t.pot")));
}

TEST_F(CatalogFolder, IdThatIcuHasNoKeyForIsRefused) {
  write(source_with("  GRÖSSE: {id: 1, message: x}\n"), "");
  EXPECT_THAT(run("extract s.yaml -o -").err,
              StartsWith("s.yaml:4:3: error[catalog-id]: a catalog cannot hold the message ID "
                         "\"GRÖSSE\": "));
}

// --- merge

TEST_F(CatalogFolder, MergeBeginsAFileForTheLocaleOfItsName) {
  folder.write("s.yaml", greeting_source);
  const auto merge = run("merge s.yaml --po fr.po --po pt_BR.po");
  EXPECT_EQ(merge.err,
            "kplog: wrote fr.po: 0 translated, 0 fuzzy, 1 untranslated, 0 obsolete\n"
            "kplog: wrote pt_BR.po: 0 translated, 0 fuzzy, 1 untranslated, 0 obsolete\n");
  EXPECT_THAT(read_whole_file(folder.file("pt_BR.po")), HasSubstr("\n\"Language: pt_BR\\n\"\n"));
}

TEST_F(CatalogFolder, MergeBeginsAFileWithTheLocaleAsTranslatorsToolsNameIt) {
  folder.write("s.yaml", greeting_source);
  ASSERT_EQ(run("merge -q s.yaml --po sr.UTF-8@latin.po --po de.UTF-8.po").status, 0);
  EXPECT_THAT(read_whole_file(folder.file("sr.UTF-8@latin.po")),
              HasSubstr("\n\"Language: sr@latin\\n\"\n"));
  EXPECT_THAT(read_whole_file(folder.file("de.UTF-8.po")), HasSubstr("\n\"Language: de\\n\"\n"));
}

TEST_F(CatalogFolder, MergeBeginsNoFileOfNoLocale) {
  folder.write("s.yaml", greeting_source);
  const auto merge = run("merge s.yaml --po fr.po --po xx_YYYY_ZZ.po");
  EXPECT_EQ(merge.status, 2);
  EXPECT_EQ(merge.err,
            "kplog: no locale \"xx_YYYY_ZZ\": \"xx\" is no language; a new file is called by its "
            "locale, as pt_BR.po\n");
  EXPECT_FALSE(std::filesystem::exists(folder.file("fr.po")));
}

TEST(CatalogMerge, GoldenFileOfEveryKindOfMessage) {
  const temp_folder folder;
  std::filesystem::copy(test_data_folder() + "/catalog_shop.yaml", folder.path());
  std::filesystem::copy(test_data_folder() + "/catalog_unready.po", folder.path());
  const auto merge =
      run_kplog(folder.path(), "catalog merge catalog_shop.yaml --po catalog_unready.po");
  EXPECT_EQ(merge.status, 0) << merge.err;
  expect_golden_file("catalog_merge.expected",
                     read_whole_file(folder.file("catalog_unready.po")) + merge.err);
}

TEST_F(CatalogFolder, MergeKeepsTranslationsAndTheirCommentsAndIsSettledAfterwards) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}", "# short\n"));
  const std::string once = merged();
  EXPECT_THAT(once, HasSubstr("\n# short\n#. {NAME}: MBChar64\n#: s.yaml:4\nmsgctxt \"GREETED\"\n"
                              "msgid \"Hello {NAME}\"\nmsgstr \"Hallo {NAME}\"\n"));
  EXPECT_EQ(merged(), once);
}

TEST_F(CatalogFolder, MergeMarksTranslationsOfAChangedText) {
  write(greeting_source, translation("GREETED", "Hi {NAME}", "Hallo {NAME}"));
  const std::string once = merged();
  EXPECT_THAT(once, HasSubstr("#, fuzzy\n#| msgid \"Hi {NAME}\"\nmsgctxt \"GREETED\"\n"
                              "msgid \"Hello {NAME}\"\nmsgstr \"Hallo {NAME}\"\n"));
  EXPECT_EQ(merged(), once);
}

TEST_F(CatalogFolder, MergeFindsTheTranslationOfARenamedMessage) {
  write(greeting_source, translation("WELCOMED", "Hello {NAME}", "Hallo {NAME}"));
  EXPECT_THAT(merged(), HasSubstr("#, fuzzy\n#| msgctxt \"WELCOMED\"\n#| msgid \"Hello {NAME}\"\n"
                                  "msgctxt \"GREETED\"\nmsgid \"Hello {NAME}\"\n"
                                  "msgstr \"Hallo {NAME}\"\n"));
}

TEST_F(CatalogFolder, MergeKeepsWhatIsNoLongerThereAsObsoleteUntilItComesBack) {
  write(source_with("  OTHER: {id: 2}\n"),
        translation("GREETED", "Hello {NAME}", "Hallo\\n{NAME}", "# short\n") +
            translation("EMPTY", "Nothing", ""));
  const std::string once = merged();
  EXPECT_THAT(once, HasSubstr("\n# short\n#~ msgctxt \"GREETED\"\n#~ msgid \"Hello {NAME}\"\n"
                              "#~ msgstr \"\"\n#~ \"Hallo\\n\"\n#~ \"{NAME}\"\n"));
  EXPECT_THAT(once, Not(HasSubstr("EMPTY")));
  EXPECT_EQ(merged(), once);
  folder.write("s.yaml", greeting_source);
  EXPECT_THAT(merged(), HasSubstr("\nmsgctxt \"GREETED\"\nmsgid \"Hello {NAME}\"\nmsgstr \"\"\n"
                                  "\"Hallo\\n\"\n\"{NAME}\"\n"));
}

TEST_F(CatalogFolder, MergeLeavesAllFilesAloneWhenOneIsNone) {
  write(greeting_source, "");
  folder.write("bad.po", "msgid\n");
  const std::string before = read_whole_file(folder.file("de.po"));
  EXPECT_EQ(run("merge s.yaml --po de.po --po bad.po").status, 1);
  EXPECT_EQ(read_whole_file(folder.file("de.po")), before);
  EXPECT_EQ(run("merge s.yaml --po de.po --po none/fr.po").status, 3);
}

static const char* const header_of_german =
    "Content-Type: text/plain; charset=UTF-8\\n\"\n\"Content-Transfer-Encoding: 8bit\\n\"\n";

TEST_F(CatalogFolder, MergeGivesAHeaderToAFileWithoutOne) {
  folder.write("s.yaml", greeting_source);
  const std::string messages = translation("GREETED", "Hello {NAME}", "Grüß Gott, {NAME}");
  for (const std::string before : {"", "msgid \"\"\nmsgstr \"\"\n", "# ours\n\n"}) {
    folder.write("de.po", before + messages.substr(1));
    const std::string once = merged();
    EXPECT_THAT(once, StartsWith("msgid \"\"\nmsgstr \"\"\n\"Project-Id-Version: ")) << before;
    EXPECT_THAT(once, HasSubstr("\n\"Language: de\\n\"\n")) << before;
    EXPECT_THAT(once, HasSubstr(header_of_german)) << before;
    EXPECT_THAT(once, HasSubstr("msgstr \"Grüß Gott, {NAME}\"\n")) << before;
    EXPECT_EQ(run_gettext(folder, "msgfmt --check -o /dev/null de.po"), 0) << before;
    EXPECT_EQ(merged(), once) << before;
  }
  EXPECT_THAT(merged(), HasSubstr("\n# ours\n"));
}

TEST_F(CatalogFolder, MergeGivesAHeaderOfNoLocaleToAFileThatIsNamedForNone) {
  folder.write("s.yaml", greeting_source);
  folder.write("shop.po", translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  ASSERT_EQ(run("merge -q s.yaml --po shop.po").status, 0);
  EXPECT_THAT(read_whole_file(folder.file("shop.po")), HasSubstr("\n\"Language: \\n\"\n"));
  EXPECT_THAT(run("check s.yaml --po shop.po").err,
              StartsWith("shop.po:7:12: error[catalog-locale]: no locale \"shop\": "));
}

TEST_F(CatalogFolder, MergeKeepsCommentsOverEmptyLinesAsMsgcatDoes) {
  folder.write("s.yaml", greeting_source);
  folder.write("de.po", "# licence\n\n" + po_file("de", "") + "\n# first\n\n" +
                            translation("GREETED", "Hello {NAME}", "Hallo {NAME}", "# second\n"));
  ASSERT_EQ(run_gettext(folder, "msgcat de.po -o theirs.po"), 0);
  const std::string once = merged();
  for (const std::string& text : {once, read_whole_file(folder.file("theirs.po"))}) {
    EXPECT_THAT(text, StartsWith("# licence\nmsgid \"\"\n"));
    EXPECT_THAT(text, HasSubstr("\n\n# first\n# second\n"));
  }
  EXPECT_EQ(merged(), once);
}

// --- beside gettext's tools

TEST_F(CatalogFolder, GettextTakesTemplatesAndTranslations) {
  folder.write("s.yaml", read_whole_file(test_data_folder() + "/package_manager.yaml"));
  ASSERT_EQ(run("extract s.yaml -o s.pot").status, 0);
  ASSERT_EQ(run("merge s.yaml --po de.po").status, 0);
  EXPECT_EQ(run_gettext(folder, "msgfmt --check -o /dev/null s.pot"), 0);
  EXPECT_EQ(run_gettext(folder, "msgfmt --check -o /dev/null de.po"), 0);
  EXPECT_NE(run_gettext(folder, "msgcmp de.po s.pot"), 0) << "nothing is translated yet";
  ASSERT_EQ(run_gettext(folder, "msgen s.pot -o de.po"), 0);
  EXPECT_EQ(run_gettext(folder, "msgcmp de.po s.pot"), 0);
}

TEST_F(CatalogFolder, MergeAgreesWithMsgmerge) {
  const std::string old =
      po_file("de", translation("HOST_DOWN", "It's {HOST}: 100% {{down}}",
                                "So ist's: {HOST} \\\"aus\\\"\\t100% {{}}", "# eilig\n") +
                        translation("GONE", "gone", "weg"));
  folder.write("s.yaml", read_whole_file(test_data_folder() + "/catalog_shop.yaml"));
  folder.write("de.po", old);
  folder.write("theirs.po", old);
  ASSERT_EQ(run("extract s.yaml -o s.pot").status, 0);
  ASSERT_EQ(
      run_gettext(folder, "msgmerge --no-wrap --previous --no-fuzzy-matching theirs.po s.pot -o t"),
      0);
  ASSERT_EQ(run("merge s.yaml --po de.po").status, 0);
  ASSERT_EQ(run_gettext(folder, "msgattrib --no-fuzzy --no-obsolete --no-wrap t -o t1"), 0);
  ASSERT_EQ(run_gettext(folder, "msgattrib --no-fuzzy --no-obsolete --no-wrap de.po -o d1"), 0);
  EXPECT_EQ(read_whole_file(folder.file("d1")), read_whole_file(folder.file("t1")));
  ASSERT_EQ(run_gettext(folder, "msgattrib --only-obsolete --no-wrap t -o t2"), 0);
  ASSERT_EQ(run_gettext(folder, "msgattrib --only-obsolete --no-wrap de.po -o d2"), 0);
  EXPECT_EQ(read_whole_file(folder.file("d2")), read_whole_file(folder.file("t2")));
}

TEST_F(CatalogFolder, EscapesAreReadAsGettextReadsThem) {
  const std::string escaped = po_file(
      "de", translation("GREETED", "Hello {NAME}",
                        R"(\101\1018|\41|\x41g|\x0041|\x24b {NAM\x45} gr\303\266\xC3\x9F\145r\t)"));
  folder.write("s.yaml", greeting_source);
  folder.write("de.po", escaped);
  folder.write("theirs.po", escaped);
  ASSERT_EQ(run("merge s.yaml --po de.po").status, 0);
  ASSERT_EQ(run("extract s.yaml -o s.pot").status, 0);
  ASSERT_EQ(run_gettext(folder, "msgmerge --no-wrap theirs.po s.pot -o theirs.po"), 0);
  ASSERT_EQ(run_gettext(folder, "msgcat --no-wrap de.po -o ours.po"), 0);
  EXPECT_THAT(read_whole_file(folder.file("ours.po")),
              HasSubstr("msgstr \"AA8|!|Ag|A|K {NAME} größer"));
  EXPECT_EQ(read_whole_file(folder.file("ours.po")), read_whole_file(folder.file("theirs.po")));
}

TEST_F(CatalogFolder, EscapesThatGettextRefusesAreRefused) {
  folder.write("s.yaml", greeting_source);
  for (const char* escape : {"\\q", "\\8", "\\x", "\\xg", "\\X41", "\\u0041", "\\'"}) {
    folder.write("de.po",
                 po_file("de", translation("GREETED", "Hello {NAME}", escape + std::string("!"))));
    EXPECT_THAT(run("check s.yaml --po de.po").err, HasSubstr("[po-syntax]: this escape is none\n"))
        << escape;
    EXPECT_NE(run_gettext(folder, "msgfmt -o /dev/null de.po"), 0) << escape;
  }
}

TEST_F(CatalogFolder, FileThatGettextRewroteSaysTheSame) {
  write(greeting_source,
        translation("GREETED", "Hello {NAME}",
                    "Hallo {NAME}, wie geht es dir heute, und wie geht es all den anderen dort, "
                    "von denen wir so lange nichts gehört haben?"));
  const std::string once = merged();
  ASSERT_EQ(run_gettext(folder, "msgcat --width=40 de.po -o de.po"), 0);
  EXPECT_NE(read_whole_file(folder.file("de.po")), once);
  EXPECT_EQ(run("check s.yaml --po de.po").err,
            "kplog: de: 1 translated, 0 fuzzy, 0 untranslated, 0 obsolete\n");
  const std::string again = merged();
  EXPECT_EQ(again.substr(again.find("msgctxt")), once.substr(once.find("msgctxt")));
}

// --- build: exit statuses and files

TEST_F(CatalogFolder, BuildWritesABundleForEachLocale) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  const auto build = run("build s.yaml --po de.po -o messages");
  EXPECT_EQ(build.status, 0);
  EXPECT_EQ(build.err,
            "kplog: de: 1 translated, 0 fuzzy, 0 untranslated, 0 obsolete\n"
            "kplog: wrote messages: 2 bundles, 1 message\n");
  struct stat status {};
  ASSERT_EQ(stat(folder.file("messages/de.res").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
  EXPECT_TRUE(std::filesystem::exists(folder.file("messages/root.res")));
}

TEST_F(CatalogFolder, BuildGivesTheSameBytesForTheSameInput) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  run("build s.yaml --po de.po -o a");
  run("build s.yaml --po de.po -o b");
  EXPECT_FALSE(read_whole_file(folder.file("a/de.res")).empty());
  EXPECT_EQ(read_whole_file(folder.file("a/de.res")), read_whole_file(folder.file("b/de.res")));
}

TEST_F(CatalogFolder, BuildRefusesFaultyTranslationsAndWritesNothing) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAM}"));
  const auto build = run("build s.yaml --po de.po -o messages");
  EXPECT_EQ(build.status, 1);
  EXPECT_EQ(
      build.err,
      "de.po:8:8: error[catalog-placeholder]: the placeholder {NAME} of the source is missing\n"
      "msgstr \"Hallo {NAM}\"\n"
      "       ^\n"
      "de.po:8:16: error[text-attribute]: no attribute \"NAM\" here; did you mean \"NAME\"?\n"
      "msgstr \"Hallo {NAM}\"\n"
      "               ^\n"
      "kplog: 2 errors, nothing written\n");
  EXPECT_FALSE(std::filesystem::exists(folder.file("messages")));
}

TEST_F(CatalogFolder, TranslationsThatTheLibraryRefusesAreErrorsAtTheirPlaces) {
  const std::string raw = "{0,plural,one{one file} other{# files}} of %d%COUNT%";
  std::string events;
  for (const char* name : {"A", "B", "C", "D", "E"})
    events += std::string("  ") + name + ": {id: " + std::to_string(name[0]) +
              ", attributes: {COUNT: UInt2}, message: {raw: \"" + raw + "\"}}\n";
  write(source_with(events),
        translation("A", raw, "{0,plural,one{eine Datei}} von %d%COUNT%") +
            translation("B", raw, "{0, SpellOut} von %d%COUNT%") +
            translation("C", raw, "{0,plural,other{{0,duration}}} von '%d%COUNT%' {0} %x%COUNT%") +
            translation("E", raw, "{0,plural,other{#}} von '%d%COUNT%' {0} %x%COUNT%") +
            translation("D", raw, "{0,plural,one{eine Datei} other{# Dateien}} von %d%COUNT%"));
  const auto check = run("check s.yaml --po de.po");
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(
      check.err,
      "de.po:8:9: error[template-refused]: this argument needs a message for \"other\"\n"
      "msgstr \"{0,plural,one{eine Datei}} von %d%COUNT%\"\n"
      "        ^\n"
      "de.po:12:13: error[template-format]: the format \"SpellOut\" may keep ICU busy for ever; "
      "show "
      "the number as it is\n"
      "msgstr \"{0, SpellOut} von %d%COUNT%\"\n"
      "            ^\n"
      "de.po:16:28: error[template-format]: the format \"duration\" may keep ICU busy for ever; "
      "show "
      "the number as it is\n"
      "msgstr \"{0,plural,other{{0,duration}}} von '%d%COUNT%' {0} %x%COUNT%\"\n"
      "                           ^\n"
      "de.po:20:34: warning[template-quoted]: the apostrophe before it quotes this placeholder, so "
      "that ICU does not show its value; an apostrophe is written ''\n"
      "msgstr \"{0,plural,other{#}} von '%d%COUNT%' {0} %x%COUNT%\"\n"
      "                                 ^\n"
      "kplog: de: 5 translated, 0 fuzzy, 0 untranslated, 0 obsolete\n");
  EXPECT_EQ(run("build s.yaml --po de.po -o messages").status, 1);
}

TEST_F(CatalogFolder, ModifierInTheEnvironmentFindsTheCatalogOfItsScript) {
  write(source_with("  GREETED: {id: 1, message: \"Hello\"}\n"), "");
  folder.write("sr@latin.po", translation("GREETED", "Hello", "Zdravo"));
  folder.write("r.jsonl", "{\"event\":\"GREETED\"}\n");
  ASSERT_EQ(run("build s.yaml --po sr@latin.po -o messages").status, 0);
  ASSERT_EQ(run_kplog(folder.path(), "compile s.yaml -o s.ldf").status, 0);
  const auto shown =
      run_kplog(folder.path(), "render --definitions s.ldf --catalog messages -q r.jsonl",
                "export LC_ALL=sr_RS.UTF-8@latin; ");
  EXPECT_THAT(shown.out, HasSubstr("Zdravo")) << shown.err;
}

// Builds with these lines of a shell as genrb.
static command_result build_with_genrb(const temp_folder& folder, const std::string& lines) {
  folder.write("genrb", "#!/bin/sh\n" + lines);
  return run_kplog(folder.path(), "catalog build s.yaml --po de.po -o messages",
                   "chmod +x genrb; export REAL_PATH=$PATH PATH=$PWD:$PATH; ");
}

// genrb takes quadratic time to sort keys that ascend.
TEST_F(CatalogFolder, KeysOfABundleDescend) {
  write(source_with("  A: {id: 1, message: {id: b, text: T}}\n  C: {id: 2, message: T}\n"
                    "  B: {id: 3, message: T, messages: [{index: 10, value: 1, text: T},"
                    " {index: 9, value: 2, text: T}]}\n"),
        "");
  ASSERT_EQ(
      build_with_genrb(folder, "cp \"$5\"/*.txt .\nPATH=$REAL_PATH exec genrb \"$@\"\n").status, 0);
  const std::string keys =
      "    \"b\":string { \"T%x%TIMESTAMP%\" }\n"
      "    \"C\":string { \"T%x%TIMESTAMP%\" }\n"
      "    \"B.9\":string { \"T%x%TIMESTAMP%\" }\n"
      "    \"B.10\":string { \"T%x%TIMESTAMP%\" }\n"
      "    \"B\":string { \"T%x%TIMESTAMP%\" }\n";
  EXPECT_EQ(read_whole_file(folder.file("root.txt")),
            "root:table {\n  STRING_TABLE:table {\n" + keys + "  }\n}\n");
  EXPECT_EQ(read_whole_file(folder.file("de.txt")),
            "de:table {\n  STRING_TABLE:table {\n" + keys + "  }\n}\n");
}

TEST_F(CatalogFolder, BundleThatGenrbDidNotMakeIsNamed) {
  write(greeting_source, "");
  const auto run = build_with_genrb(folder, "exit 0\n");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: messages: cannot read root.res: No such file or directory\n");
}

TEST(CatalogBuild, GoldenBundles) {
  const temp_folder folder;
  const auto build =
      run_kplog(test_data_folder(), "catalog build catalog_shop.yaml --po catalog_unready.po -o '" +
                                        folder.file("new") + "'");
  EXPECT_EQ(build.status, 0) << build.err;
  std::string bundles;
  for (const char* locale : {"root", "ca_ES_VALENCIA"}) {
    const std::string text = std::string(locale) + ".txt";
    ASSERT_EQ(run_gettext(folder, "derb -e UTF-8 -d . new/" + std::string(locale) + ".res"), 0);
    bundles += read_whole_file(folder.file(text));
  }
  expect_golden_file("catalog_build.expected", bundles);
}

TEST_F(CatalogFolder, BuildNeedsGenrbAndAFolder) {
  write(greeting_source, "");
  const auto without =
      run_kplog(folder.path(), "catalog build s.yaml --po de.po -o messages", "PATH=/none ");
  EXPECT_EQ(without.status, 3);
  EXPECT_EQ(without.err, "kplog: messages: cannot run genrb; Debian has it in icu-devtools\n");
  const auto nowhere = run("build s.yaml --po de.po -o none/messages");
  EXPECT_EQ(nowhere.status, 3);
  EXPECT_EQ(nowhere.err,
            "kplog: none/messages: cannot make the folder: No such file or directory\n");
}

// --- AUX sets

TEST_F(CatalogFolder, AuxSetIsTranslatedAloneAndBuiltWithItsStdSet) {
  write(greeting_source, translation("GREETED", "Hello {NAME}", "Hallo {NAME}"));
  folder.write(
      "aux.yaml",
      source_with("  GREETED: {id: 1, message: {id: GREETED_TOO, text: \"Hi {NAME}\"}}\n"));
  EXPECT_EQ(run("extract aux.yaml --std s.yaml -o aux.pot").err,
            "kplog: wrote aux.pot: 1 message\n");
  EXPECT_THAT(run("build aux.yaml --std s.yaml --po de.po -o messages").err,
              HasSubstr("kplog: wrote messages: 2 bundles, 2 messages\n"));
}

// --- the page for translators

TEST_F(CatalogFolder, PageShowsWhatExtractWrites) {
  folder.write("events.yaml", page_block("definition-source.md", "# Definition sources"));
  const std::string shown = page_block("translations.md", "A message in a file of translations");
  EXPECT_THAT(shown, StartsWith("#. "));
  EXPECT_THAT(run("extract events.yaml -o -").out,
              HasSubstr(shown.substr(0, shown.find("msgstr"))));
}

// --- usage

TEST_F(CatalogFolder, WrongUsageGivesStatus2) {
  write(greeting_source, "");
  for (const char* arguments : {"", "extract", "extract s.yaml", "merge s.yaml", "merge --po de.po",
                                "build s.yaml --po de.po", "check s.yaml",
                                "check s.yaml --po de.po --codepage none", "convert s.yaml"})
    EXPECT_EQ(run(arguments).status, 2) << arguments;
}

TEST_F(CatalogFolder, UnreadableFilesGiveStatus3) {
  write(greeting_source, "");
  const auto run_without = run("check s.yaml --po none.po");
  EXPECT_EQ(run_without.status, 3);
  EXPECT_EQ(run_without.err, "kplog: cannot read none.po: No such file or directory\n");
  EXPECT_EQ(run("extract none.yaml -o -").status, 3);
  EXPECT_EQ(run("extract s.yaml -o none/s.pot").status, 3);
}

TEST_F(CatalogFolder, HelpOfEverySubCommandHasAnExample) {
  for (const std::string name : {"extract", "merge", "build", "check"})
    EXPECT_THAT(run(name + " --help").out, HasSubstr("Examples:\n  kplog catalog " + name + " "));
}
