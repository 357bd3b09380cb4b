// Long output on a terminal, a page at a time.
#ifndef TOOLS_COMMAND_PAGER_H
#define TOOLS_COMMAND_PAGER_H

#include <sys/types.h>

// While it lives, what the process writes to standard output, and to standard error where that is a
// terminal too, goes through $KPLOG_PAGER, $PAGER, or less, where it has one of them. Nothing
// changes where standard output is no terminal, where the variable is empty or names cat, and where
// no pager can be started. At most one lives at a time; signals that end the process let the pager
// end first.
class pager {
 public:
  pager();
  ~pager();
  pager(const pager&) = delete;
  pager& operator=(const pager&) = delete;

 private:
  bool start(const char* command);

  int kept_output_ = -1;  // what was standard output; -1: no pager was started
  int kept_log_ = -1;     // what was standard error; -1: that is still
};

#endif
