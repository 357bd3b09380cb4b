// Expected output kept in files beside the tests. To accept what the command says now as expected:
//
//     KPLOG_UPDATE_GOLDEN_FILES=1 ctest --test-dir build/debug -R Golden
//
// and read the difference before committing it.
#ifndef TESTS_COMMAND_GOLDEN_FILE_H
#define TESTS_COMMAND_GOLDEN_FILE_H

#include <string>

// Expects `actual` to be the content of the file `name` in the folder of the test sources, or makes
// it so when the environment says that the files are to be brought up to date.
void expect_golden_file(const std::string& name, const std::string& actual);

#endif
