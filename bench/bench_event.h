// The event that the benchmarks make, fill and render, and the definitions that they load.
#ifndef BENCH_EVENT_H
#define BENCH_EVENT_H

#include <string>

#include "kp_LOG_LogEntry.h"

// Five attributes.
constexpr char bench_user[] = "USER_NAME";   // 16 bytes
constexpr char bench_host[] = "HOST_NAME";   // 24 bytes
constexpr char bench_port[] = "PORT";        // unsigned, 16 bits
constexpr char bench_load[] = "LOAD";        // double
constexpr char bench_balance[] = "BALANCE";  // signed, 32 bits

constexpr char bench_user_value[] = "alice.liddell.42";
constexpr char bench_host_value[] = "workstation-17.north.hub";
constexpr unsigned short bench_port_value = 51413;
constexpr double bench_load_value = 0.625;
constexpr int bench_balance_value = -1204;
static_assert(sizeof bench_user_value == 16 + 1 && sizeof bench_host_value == 24 + 1);

inline void bench_fill(kp_LOG_LogEntry& entry) {
  entry.AddAttribStr(bench_user, bench_user_value);
  entry.AddAttribStr(bench_host, bench_host_value);
  entry.AddAttrib2u(bench_port, bench_port_value);
  entry.AddAttribFloat8(bench_load, bench_load_value);
  entry.AddAttrib4(bench_balance, bench_balance_value);
}

// Its message.
constexpr char bench_template[] =
    "User %s%USER_NAME% logged in from %s%HOST_NAME% on port %u%PORT% at load %f%LOAD%, balance "
    "%d%BALANCE%";

// The longest text of a string attribute.
constexpr size_t bench_string_limit = 32;

// IDs of the definitions in a file of n: bench_first_id to bench_first_id + n - 1.
constexpr unsigned bench_first_id = 1001;

// The bytes of a definition file of n definitions, each of them that event.
std::string bench_definition_bytes(unsigned n);

// A file of them, written at its first use in the process and removed at its end.
const std::string& bench_definition_file(unsigned n);

// Loads such a file, and each of its first 128 definitions, and sets US English and UTF-8.
void bench_load_definitions(unsigned n);

#endif
