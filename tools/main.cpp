// kplog: the command, which sends to no engine itself.
#include "tools/command/process.h"

int main(int argc, char** argv) {
  return run_process(argc, argv, {});
}
