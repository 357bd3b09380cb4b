// How much a thread works. The clock on the wall would measure what else the machine does.
#ifndef TESTS_SUPPORT_OWN_TIME_H
#define TESTS_SUPPORT_OWN_TIME_H

#include <algorithm>
#include <ctime>

// The thread's own processor time for the work, in seconds.
template <class Work>
double own_seconds(Work work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  };
  const double begin = now();
  work();
  return now() - begin;
}

// How many times as long work of four times the size takes: 4 for linear work, 16 for quadratic.
// make(size) gives the work of a size, which is called three times, so that what goes on beside it,
// and what is done but once, counts less.
template <class Make>
double growth_of_work(unsigned size, Make make) {
  const auto least = [](auto work) {
    return std::min({own_seconds(work), own_seconds(work), own_seconds(work)});
  };
  const double small = least(make(size));
  return least(make(4 * size)) / small;
}

// Half of what quadratic work would give, and twice what linear work does.
constexpr double most_growth = 8;

#endif
