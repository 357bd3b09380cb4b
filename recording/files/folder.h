// The names in a folder.
#ifndef RECORDING_FILES_FOLDER_H
#define RECORDING_FILES_FOLDER_H

#include <functional>
#include <string>

// Calls `visit` with the name of everything in the open folder, in no order. Raises the error of a
// file to be written, with the folder's path.
void for_each_name(int folder, const std::string& path,
                   const std::function<void(const char* name)>& visit);

#endif
