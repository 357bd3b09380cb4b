// What happens to files and folders, as it is told.
#include "recording/files/path_watch.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::UnorderedElementsAre;

class PathWatch : public testing::Test {
 protected:
  void append(const std::string& name, const std::string& text) const {
    std::ofstream(folder_.file(name), std::ios::app) << text;
  }
  // All that was told by now; nothing may have to be waited for.
  std::set<std::string> told() {
    static constexpr const char* words[] = {" written", " came", " gone", "anything"};
    std::set<std::string> all;
    watch_.take([&](std::string_view name, path_change change) {
      all.insert(std::string(name) + words[static_cast<int>(change)]);
    });
    return all;
  }
  bool is_ready() const {
    pollfd ready{watch_.descriptor(), POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
  }

  temp_folder folder_;
  path_watch watch_;
};

TEST_F(PathWatch, TellsOfTheNamesInAFolder) {
  watch_.watch_folder(folder_.path());
  EXPECT_FALSE(is_ready());
  EXPECT_LT(watch_.patience().count(), 0);
  append("one", "x");
  EXPECT_TRUE(is_ready());
  EXPECT_THAT(told(), UnorderedElementsAre("one came", "one written"));
  fs::rename(folder_.file("one"), folder_.file("two"));
  EXPECT_THAT(told(), UnorderedElementsAre("one gone", "two came"));
  fs::remove(folder_.file("two"));
  EXPECT_THAT(told(), UnorderedElementsAre("two gone"));
  EXPECT_FALSE(is_ready());
}

TEST_F(PathWatch, TellsOfFoldersAboveThatAreRenamed) {
  const std::string deep = folder_.file("a/b/c");
  fs::create_directories(deep);
  watch_.watch_folder(deep);
  EXPECT_TRUE(told().empty());
  fs::rename(folder_.file("a"), folder_.file("x"));
  EXPECT_THAT(told(), UnorderedElementsAre("anything"));
  watch_.watch_folder(deep);
  fs::create_directories(deep);
  EXPECT_THAT(told(), Contains("anything"));
  watch_.watch_folder(deep);
  EXPECT_TRUE(told().empty());
  append("a/b/c/one", "x");
  EXPECT_THAT(told(), UnorderedElementsAre("one came", "one written"));
  EXPECT_LT(watch_.patience().count(), 0);
}

TEST_F(PathWatch, AsksWhereAFolderAboveIsALink) {
  fs::create_directories(folder_.file("a/b"));
  fs::create_symlink("a", folder_.file("link"));
  watch_.watch_folder(folder_.file("link/b"));
  EXPECT_EQ(watch_.patience(), path_watch::asking_interval);
  watch_.watch_folder(folder_.file("a/b"));
  EXPECT_LT(watch_.patience().count(), 0);
}

TEST_F(PathWatch, AFolderMayComeLater) {
  const std::string deep = folder_.file("a/b/c");
  watch_.watch_folder(deep);
  EXPECT_TRUE(told().empty());
  for (const char* name : {"a", "a/b", "a/b/c"}) {
    fs::create_directory(folder_.file(name));
    EXPECT_THAT(told(), Contains("anything")) << name;
    watch_.watch_folder(deep);
  }
  append("a/b/c/one", "");
  EXPECT_THAT(told(), Contains("one came"));
  fs::rename(folder_.file("a/b/c"), folder_.file("a/b/d"));
  EXPECT_THAT(told(), Contains("anything"));
  watch_.watch_folder(deep);
  fs::create_directories(deep);
  EXPECT_THAT(told(), Contains("anything"));
  watch_.watch_folder(deep);
  append("a/b/d/other", "");
  EXPECT_TRUE(told().empty());
}

TEST_F(PathWatch, TellsWhatHappensToAFile) {
  append("one", "x");
  fs::create_hard_link(folder_.file("one"), folder_.file("link"));
  watch_.watch_file(folder_.file("one"));
  append("other", "x");
  EXPECT_EQ(told(), std::set<std::string>{"other came"});
  append("link", "x");
  EXPECT_EQ(told(), std::set<std::string>{"one written"});
  append("next", "");
  told();
  fs::rename(folder_.file("next"), folder_.file("one"));
  EXPECT_THAT(told(), Contains("one came"));
  watch_.watch_file(folder_.file("one"));
  append("link", "x");
  EXPECT_TRUE(told().empty());
  EXPECT_LT(watch_.patience().count(), 0);
}

TEST_F(PathWatch, BehindALinkItAsks) {
  append("one", "x");
  fs::create_symlink("one", folder_.file("link"));
  watch_.watch_file(folder_.file("link"));
  EXPECT_EQ(watch_.patience(), path_watch::asking_interval);
  EXPECT_THAT(told(), Contains("anything"));
}

#ifdef KP_FAULTS

TEST_F(PathWatch, AsksWhereTheSystemHasNoWatches) {
  const failing none(kp_fault_call::inotify_init1, 1, EMFILE);
  watch_.watch_folder(folder_.path());
  EXPECT_EQ(watch_.descriptor(), -1);
  EXPECT_EQ(watch_.patience(), path_watch::asking_interval);
  EXPECT_EQ(told(), std::set<std::string>{"anything"});
  // By and by there are some again.
  watch_.watch_folder(folder_.path());
  EXPECT_LT(watch_.patience().count(), 0);
}

#endif
