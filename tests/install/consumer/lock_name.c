/* A program in C. */
#include <kp_LOG_filenames.h>
#include <stdio.h>

int main(void) {
  char first[] = "shop";
  char second[] = "log";
  char lock[256];
  get_plockname(first, second, lock);
  puts(lock);
  return 0;
}
