// A calling program in C++20, with the classes that the installed kplog command writes.
#include <cstdio>

#include "kp_LOG.h"
#include "shop_events.h"
#include "shop_ids.h"
#include "shop_more.h"

static_assert(shop::more::id_ORDER_SHIPPED == 2);
static_assert(shop_ids::id_ORDER_PAID == shop_events::id_ORDER_PAID);

int main(int, char** argv) {
  try {
    kp_LOG_LogConfig::SetDefinitionPath(argv[1]);
    kp_LOG_LogConfig::SetLocale("en_US");
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    const shop_events::entry_ORDER_PAID entry(3, {.ORDER = 8, .CUSTOMER = "bob"});
    std::puts(kp_LOG_RenderMessage(entry).c_str());
  } catch (const KPX_logging_all& error) {
    std::fprintf(stderr, "typed_shop: %s\n", error.what());
    return 1;
  }
  return 0;
}
