#include "base/kp_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

// Runs `work` in `count` threads and waits for all of them.
template <class Work>
static void in_threads(int count, Work work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
}

TEST(ReaderWriterLock, WritersExcludeEachOther) {
  kp_LOG_CRWLock lock;
  long sum = 0;
  in_threads(4, [&] {
    for (int i = 0; i < 5000; ++i) {
      const kp_LOG_CWriterSentry hold(lock);
      ++sum;
    }
  });
  EXPECT_EQ(sum, 20000);
}

TEST(ReaderWriterLock, ReadersNeverSeeAHalfDoneWrite) {
  kp_LOG_CRWLock lock;
  long first = 0;
  long second = 0;
  std::atomic<long> torn{0};
  std::thread writer([&] {
    for (int i = 0; i < 5000; ++i) {
      const kp_LOG_CWriterSentry hold(lock);
      ++first;
      ++second;
    }
  });
  in_threads(2, [&] {
    for (int i = 0; i < 5000; ++i) {
      const kp_LOG_CReaderSentry hold(lock);
      if (first != second) ++torn;
    }
  });
  writer.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(first, 5000);
}

// Whoever is not told that it is his turn waits for ever.
TEST(ReaderWriterLock, NobodyIsLeftWaitingWhereManyReadAndWrite) {
  kp_LOG_CRWLock lock;
  long first = 0;
  long second = 0;
  std::atomic<long> torn{0};
  std::atomic<unsigned> started{0};
  in_threads(6, [&] {
    const unsigned number = started++;
    for (unsigned i = 0; i < 4000; ++i) {
      if ((i + number) % 4 == 0) {
        const kp_LOG_CWriterSentry hold(lock);
        ++first;
        if (i % 64 == 0) std::this_thread::yield();
        ++second;
      } else {
        const kp_LOG_CReaderSentry hold(lock);
        if (first != second) ++torn;
      }
    }
  });
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(first, 6000);
}

TEST(ReaderWriterLock, ReadersHoldItTogether) {
  kp_LOG_CRWLock lock;
  std::atomic<int> inside{0};
  in_threads(2, [&] {
    const kp_LOG_CReaderSentry hold(lock);
    ++inside;
    while (inside < 2) std::this_thread::yield();
  });
  EXPECT_EQ(inside, 2);
}

// Each reader lets go only when a later one has come in, so that the lock is never free of readers
// unless it holds new ones back for the writer that waits; then the last one gives up after a
// while.
TEST(ReaderWriterLock, StreamOfReadersDoesNotStarveAWriter) {
  using clock = std::chrono::steady_clock;
  kp_LOG_CRWLock lock;
  std::atomic<bool> written{false};
  std::atomic<int> entered{0};
  const auto deadline = clock::now() + std::chrono::seconds(10);
  std::thread writer([&] {
    while (entered < 3) std::this_thread::yield();
    const kp_LOG_CWriterSentry hold(lock);
    written = clock::now() < deadline;
  });
  in_threads(3, [&] {
    while (!written && clock::now() < deadline) {
      const kp_LOG_CReaderSentry hold(lock);
      const int ticket = ++entered;
      const auto patience = clock::now() + std::chrono::milliseconds(100);
      while (entered == ticket && clock::now() < patience) std::this_thread::yield();
    }
  });
  writer.join();
  EXPECT_TRUE(written);
}

TEST(ReaderWriterLock, SentryLetsGoWhenAnErrorPasses) {
  kp_LOG_CRWLock lock;
  try {
    const kp_LOG_CWriterSentry hold(lock);
    throw 1;
  } catch (int) {
  }
  const kp_LOG_CReaderSentry held_again(lock);
  SUCCEED() << "taking it again did not block";
}

TEST(GlobalLock, SameThreadMayTakeItAgain) {
  const kp_THREAD_global_lock outer;
  const kp_THREAD_global_lock inner;
  SUCCEED() << "taking it again did not block";
}

TEST(GlobalLock, ExcludesOtherThreadsUntilTheOutermostIsReleased) {
  long sum = 0;
  in_threads(4, [&] {
    for (int i = 0; i < 2000; ++i) {
      const kp_THREAD_global_lock outer;
      { const kp_THREAD_global_lock inner; }
      ++sum;
    }
  });
  EXPECT_EQ(sum, 8000);
}

// Takes the lock while static objects are made and destroyed.
class static_lock_user {
 public:
  static_lock_user() {
    const kp_THREAD_global_lock hold;
    made_ = true;
  }
  ~static_lock_user() {
    const kp_THREAD_global_lock hold;
    if (report_at_exit) fputs("taken at exit\n", stderr);
  }
  bool made() const { return made_; }

  bool report_at_exit = false;

 private:
  bool made_ = false;
};

static static_lock_user lock_user;

TEST(GlobalLock, WorksBeforeMain) {
  EXPECT_TRUE(lock_user.made());
}

TEST(GlobalLock, WorksWhileStaticObjectsAreDestroyed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        lock_user.report_at_exit = true;
        std::exit(0);
      },
      testing::ExitedWithCode(0), "taken at exit");
}
