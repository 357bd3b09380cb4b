// The YAML source of a compiled definition file.
#ifndef TOOLS_DUMP_YAML_H
#define TOOLS_DUMP_YAML_H

#include <string>

#include "recording/definitions/compiled_file.h"
#include "recording/definitions/merged_set.h"
#include "recording/report/diagnostics.h"

// A source that compiles to the bytes of the file. Texts stand as people write them where that
// gives the template of the file, and as raw templates elsewhere. Adds an error for everything that
// a source cannot say or that compiling refuses, and a warning when the compiled bytes would be
// others of the same meaning.
//
// With an STD set the file is an AUX file, and the source compiles beside that set. Without one the
// messages of an AUX file that show attributes of its STD set are raw templates, and a selector
// that only an STD set can declare is a warning.
std::string definition_yaml(definition_file& file, diagnostic_list& found,
                            const std_definitions* standard = nullptr);

#endif
