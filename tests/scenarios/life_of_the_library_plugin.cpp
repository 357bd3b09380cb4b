// A plugin that logs, for programs that load and unload it: life_of_the_library_test.
#include <cstdio>

#include "kp_LOG.h"

// Sets the definition file, makes an entry of type 17, and renders its message into `message`.
extern "C" KP_API void plugin_log(const char* definition_file, char* message, unsigned size) {
  kp_LOG_LogConfig::SetDefinitionPath(definition_file);
  kp_LOG_LogEntry::AddAttributeDefinition(17, "DECLARED", TypeUInt4);
  kp_LOG_LogEntry entry(17, 5);
  entry.AddAttribStr("A9", "plugin");
  entry.AddAttrib4u("DECLARED", 1);
  std::snprintf(message, size, "%s", kp_LOG_RenderMessage(entry).c_str());
}
