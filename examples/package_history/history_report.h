// Printing: a package history as messages in several languages, and as tables.
#ifndef PACKAGE_HISTORY_REPORT_H
#define PACKAGE_HISTORY_REPORT_H

#include <ostream>
#include <string>

#include "history.h"
#include "history_folder.h"
#include "history_keeping.h"
#include "history_options.h"

// Renders every event in English, German and Japanese, with the catalogs in the folder `catalogs`,
// and prints the last `n_shown` messages of each language. Leaves the last language set. Raises
// KPX_logging_missing_resource where a catalog or a message is missing.
void print_history_messages(std::ostream& out, const package_history& history,
                            const std::string& catalogs, size_t n_shown);

// Prints how many events of each kind there are, and how many of them the filter of these options
// has accepted and rejected; then every line that gives no message.
void print_history_table(std::ostream& out, const package_history& history,
                         const history_tally& accepted, const history_options& options);

// Prints what the folder holds of each day: its logs, with the number of their lines, and its
// counts by kind.
void print_kept_history(std::ostream& out, const history_kept& kept, const history_folder& folder,
                        const history_options& options);

#endif
