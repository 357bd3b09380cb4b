#!/bin/sh
# Prints the names of all macros without parameters that the headers of C, C++ and POSIX define, one a line:
# system_macros.sh COMPILER. What begins with an underscore, and the numbers of system calls and
# the names of registers that come along, are left out.
cpp="algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv
  chrono cinttypes climits clocale cmath codecvt compare complex complex.h concepts
  condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring
  ctime cuchar cwchar cwctype deque exception execution fenv.h filesystem format forward_list
  fstream functional future initializer_list inttypes.h iomanip ios iosfwd iostream istream
  iterator latch limits list locale map memory memory_resource mutex new numbers numeric optional
  ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex
  source_location span sstream stack stdexcept stop_token streambuf string string_view syncstream
  system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility
  valarray variant vector version"
posix="aio arpa/inet assert cpio ctype dirent dlfcn errno fcntl fmtmsg fnmatch ftw glob grp iconv
  langinfo libgen locale monetary mqueue net/if netdb netinet/in netinet/tcp nl_types poll pthread
  pwd regex sched search semaphore setjmp signal spawn strings sys/ipc sys/mman sys/msg
  sys/resource sys/select sys/sem sys/shm sys/socket sys/stat sys/statvfs sys/time sys/times
  sys/types sys/uio sys/un sys/utsname sys/wait syslog tar termios time ulimit unistd utime utmpx
  wchar wctype wordexp"
{
  for header in $cpp; do printf '#if __has_include(<%s>)\n#include <%s>\n#endif\n' "$header" "$header"; done
  for header in $posix; do printf '#if __has_include(<%s.h>)\n#include <%s.h>\n#endif\n' "$header" "$header"; done
} | "$1" -std=gnu++20 -dM -E -w -x c++ - |
  sed -n 's/^#define \([A-Za-z][A-Za-z0-9_]*\)\( .*\)*$/\1/p' | grep -v '^SYS_\|^REG_\|__' | LC_ALL=C sort -u
