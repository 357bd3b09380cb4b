// Names and paths of dated text log files and of locks. C linkage, and C programs may include it;
// what is raised and what delete[] frees is for C++ alone.
#ifndef KP_LOG_FILENAMES_H
#define KP_LOG_FILENAMES_H

#include "base/kp_export.h"

// A text log file is named prefix.YYYYMMDD.NNNN, NNNN being a serial number. Any thread may call
// these functions. A null `result` is never written to. A broken assertion is reported on standard
// error by KP_assertion_violation, and the function goes on as its description says.
#ifdef __cplusplus
extern "C" {
#endif

// The name "prefix.YYYYMMDD.NNNN", in a directory "directory/prefix.YYYYMMDD.NNNN" unless that is
// null, in a new character array that the caller frees with delete[]. Each number is cut to 16
// bits, filled up with zeros to its width and never shortened: callers keep to years and serials of
// four digits and months and days of two if the name is to be recognised again. A null prefix
// breaks the assertion "log_prefix" and counts as "". Raises KPX_memory_alloc.
KP_API char* make_text_log_filename(const char* log_prefix, int year, int month, unsigned int day,
                                    unsigned int serial, const char* directory);

// 1 when `filename` is the name of a text log of that prefix, without a directory: the numbers are
// then stored through the pointers, of which each may be null. 0 otherwise, nothing being stored.
// Digits are all that is asked of the numbers: a month of 13 passes.
// A null filename or prefix breaks the assertion "filename && log_prefix" and gives 0.
KP_API int is_a_valid_text_log(const char* filename, const char* log_prefix, unsigned short* year,
                               unsigned short* month, unsigned short* day, unsigned short* serial);

// Makes a text safe as one component of a file name, in place: every character but the ASCII
// letters and digits, "_" and "-" becomes "_". A null pointer breaks the assertion "pathname".
KP_API void remove_pathname_dir_separators(char* pathname);

// Writes the absolute form of `path` into `result` (4097 bytes) and returns 1: the working
// directory comes before a relative path, runs of "/" are one, "." steps are gone, and each ".."
// step has taken away the nearest step before it. A "/" at the end stays. The form is one of text:
// links are not followed, and nothing needs to exist. A null path gives "". -1, with `result`
// untouched, when it is null, when the path or its absolute form is longer than 4096 characters or
// there is no working directory. `result` may be the memory of `path`.
KP_API int _get_fullpath(char* result, const char* path);

// Writes what _get_fullpath gives, without any "/" at the end, into `result` (4097 bytes): the root
// is
// "". Where there is no such form, the first 4096 characters of the path stand for it. Returns 1.
// `result` may be the memory of `path`.
KP_API int get_fullpath(const char* path, char* result);

// Writes the name of a lock, "first_second", into `result` (256 bytes): cut to 255 characters, the
// rest filled with NULs. Names that differ only behind that are one lock; nothing is made safe as
// part of a path (see remove_pathname_dir_separators). Null counts as "". Returns 1.
KP_API int get_plockname(char* first, char* second, char* result);

#ifdef __cplusplus
}
#endif

#endif
