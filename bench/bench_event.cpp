#include "bench/bench_event.h"

#include <algorithm>
#include <map>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

std::string bench_definition_bytes(unsigned n) {
  ldf_entry event = {.flags = 0x1,
                     .msg_text = bench_template,
                     .attributes = {{bench_user, TypeChar32},
                                    {bench_host, TypeChar32},
                                    {bench_port, TypeUInt2},
                                    {bench_load, TypeFloat},
                                    {bench_balance, TypeSInt4}}};
  ldf_file file;
  for (unsigned i = 0; i < n; ++i) {
    event.id = bench_first_id + i;
    event.msg_id = "EVENT." + std::to_string(i);
    file.entries.push_back(event);
  }
  return file.bytes();
}

const std::string& bench_definition_file(unsigned n) {
  static const temp_folder folder;
  static std::map<unsigned, std::string> paths;
  std::string& path = paths[n];
  if (path.empty()) path = folder.write(std::to_string(n) + ".ldf", bench_definition_bytes(n));
  return path;
}

void bench_load_definitions(unsigned n) {
  kp_LOG_LogConfig::SetICUEnabled(true);
  kp_LOG_LogConfig::SetLocale("en_US");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetDefinitionPath(bench_definition_file(n).c_str());
  const unsigned n_cached = std::min(n, _kp_LOG_log_definition_tbl::cache_size);
  for (unsigned i = 0; i < n_cached; ++i)
    kp_LOG_LogConfig::GetDefinitionTable()->find_entry(bench_first_id + i);
}
