// A calling program that carries its definitions and needs no file of them. Given a catalog and a
// locale, it tells its messages in that language.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <span>
#include <stdexcept>
#include <string>

#include "kp_LOG.h"
#include "shop_events.h"
#include "shop_events_file.h"
#include "shop_more.h"
#include "shop_more_file.h"

// The path of a file in memory. It leads there as long as the process keeps the descriptor.
static std::string path_in_memory(std::span<const unsigned char> bytes) {
  const int file = memfd_create("definitions", MFD_CLOEXEC);
  if (file < 0) throw std::runtime_error("no file in memory");
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0) throw std::runtime_error("no memory for the definitions");
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
  return "/proc/self/fd/" + std::to_string(file);
}

int main(int count, char** arguments) {
  kp_LOG_LogConfig::SetDefinitionPath(path_in_memory(shop_events::definition_file).c_str());
  kp_LOG_LogConfig::SetAuxDefinitionPath(path_in_memory(shop::more::definition_file).c_str());
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetLocale(count > 2 ? arguments[2] : "en_US");
  if (count > 2) kp_LOG_LogConfig::SetMessageCatalogPath(arguments[1]);
  const shop_events::entry_ORDER_PAID paid(3, {.ORDER = 9, .CUSTOMER = "dan"});
  const shop::more::entry_ORDER_SHIPPED shipped(3, {.ORDER = 9});
  std::printf("%s, %s\n", kp_LOG_RenderMessage(paid).c_str(),
              kp_LOG_RenderMessage(shipped).c_str());
  return 0;
}
