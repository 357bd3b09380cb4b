#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "kp_LOG_filenames.h"
#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"

// `result` has exactly the described room: a byte beyond it is a report of AddressSanitizer.
static int worker(const char* path, std::string& full) {
  const std::unique_ptr<char[]> result(new char[4097]);
  memset(result.get(), '#', 4097);
  const int status = _get_fullpath(result.get(), path);
  full = status == 1 ? std::string(result.get()) : std::string(result.get(), 4097);
  return status;
}

static std::string normalised(const std::string& path) {
  std::string full;
  EXPECT_EQ(worker(path.c_str(), full), 1) << path;
  return full;
}

static std::string full_path(const char* path) {
  const std::unique_ptr<char[]> result(new char[4097]);
  EXPECT_EQ(get_fullpath(path, result.get()), 1);
  return result.get();
}

static const std::string untouched(4097, '#');

// --- get_fullpath ---

TEST(FullPath, StepsAndRunsOfSlashesAreGone) {
  EXPECT_EQ(full_path("/a/./b//c/../d/"), "/a/b/d");
}

TEST(FullPath, RootBecomesTheEmptyString) {
  EXPECT_EQ(full_path("/.."), "");
  EXPECT_EQ(full_path("/"), "");
  EXPECT_EQ(full_path("////"), "");
  EXPECT_EQ(full_path("/./../."), "");
}

TEST(FullPath, RelativePathStandsBehindTheWorkingDirectory) {
  const temp_folder folder;
  const working_folder here(folder.path());
  const std::string base = std::filesystem::current_path().string();
  EXPECT_EQ(full_path("logs/today"), base + "/logs/today");
  EXPECT_EQ(full_path("./x"), base + "/x");
  EXPECT_EQ(full_path("../x"), std::filesystem::path(base).parent_path().string() + "/x");
  EXPECT_EQ(full_path(""), base);
  EXPECT_EQ(full_path("."), base);
}

TEST(FullPath, WorkingDirectoryOfTheRootAddsNoSecondSlash) {
  const working_folder here("/");
  EXPECT_EQ(full_path("x"), "/x");
  EXPECT_EQ(full_path(""), "");
}

TEST(FullPath, NullGivesTheEmptyString) {
  EXPECT_EQ(full_path(nullptr), "");
  EXPECT_EQ(normalised("/"), "/");
  std::string full;
  EXPECT_EQ(worker(nullptr, full), 1);
  EXPECT_EQ(full, "");
}

TEST(FullPath, NullResultIsNotWrittenTo) {
  EXPECT_EQ(_get_fullpath(nullptr, "/a"), -1);
  EXPECT_EQ(get_fullpath("/a", nullptr), 1);
}

TEST(FullPath, TooLongPathStandsForItselfCutTo4096) {
  const std::string path = "/./" + std::string(5000, 'x');
  EXPECT_EQ(full_path(path.c_str()), path.substr(0, 4096));
  const std::string slashes(5000, '/');
  EXPECT_EQ(full_path(slashes.c_str()), "");
}

TEST(FullPath, ResultMayBeTheMemoryOfThePath) {
  std::vector<char> memory(6000, '\0');
  strncpy(memory.data(), "/a/../b//c/", memory.size() - 1);
  EXPECT_EQ(get_fullpath(memory.data(), memory.data()), 1);
  EXPECT_STREQ(memory.data(), "/b/c");

  const std::string path(5000, 'x');
  memcpy(memory.data(), path.c_str(), path.size() + 1);
  EXPECT_EQ(get_fullpath(memory.data(), memory.data()), 1);
  EXPECT_EQ(std::string(memory.data()), path.substr(0, 4096));
}

// --- _get_fullpath ---

struct full_path_row {
  const char *path, *full;
};

TEST(FullPathWorker, GivesTheFormOfEachPath) {
  const full_path_row rows[] = {
      {"/", "/"},
      {"/a", "/a"},
      {"/a/", "/a/"},
      {"/.", "/"},
      {"/./", "/"},
      {"/././.", "/"},
      {"/a/.", "/a/"},
      {"/a/./", "/a/"},
      {"/a//b", "/a/b"},
      {"//a///b////", "/a/b/"},
      {"/..", "/"},
      {"/../", "/"},
      {"/../..", "/"},
      {"/../a", "/a"},
      {"/a/..", "/"},
      {"/a/../", "/"},
      {"/a/b/..", "/a/"},
      {"/a/b/../", "/a/"},
      {"/a/b/../c", "/a/c"},
      {"/a/b/../../c", "/c"},
      {"/a/b/c/../../d", "/a/d"},
      {"/a/../../../b", "/b"},
      {"/a/b/../..", "/"},
      {"/a/b/c/../..", "/a/"},
      {"/a//../b", "/b"},
      {"/a/./../b", "/b"},
      {"/a/.../b", "/a/.../b"},
      {"/...", "/..."},
      {"/a..", "/a.."},
      {"/a../b", "/a../b"},
      {"/..a/b", "/..a/b"},
      {"/a./b", "/a./b"},
      {"/.a/.b", "/.a/.b"},
      {"/a b/\xC3\xA4", "/a b/\xC3\xA4"},
  };
  for (const full_path_row& row : rows) EXPECT_EQ(normalised(row.path), row.full) << row.path;
}

TEST(FullPathWorker, PathOf4096IsTakenAndOneOf4097Refused) {
  const std::string longest = "/" + std::string(4095, 'x');
  EXPECT_EQ(normalised(longest), longest);
  std::string full;
  EXPECT_EQ(worker((longest + "x").c_str(), full), -1);
  EXPECT_EQ(full, untouched);
  EXPECT_EQ(worker(std::string(100000, '/').c_str(), full), -1);
  EXPECT_EQ(full, untouched);
}

TEST(FullPathWorker, OnlyTheFinalFormIsMeasured) {
  const temp_folder folder;
  const working_folder here(folder.path());
  const std::string base = std::filesystem::current_path().string() + "/";
  const std::string fitting(4096 - base.size(), 'x');
  EXPECT_EQ(normalised(fitting), base + fitting);
  std::string full;
  EXPECT_EQ(worker((fitting + "x").c_str(), full), -1);
  EXPECT_EQ(full, untouched);
  std::string climbing;  // 4095 characters that come to nothing
  while (climbing.size() < 4095) climbing += "../";
  EXPECT_EQ(normalised(climbing), "/");
}

TEST(FullPathWorker, ResultMayBeTheMemoryOfThePath) {
  char memory[4097] = "/a/./b/../c";
  EXPECT_EQ(_get_fullpath(memory, memory), 1);
  EXPECT_STREQ(memory, "/a/c");
}

TEST(FullPathWorker, RemovedWorkingDirectoryIsAFailureAndThePathStandsForItself) {
  temp_folder folder;
  std::filesystem::create_directory(folder.file("gone"));
  const working_folder here(folder.file("gone"));
  std::filesystem::remove(folder.file("gone"));
  std::string full;
  EXPECT_EQ(worker("x", full), -1);
  EXPECT_EQ(full, untouched);
  EXPECT_EQ(full_path("a/./b/"), "a/./b");
  EXPECT_EQ(normalised("/a/./b"), "/a/b");
}

TEST(FullPathWorker, WorkingDirectoryBeyond4096IsAFailure) {
  temp_folder folder;
  const working_folder here(folder.path());
  const std::string step(200, 'd');
  for (int i = 0; i < 21; ++i) {
    ASSERT_EQ(mkdir(step.c_str(), 0700), 0);
    ASSERT_EQ(chdir(step.c_str()), 0);
  }
  std::string full;
  EXPECT_EQ(worker("x", full), -1);
  EXPECT_EQ(full, untouched);
}

#ifdef KP_FAULTS
TEST(FullPathWorker, UnknownWorkingDirectoryIsAFailure) {
  const failing fault(kp_fault_call::getcwd, 1, ENOENT, from_then_on);
  std::string full;
  EXPECT_EQ(worker("x", full), -1);
  EXPECT_EQ(full, untouched);
}
#endif

// --- Against a slow reference, which builds new texts step by step ---

static std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what))
    text.replace(at, what.size(), by);
  return text;
}

static bool ends_in(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Takes the first "/../" and the step before it away until there is none.
static std::string without_parent_steps(std::string text) {
  for (size_t at = text.find("/../"); at != std::string::npos; at = text.find("/../")) {
    const size_t step = at == 0 ? 0 : text.rfind('/', at - 1);
    text = text.substr(0, step) + text.substr(at + 3);
  }
  return text;
}

static std::string reference(const std::string& absolute) {
  std::string text = replaced(absolute, "/./", "/");
  if (ends_in(text, "/.")) text.pop_back();
  text = without_parent_steps(replaced(text, "//", "/"));
  if (!ends_in(text, "/..")) return text;
  text.resize(text.size() - 3);
  return text.empty() ? "/" : text.substr(0, text.rfind('/') + 1);
}

static std::string random_path(std::mt19937& random, size_t most_steps) {
  static const char* const pieces[] = {"/",  "/", "/",  "//",  "/./", "/../", ".",
                                       "..", "a", "bc", "...", ".d",  "e."};
  std::string path = "/";
  const size_t steps = random() % (most_steps + 1);
  for (size_t i = 0; i < steps; ++i) path += pieces[random() % std::size(pieces)];
  return path;
}

TEST(FullPathWorker, AgreesWithTheReferenceOnShortRandomPaths) {
  std::mt19937 random(1);
  for (int i = 0; i < 50000; ++i) {
    const std::string path = random_path(random, 14);
    ASSERT_EQ(normalised(path), reference(path)) << path;
  }
}

TEST(FullPathWorker, AgreesWithTheReferenceOnLongRandomPaths) {
  std::mt19937 random(2);
  for (int i = 0; i < 300; ++i) {
    const std::string path = random_path(random, 2500).substr(0, 4096);
    ASSERT_EQ(normalised(path), reference(path)) << path;
  }
}

TEST(FullPathWorker, AgreesWithTheReferenceOnRelativePaths) {
  const temp_folder folder;
  const working_folder here(folder.path());
  const std::string base = std::filesystem::current_path().string();
  std::mt19937 random(3);
  for (int i = 0; i < 10000; ++i) {
    std::string path = random_path(random, 14);
    path.erase(0, path.find_first_not_of('/'));
    ASSERT_EQ(normalised(path), reference(base + "/" + path)) << path;
  }
}

TEST(FullPathWorker, FormOfAFormIsItself) {
  std::mt19937 random(4);
  for (int i = 0; i < 20000; ++i) {
    const std::string full = normalised(random_path(random, 14));
    ASSERT_EQ(normalised(full), full);
  }
}
