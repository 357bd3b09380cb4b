// kplog render of journals and compressed files.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "tests/command/emit_fixture.h"

using testing::EndsWith;
using testing::HasSubstr;
namespace fs = std::filesystem;

class RenderJournal : public testing::Test {
 protected:
  // Three segments of two days: notes, compressed; a note and a login; a login of the day behind.
  void SetUp() override {
    const std::string login = login_record("alice", 1);
    const std::string late = login_record("bob", 2, "2026-11-16T07:00:00+08:00");
    const std::string notes = note_record("one") + note_record("two");
    const std::string size = std::to_string(stored_size(notes));
    const std::string options = "-q --to journal:shop,compress=zstd,max-size=" + size;
    ASSERT_EQ(folder_.emit_text(options, notes + note_record("six") + login + late).status, 0);
    ASSERT_TRUE(fs::exists(folder_.path(first_ + ".zst")));
    ASSERT_FALSE(fs::exists(folder_.path(first_)));
    ASSERT_TRUE(fs::exists(folder_.path(last_)));
  }
  size_t stored_size(const std::string& records) const {
    EXPECT_EQ(folder_.emit_text("-q --to json:sized", records).status, 0);
    return folder_.text("sized").size();
  }
  command_result render(const std::string& arguments) const {
    return run_kplog(folder_.path(), "render --definitions events.ldf --locale en_US " + arguments);
  }
  std::string messages(const std::string& arguments) const {
    const command_result shown = render(arguments);
    EXPECT_EQ(shown.status, 0) << shown.err;
    return shown.out;
  }

  const std::string first_ = "shop.20261115.0001.jsonl";
  const std::string last_ = "shop.20261116.0001.jsonl";
  const std::string alice_ = "alice logged in on port 1\n", bob_ = "bob logged in on port 2\n";
  emit_folder folder_;
};

TEST_F(RenderJournal, ShowsItsSegmentsInTheirOrder) {
  EXPECT_EQ(messages("shop"), "one\ntwo\nsix\n" + alice_ + bob_);
  EXPECT_EQ(messages("./shop --last 2"), alice_ + bob_);
  EXPECT_EQ(messages(folder_.path("shop") + " --event NOTE"), "one\ntwo\nsix\n");
  EXPECT_EQ(messages("shop sized"), "one\ntwo\nsix\n" + alice_ + bob_ + "one\ntwo\n");
}

TEST_F(RenderJournal, ShowsACompressedFile) {
  EXPECT_EQ(messages(first_ + ".zst"), "one\ntwo\n");
  // Nor is it asked what it holds where nothing is compressed.
  folder_.write("damaged.zst", folder_.text(first_ + ".zst").substr(0, 20));
  const command_result shown = render("damaged.zst");
  EXPECT_EQ(shown.status, 3);
  EXPECT_THAT(shown.err, HasSubstr("cannot read damaged.zst: its end is missing"));
}

TEST_F(RenderJournal, AnEmptyFileIsNoCompressedOne) {
  folder_.write("empty.zst", "");
  const command_result shown = render("empty.zst");
  EXPECT_EQ(shown.status, 3);
  EXPECT_THAT(shown.err, HasSubstr("cannot read empty.zst: its end is missing"));
}

TEST_F(RenderJournal, ShowsWhatIsBehindADamagedSegment) {
  const std::string whole = folder_.text(first_ + ".zst");
  folder_.write(first_ + ".zst", whole.substr(0, whole.size() / 2));
  for (const auto& [options, expected] : {std::pair{"-q shop", "six\n" + alice_ + bob_},
                                          {"-q --last 9 shop", "six\n" + alice_ + bob_},
                                          {"-q --event USER_LOGIN shop sized", alice_ + bob_}}) {
    const command_result shown = render(options);
    EXPECT_EQ(shown.status, 3) << options;
    EXPECT_THAT(shown.out, EndsWith(expected)) << options;
    EXPECT_THAT(shown.err,
                HasSubstr("cannot read ./shop.20261115.0001.jsonl.zst: its end is missing"))
        << options;
  }
}

TEST_F(RenderJournal, FilesBehindOneThatIsDamagedAreShown) {
  folder_.write("damaged.zst", "no frame");
  const command_result shown = render("damaged.zst sized damaged.zst");
  EXPECT_EQ(shown.status, 3);
  EXPECT_EQ(shown.out, "one\ntwo\n");
}

TEST_F(RenderJournal, TheLastAreFoundWithoutTheSegmentsBeforeThem) {
  folder_.write(first_ + ".zst", std::string(folder_.text(first_ + ".zst").size(), 'x'));
  EXPECT_EQ(messages("shop --last 3"), "six\n" + alice_ + bob_);
  const command_result late = render("shop --last 1 --event NOTE");
  EXPECT_EQ(late.out, "six\n");
  // An index tells how many of the last segment do not fit.
  EXPECT_THAT(late.err, EndsWith("3 records: 1 rendered, 0 marked, 0 bad, 2 left out; what is "
                                 "before them was not read\n"));
  EXPECT_EQ(render("shop --last 4").status, 3);
}

// As when somebody compresses it between looking for it and reading it.
TEST_F(RenderJournal, ASegmentThatIsCompressedMeanwhileIsRead) {
  EXPECT_EQ(messages(first_), "one\ntwo\n");
}

TEST_F(RenderJournal, ReadsNoSegmentInWhichNothingFits) {
  // What cannot be read shows which segments are.
  folder_.write(first_ + ".zst", std::string(folder_.text(first_ + ".zst").size(), 'x'));
  const auto left_out = [&](const std::string& conditions) { return render("shop " + conditions); };
  EXPECT_EQ(left_out("").status, 3);
  EXPECT_EQ(left_out("--event NOTE").status, 3);
  EXPECT_EQ(left_out("--until 2026-11-15").status, 3);
  EXPECT_EQ(left_out("--event LINK_DOWN --or --event 'N*'").status, 3);
  EXPECT_EQ(left_out("--since 2026-11-15T17:02:56+08:00").status, 3);
  const command_result late = left_out("--since 2026-11-15T17:02:57+08:00");
  EXPECT_EQ(late.out, bob_);
  EXPECT_THAT(late.err, EndsWith("5 records: 1 rendered, 0 marked, 0 bad, 4 left out\n"));
  EXPECT_EQ(left_out("--event 'USER_*'").status, 0);
  EXPECT_EQ(left_out("--event 1001").status, 0);
  EXPECT_EQ(left_out("--until 2026-11-15T17:02:55+08:00").status, 0);
  EXPECT_EQ(left_out("--event LINK_DOWN --or --event USER_LOGIN --grep bob").out, bob_);
}

TEST_F(RenderJournal, BelievesNoIndexThatDoesNotFit) {
  const std::string index = folder_.text(last_ + ".index");
  // A record more, of an event that the index does not know.
  folder_.write(last_, folder_.text(last_) + note_record("later"));
  EXPECT_EQ(messages("shop --event NOTE"), "one\ntwo\nsix\nlater\n");
  folder_.write(last_ + ".index", index.substr(1));
  EXPECT_EQ(messages("shop --event NOTE"), "one\ntwo\nsix\nlater\n");
  fs::remove(folder_.path(last_ + ".index"));
  EXPECT_EQ(messages("shop --event USER_LOGIN"), alice_ + bob_);
}

TEST_F(RenderJournal, OfTwoFormsTheirRecordsAreShownOnce) {
  fs::copy_file(folder_.path(last_), folder_.path("kept"));
  ASSERT_EQ(std::system(("zstd -q " + folder_.path(last_)).c_str()), 0);
  EXPECT_EQ(messages("shop --event USER_LOGIN"), alice_ + bob_);
  fs::remove(folder_.path(last_));
  EXPECT_EQ(messages("shop --event USER_LOGIN"), alice_ + bob_);
}

TEST_F(RenderJournal, FilesComeBeforeJournalsAndWhatIsNeitherIsTold) {
  folder_.write("shop", note_record("of the file"));
  EXPECT_EQ(messages("shop"), "of the file\n");
  for (const char* none : {"sho", "shop.20261115.0001", "none/shop", "sho/p"}) {
    const command_result shown = render(none);
    EXPECT_EQ(shown.status, 3);
    EXPECT_THAT(shown.err, HasSubstr(std::string("cannot read ") + none + ": No such file"));
  }
}

TEST_F(RenderJournal, DoesNotShowIntoItsOwnSegment) {
  const command_result shown = render("shop >> " + last_);
  EXPECT_EQ(shown.status, 2);
  EXPECT_EQ(shown.err, "kplog: the output would replace the input ./" + last_ + "\n");
}
