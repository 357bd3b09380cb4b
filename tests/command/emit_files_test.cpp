// kplog emit, from outside: what it refuses before it begins, and which files a run may have.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/command/emit_fixture.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class EmitFiles : public testing::Test {
 protected:
  std::vector<std::string> files_of_folder() const {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder_.path()))
      names.push_back(file.path());
    std::sort(names.begin(), names.end());
    return names;
  }

  emit_folder folder_;
};

// --- Wrong usage

TEST_F(EmitFiles, WrongUsageIsExplained) {
  const std::vector<usage_case> cases = {
      {"", "--to is required"},
      {"--to nowhere", "nowhere"},
      {"--to - --to json:-", "kplog: two sinks cannot share standard output\n"},
      {"--to - --ack", "kplog: --ack needs standard output, which a sink writes to\n"},
      {"--to - --on-error quarantine=",
       "kplog: --on-error: \"quarantine=\" is none of stop, skip, "
       "quarantine=FILE\n"},
      {"--to - --min-level 10", "kplog: levels are from 0 to 9\n"},
      {"--to - --min-level 5 --max-level 4", "kplog: --min-level is above --max-level\n"},
      {"--to - --mask 0x1FFFFFFFF", "is no mask of 32 bits"},
      {"--to - --section shop", "kplog: --section is one of --config\n"},
      {"--to - - -", "kplog: standard input can be read once\n"},
      {"--to - --listen /tmp/x", "is no address; unix:PATH is expected\n"},
      {"--to - --codepage UTF-16", "UTF-16"},
      {"--to - --codepage nonsense", "nonsense"},
      {"--to json:x --codepage nonsense", "nonsense"},
      {"--to text:./a.b", "."},
      {"--to - --count ./", "kplog: --count: ./ lacks the name of its file\n"},
      {"--to - --count ..", "kplog: --count: .. lacks the name of its file\n"},
      {"--to - --on-error quarantine=x/", "kplog: --on-error: x/ lacks the name of its file\n"},
      {"--to json:x --to json:./x", "kplog: two outputs cannot share ./x\n"},
      {"--to text:x --to text:./x,max-size=1", "kplog: two outputs cannot share ./x.\n"},
      {"--to journal:x --to journal:./x,max-size=1", "kplog: two outputs cannot share ./x.\n"},
      {"--to journal:x --to json:x.20261115.0001.jsonl",
       "kplog: two outputs cannot share x.20261115.0001.jsonl\n"},
      {"--to journal:x --to json:x.20261115.0001.jsonl.zst",
       "kplog: two outputs cannot share x.20261115.0001.jsonl.zst\n"},
      {"--to journal:x x.20261115.0001.jsonl",
       "kplog: the output would replace the input x.20261115.0001.jsonl\n"},
      {"--to journal:x --to json:x_lock",
       "kplog: two outputs cannot share x_lock, the lock of ./x.\n"},
      {"--to json:x --on-error quarantine=x", "kplog: two outputs cannot share x\n"},
      {"--to json:x.cnt --count x", "kplog: two outputs cannot share x.cnt\n"},
      {"--to json:x --listen unix:x", "kplog: two outputs cannot share x\n"},
      {"--to json:x_lock --to json:x", "kplog: two outputs cannot share ./x_lock, the lock of x\n"},
      {"--to json:x --to json:x_lock", "kplog: two outputs cannot share x_lock, the lock of x\n"},
      {"--to text:x --to json:./x_lock",
       "kplog: two outputs cannot share ./x_lock, the lock of ./x.\n"},
      {"--to json:x --on-error quarantine=x_lock",
       "kplog: two outputs cannot share x_lock, the lock of x\n"},
      {"--to json:x_lock --count x",
       "kplog: two outputs cannot share ./x_lock, the lock of x.cnt\n"},
      {"--to json:x_lock.cnt_lock --count x_lock.cnt --to json:x_lock_lock",
       "kplog: two outputs cannot share ./x_lock_lock, the lock of x_lock.cnt\n"},
      {"--to json:x --listen unix:x_lock",
       "kplog: two outputs cannot share x_lock, the lock of x\n"},
      {"--to json:x_lock --listen unix:x",
       "kplog: two outputs cannot share ./x_lock, the lock of x\n"},
      {"--to text:x --to json:x.20261115.0001",
       "kplog: two outputs cannot share x.20261115.0001\n"},
      {"--to json:x.20261115.0001 --to text:x", "kplog: two outputs cannot share ./x.\n"},
  };
  for (const usage_case& one : cases) {
    const auto run = folder_.emit_text(one.arguments, "");
    EXPECT_EQ(run.status, 2) << one.arguments << '\n' << run.err;
    EXPECT_THAT(run.err, HasSubstr(one.text)) << one.arguments;
  }
}

// Before anything is opened or made, whatever way leads there.
TEST_F(EmitFiles, OutputsOfOneFileAreFound) {
  namespace fs = std::filesystem;
  fs::create_directory(folder_.path("dir"));
  fs::create_directory_symlink("dir", folder_.path("way"));
  folder_.write("dir/one", "");
  fs::create_hard_link(folder_.path("dir/one"), folder_.path("two"));
  fs::create_symlink("dir/one", folder_.path("three"));
  const auto before = files_of_folder();
  for (const char* arguments :
       {"--to json:dir/x --to json:way/x", "--to text:dir/x --to text:way/x",
        "--to json:dir/x_lock --to text:way/x", "--to json:dir/one --to json:two",
        "--to json:two --to json:three", "--to json:two --on-error quarantine=three",
        "--to json:dir/../x --to json:x", "--to json:./x --on-error quarantine=way/../x",
        "--to text:way/x --to json:dir/x.20261115.0001", "--to json:dir/c.cnt --count way/c"}) {
    const auto run = folder_.emit_text(arguments, "");
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_THAT(run.err, StartsWith("kplog: two outputs cannot share ")) << arguments;
  }
  fs::remove(folder_.path("input"));
  EXPECT_EQ(files_of_folder(), before);
}

// Names that differ in their endings alone have one lock, which their outputs take in turn.
TEST_F(EmitFiles, OutputsMayShareALock) {
  const auto run =
      folder_.emit_text("-q --to text:./shop --to json:shop --count shop --on-error quarantine=bad",
                        note_record("a") + note_record("b") + "{\n");
  EXPECT_EQ(run.status, 1) << run.err;
  const std::string stored = folder_.text("shop");
  EXPECT_EQ(std::count(stored.begin(), stored.end(), '\n'), 2);
  EXPECT_EQ(folder_.text("bad"), "{\n");
}

TEST_F(EmitFiles, OutputThatIsAnInputIsRefused) {
  folder_.write("r", note_record("a"));
  folder_.write("r.20261115.0001", note_record("a"));
  folder_.write("r_lock", note_record("a"));
  std::filesystem::create_symlink("r.20261115.0001", folder_.path("link"));
  const std::string definitions = folder_.text("events.ldf");
  for (const char* arguments :
       {"--to json:r r", "--to - --on-error quarantine=r r", "--to text:r r.20261115.0001",
        "--to text:r link", "--to json:r r_lock", "--to json:events.ldf",
        "--to - --on-error quarantine=./events.ldf", "--to json:r --config r", "--to json:r < r",
        "--to json:r - < r"}) {
    const auto run = folder_.emit(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_THAT(run.err, StartsWith("kplog: the output would replace the input ")) << arguments;
  }
  EXPECT_EQ(folder_.text("r"), note_record("a"));
  EXPECT_EQ(folder_.text("r_lock"), note_record("a"));
  EXPECT_EQ(folder_.text("events.ldf"), definitions);
}

// What a run writes would be its input again, for ever.
TEST_F(EmitFiles, StandardOutputThatIsAnInputIsRefused) {
  for (const char* arguments : {"--to json:- r >> r", "--to - r >> r", "--to json:- < r >> r",
                                "--to json:stored --ack r >> r"}) {
    folder_.write("r", note_record("a"));
    const auto run = folder_.emit(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_THAT(run.err, StartsWith("kplog: the output would replace the input ")) << arguments;
    EXPECT_EQ(folder_.text("r"), note_record("a")) << arguments;
  }
  EXPECT_EQ(folder_.emit("-q --to json:stored r >> r").status, 0);
  const auto fifo = folder_.emit("--to json:- fifo > fifo", "mkfifo fifo; exec 3<> fifo; ");
  EXPECT_EQ(fifo.status, 2);
}

TEST_F(EmitFiles, StandardOutputThatIsAnotherOutputIsRefused) {
  for (const char* arguments :
       {"--to json:a --ack >> a", "--to json:- --to json:a >> a", "--to - --count a >> a.cnt",
        "--to - --to text:a >> a.20261115.0001", "--to json:- --to json:a >> a_lock"}) {
    const auto run = folder_.emit(arguments, "exec < /dev/null; ");
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_THAT(run.err, StartsWith("kplog: two outputs cannot share ")) << arguments;
  }
}

// The records of both are acknowledged, or those of neither.
TEST_F(EmitFiles, TheLockOfAnotherRunIsNoOutput) {
  EXPECT_EQ(folder_.emit_text("-q --to json:a", note_record("first")).status, 0);
  const auto run = folder_.emit_text("-q --to json:a_lock", note_record("second"));
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot append to ./a_lock: it is a lock\n");
  EXPECT_EQ(folder_.emit_text("-q --to json:b_lock", note_record("third")).status, 0);
  const std::string stored = folder_.text("b_lock");
  EXPECT_EQ(folder_.emit_text("-q --to json:b", note_record("fourth")).status, 3);
  EXPECT_EQ(folder_.text("b_lock"), stored);
}

TEST_F(EmitFiles, DevicesLeaveNoLocksBehind) {
  for (const char* arguments : {"--to json:/dev/null", "--to - --on-error quarantine=/dev/null"}) {
    const auto run = folder_.emit_text(arguments, note_record("a"));
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, HasSubstr("kplog: cannot append to /dev/null: it is not a regular file"));
  }
  EXPECT_FALSE(std::filesystem::exists("/dev/null_lock"));
}

TEST_F(EmitFiles, FilesThatCannotBeReadAreNamedBeforeAnythingIsWritten) {
  folder_.write("r", note_record("a"));
  for (const char* arguments : {"r missing", "--config missing r", "--aux missing r"}) {
    const auto run = folder_.emit("-q --to - " + std::string(arguments));
    EXPECT_EQ(run.status, 3) << arguments;
    EXPECT_THAT(run.err, AllOf(HasSubstr("missing"), HasSubstr("No such file"))) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
  }
}

TEST_F(EmitFiles, ConfigurationIsNoFolderAndNoPipe) {
  ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(folder_.emit_text("--to - --config .", "").err,
            "kplog: cannot read .: Is a directory\n");
  const auto run = folder_.emit_text("--to - --config fifo", "");
  EXPECT_EQ(run.err, "kplog: cannot read fifo: Illegal seek\n");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(folder_.emit_text("--to - --config /dev/null", "").status, 0);
}

TEST_F(EmitFiles, DamageOfDefinitionsIsShown) {
  for (const char* command : {"emit --to - ", "render "}) {
    const auto run =
        run_kplog(folder_.path(), command + std::string("--definitions events.yaml < /dev/null"));
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, StartsWith("events.yaml:0x0: error[file-magic]: this is a source"));
    EXPECT_THAT(run.err, Not(HasSubstr("\\x0A")));
  }
}

TEST_F(EmitFiles, WhatComesBeforeAFileThatCannotBeReadIsWritten) {
  folder_.write("r", note_record("a"));
  const auto run = folder_.emit("-q --to - r .");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.out, "a\n");
  EXPECT_EQ(run.err, "kplog: cannot read .: Is a directory\n");
}

// Of 165 texts of the largest class, which take twice the room when they are stored.
TEST_F(EmitFiles, WhatIsStoredOfTheLargestRecordsIsReadAgain) {
  std::string source =
      "kplog: 1\nlog_version: \"2.0\"\nevents:\n  BIG:\n    id: 1\n    attributes:\n";
  std::string record = "{\"event\":1,\"time\":\"2026-11-15T17:02:56+08:00\",\"attributes\":{";
  for (int i = 0; i < 165; ++i) {
    const std::string name = "A" + std::to_string(i);
    source += "      " + name + ": MBChar2K\n";
    record += (i == 0 ? "\"" : ",\"") + name + "\":\"";
    for (int n = 0; n < 2048; ++n) record += "\u200B";
    record += '"';
  }
  record += "}}\n";
  ASSERT_LT(record.size(), size_t{1} << 20);
  folder_.write("big.yaml", source + "    message: \"{A0}\"\n");
  folder_.write("record", record);
  const auto run = [&](const std::string& arguments) {
    const auto done = run_kplog(folder_.path(), arguments);
    EXPECT_EQ(done.err, "");
    EXPECT_EQ(done.status, 0);
    return done.out;
  };
  run("compile -q big.yaml -o big.ldf");
  run("emit -q --definitions big.ldf --to json:stored record");
  EXPECT_GT(folder_.text("stored").size(), 2 * record.size() - 10000);
  run("emit -q --definitions big.ldf --to json:again stored");
  EXPECT_EQ(folder_.text("again"), folder_.text("stored"));
  std::string shown;
  for (int n = 0; n < 2048; ++n) shown += "\\u{200B}";
  EXPECT_EQ(run("render -q --definitions big.ldf stored"), shown + "\n");
}

TEST_F(EmitFiles, LineOfTheStoredFormIsTooLongBeyond16MiB) {
  const std::string begin = "{\"version\":\"";
  const auto run = folder_.emit_text(
      "-q --to -", begin + std::string(size_t{16} << 20, 'x') + "\"}\n" + note_record("next"));
  EXPECT_THAT(run.err, StartsWith("<stdin>:1:1: error[record-syntax]: the line is longer than "
                                  "16777216 bytes\n{\"version\":"));
  EXPECT_EQ(run.out, "next\n");
}
