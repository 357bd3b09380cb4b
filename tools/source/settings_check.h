// What is wrong with a configuration file, or probably not meant (docs/configuration-file.md).
#ifndef TOOLS_SOURCE_SETTINGS_CHECK_H
#define TOOLS_SOURCE_SETTINGS_CHECK_H

#include <string>

#include "recording/report/diagnostics.h"

// Whether the path is that of a configuration file: "FILE.conf".
bool is_configuration_path(const std::string& path);

// Adds what the library would not read as it stands there. Keys that it does not know are a
// program's own, and no findings.
void check_configuration(const text_file& file, diagnostic_list& found);

#endif
