// kplog-ship: the command with the engines that it was linked with.
#include <array>

#include "engines/nats/engine.h"
#include "engines/otlp/engine.h"
#include "engines/postgresql/engine.h"
#include "engines/syslog/engine.h"
#include "tools/command/process.h"

int main(int argc, char** argv) {
  const std::array rows = {postgresql_engine, nats_engine, otlp_http_engine, otlp_https_engine,
                           syslog_engine};
  return run_process(argc, argv, rows);
}
