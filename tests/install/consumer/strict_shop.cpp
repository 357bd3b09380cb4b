// A calling program without exceptions and run-time type information.
#include <cstdio>

#include "kp_LOG.h"
#include "logging/logentry_i.h"
#include "shop_events.h"

int main(int, char** argv) {
  kp_LOG_LogConfig::SetDefinitionPath(argv[1]);
  kp_LOG_LogConfig::SetLocale("en_US");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  const shop_events::entry_ORDER_PAID entry(3, {.ORDER = 9, .CUSTOMER = "carol"});
  std::puts(kp_LOG_RenderMessage(entry).c_str());
  return 0;
}
