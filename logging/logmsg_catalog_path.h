// By which text a catalog is asked for.
#ifndef KP_LOG_LOGMSG_CATALOG_PATH_H
#define KP_LOG_LOGMSG_CATALOG_PATH_H

#include <string>

// ICU remembers every bundle that it was ever asked for, by the text of its path, and remembers as
// well that there was none: under the same text it never looks at the disk again. So a path is told
// to ICU in a spelling of its own, which leads to the same place, and in another one as soon as
// what is there has changed since it was last asked for; what changed within the last two seconds
// counts as changed, because the times of files tell no less. A relative path is made absolute,
// because ICU takes short ones for packages of its own data; one without a "/" that is no folder of
// the working directory is such a package, and stays as it is.
// ICU keeps each state of a catalog that it has seen to the end of the process.
// Any thread. Raises KPX_memory_alloc.
std::string logmsg_catalog_path_for_icu(const char* path);

#endif
