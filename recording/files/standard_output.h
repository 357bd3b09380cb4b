// Lines for standard output, gathered.
#ifndef RECORDING_FILES_STANDARD_OUTPUT_H
#define RECORDING_FILES_STANDARD_OUTPUT_H

#include <string>

// Writes the text to standard output and empties it; where that is a file, to the disk itself when
// `synced`. Waits where it does not take more at the moment. Raises file_error; what was not
// written stays in the text.
void write_standard_output(std::string& text, bool synced);

#endif
