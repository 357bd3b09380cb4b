// Verification of compiled files, beyond what it takes to read one.
#ifndef TOOLS_COMPILED_VERIFY_H
#define TOOLS_COMPILED_VERIFY_H

#include "recording/definitions/compiled_file.h"
#include "recording/definitions/merged_set.h"
#include "recording/report/diagnostics.h"

// Adds what the library refuses or leaves without effect in a file that could be read without an
// error: names, selectors, messages, templates, and bytes that belong to nothing. With an STD set
// the file is an AUX file, and what the library refuses of the two together is added too.
void verify_definition_file(const definition_file& file, const std_definitions* standard,
                            diagnostic_list& found);

#endif
