// A calling program in C++17, built against the installed package alone.
#include <cstdio>

#include "kp_LOG.h"
#include "logging/logentry_i.h"

int main(int, char** argv) {
  try {
    kp_LOG_LogConfig::SetDefinitionPath(argv[1]);
    kp_LOG_LogConfig::SetLocale("en_US");
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    kp_LOG_LogEntry entry(1, 3);
    entry._get_imp().add_attrib_4u("ORDER", 7);
    entry.AddAttribMBStr("CUSTOMER", "alice");
    std::puts(kp_LOG_RenderMessage(entry).c_str());
  } catch (const KPX_logging_all& error) {
    std::fprintf(stderr, "shop: %s\n", error.what());
    return 1;
  }
  return 0;
}
