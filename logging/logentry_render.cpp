#include "kp_LOG_LogEntry.h"
#include "kp_LOG_RenderMessage.h"

std::string kp_LOG_RenderDefinitionMessage(const kp_LOG_LogEntry& entry, bool use_default,
                                           unsigned index) {
  return kp_LOG_RenderDefinitionMessage(entry._get_imp(), use_default, index);
}

std::string kp_LOG_RenderMessage(const kp_LOG_LogEntry& entry, bool use_default, unsigned index) {
  return kp_LOG_RenderMessage(entry._get_imp(), use_default, index);
}
