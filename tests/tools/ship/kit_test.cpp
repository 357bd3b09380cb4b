// Definitions and catalogs on their way.
#include "tools/ship/kit.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "recording/files/file_error.h"
#include "tests/command/emit_fixture.h"
#include "tests/support/temp_folder.h"

namespace fs = std::filesystem;

class Kit : public testing::Test {
 protected:
  Kit() {
    fs::create_directories(folder_.file("messages"));
    fs::create_directories(folder_.file("temporary"));
    folder_.write("one.ldf", std::string("bytes\0\n", 7));
    folder_.write("two.ldf", "");
    folder_.write("aux.ldf", "more");
    folder_.write("events.yaml", emit_definitions);
    for (const std::string arguments :
         {"merge -q events.yaml --po ja.po", "build -q events.yaml --po ja.po -o messages"}) {
      const auto made = run_kplog(folder_.path(), "catalog " + arguments);
      EXPECT_EQ(made.status, 0) << made.err;
    }
    folder_.write("messages/notes.txt", "not of the catalog");
  }
  record_kit whole() const {
    return make_kit({folder_.file("one.ldf"), folder_.file("two.ldf")},
                    {"", folder_.file("aux.ldf"), folder_.file("messages"), ""});
  }
  size_t folders() const {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator(folder_.file("temporary")), {}));
  }
  // Why it is refused.
  static std::string fault_of(const std::string& bytes) {
    kit_folder kits;
    try {
      kits.unpack({bytes});
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "";
  }

  temp_folder folder_;
  environment_value temporary_{"TMPDIR", folder_.file("temporary").c_str()};
};

TEST_F(Kit, HasAllFilesAgainWhereItIsUnpacked) {
  kit_folder kits;
  for (int time = 0; time < 2; ++time) {
    const kit_folder::unpacked files = kits.unpack(whole());
    ASSERT_EQ(files.definitions.size(), 2u);
    EXPECT_EQ(read_whole_file(files.definitions[0]), std::string("bytes\0\n", 7));
    EXPECT_EQ(read_whole_file(files.definitions[1]), "");
    EXPECT_EQ(read_whole_file(files.aux), "more");
    for (const std::string name : {"/ja.res", "/root.res"})
      EXPECT_EQ(read_whole_file(files.catalog + name),
                read_whole_file(folder_.file("messages") + name));
    EXPECT_FALSE(fs::exists(files.catalog + "/notes.txt"));
  }
  const fs::path place = fs::directory_iterator(folder_.file("temporary"))->path();
  EXPECT_EQ(fs::status(place).permissions(), fs::perms::owner_all);
  const kit_folder::unpacked alone = kits.unpack(make_kit({folder_.file("one.ldf")}, {}));
  EXPECT_EQ(alone.aux + alone.catalog, "");
  EXPECT_EQ(fs::status(alone.definitions[0]).type(), fs::file_type::regular);
}

TEST_F(Kit, IsTheSameOfTheSameFilesAndAnotherOfOthers) {
  const std::string before = whole().bytes;
  EXPECT_EQ(whole().bytes, before);
  folder_.write("messages/ja.res", "jb");
  EXPECT_NE(whole().bytes, before);
}

TEST_F(Kit, WhatCannotBeReadIsAnError) {
  EXPECT_THROW(make_kit({folder_.file("none.ldf")}, {}), file_error);
  EXPECT_THROW(make_kit({folder_.file("one.ldf")}, {"", "", folder_.file("none"), ""}), file_error);
}

TEST_F(Kit, OneThatLeadsElsewhereOrIsNoneIsRefused) {
  const auto file = [](const std::string& members) {
    return R"({"kplog_kit":1,"files":[{)" + members + "}]}\nbytes";
  };
  EXPECT_EQ(fault_of(file(R"("use":"aux","name":"a.ldf","size":5)")), "");
  for (const std::string name : {"../a", "/tmp/a", "", ".", "..", "a\\u0000b", "a/b"})
    EXPECT_EQ(fault_of(file(R"("use":"aux","size":5,"name":")" + name + "\"")),
              "the kit has a file without a proper name")
        << name;
  EXPECT_EQ(fault_of(file(R"("use":"../aux","name":"a","size":5)")),
            "the kit has a file for an unknown use");
  for (const char* size : {"-1", "1.5", "108446744073709551307", "1e300", "\"5\"", "null"})
    EXPECT_EQ(fault_of(file(std::string(R"("use":"aux","name":"a","size":)") + size)),
              "the kit has a file without a proper size")
        << size;
  for (const char* size : {"6", "18446744073709551615"})
    EXPECT_EQ(fault_of(file(std::string(R"("use":"aux","name":"a","size":)") + size)),
              "the kit ends before its files do");
  for (const std::string& bytes :
       {std::string(), std::string("\n"), std::string("{}\n"), std::string("[1]\n"),
        std::string(R"({"kplog_kit":2,"files":[]})"), file(R"("use":1)"), file(""),
        R"({"kplog_kit":1,"files":)" + std::string(100'000, '['),
        R"({"kplog_kit":1,"files":)" + std::string(100'000, '[') + std::string(100'000, ']') +
            "}\n",
        std::string(R"({"kplog_kit":1,"files":[1]})")})
    EXPECT_EQ(fault_of(bytes), "what came as definitions and catalogs is no kit of this form")
        << bytes;
}

// ICU believes what a bundle says, so that some of these would end the process that reads them.
TEST_F(Kit, ACatalogThatIsDamagedIsRefusedOrReadsAsAnother) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const record_kit sound = make_kit({}, {"", "", folder_.file("messages"), ""});
  const size_t begin = sound.bytes.find('\n') + 1;
  kit_folder kits;
  unsigned refused = 0;
  for (int time = 0; time < 100; ++time) {
    record_kit damaged = sound;
    for (int byte = 0; byte < 4; ++byte)
      damaged.bytes[begin + random() % (damaged.bytes.size() - begin)] =
          static_cast<char>(random() % 256);
    try {
      kits.unpack(damaged);
    } catch (const std::invalid_argument& error) {
      ++refused;
      EXPECT_THAT(error.what(), testing::HasSubstr("in the kit is damaged"));
    }
  }
  EXPECT_GT(refused, 0u);
}

TEST_F(Kit, FoldersGoWithTheirRunsAndThoseOfKilledOnesWithTheNext) {
  {
    const kit_folder one;
    const kit_folder other;
    EXPECT_EQ(folders(), 2u);
  }
  EXPECT_EQ(folders(), 0u);
  const pid_t child = fork();
  if (child == 0) {
    kit_folder kits;
    kits.unpack(whole());
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(folders(), 1u);
  const kit_folder next;
  EXPECT_EQ(folders(), 1u) << "its own";
}

TEST_F(Kit, FoldersOfRunsThatBeginAtOnceStay) {
  const record_kit kit = make_kit({folder_.file("one.ldf")}, {});
  std::vector<std::thread> runs;
  for (int run = 0; run < 4; ++run)
    runs.emplace_back([&kit] {
      for (int i = 0; i < 200; ++i) EXPECT_NO_THROW(kit_folder().unpack(kit));
    });
  for (std::thread& run : runs) run.join();
  EXPECT_EQ(folders(), 0u);
}
