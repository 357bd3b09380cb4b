// Keeps the process from forking while the recorder's thread is in the library: the child would
// find locks of the library, and of what that uses, held for ever.
#ifndef RECORDER_FORK_DELAY_H
#define RECORDER_FORK_DELAY_H

// While one lives, whoever calls fork waits; but for the thread that made it. For work that waits
// for nobody.
class fork_delay {
 public:
  fork_delay() noexcept;
  ~fork_delay();
  fork_delay(const fork_delay&) = delete;
  fork_delay& operator=(const fork_delay&) = delete;

  // To be called before the process has a recorder, once or more often. Raises std::bad_alloc.
  static void prepare();
};

#endif
