// The kinds of sinks, one function each. make_record_sink chooses among them.
#ifndef RECORDING_SINKS_SINK_KINDS_H
#define RECORDING_SINKS_SINK_KINDS_H

#include <cstdint>
#include <memory>
#include <string>

#include "recording/sinks/sink.h"

constexpr uintmax_t default_log_size = uintmax_t{64} << 20;  // bytes that a text log has at most

// Lines "TIME LEVEL NAME MESSAGE" in the dated logs of the prefix, which is safe as part of a file
// name.
std::unique_ptr<record_sink> make_text_log_sink(const std::string& folder,
                                                const std::string& prefix, uintmax_t max_size,
                                                const sink_options& options);

// The stored form, one entry a line, in a file or on standard output.
std::unique_ptr<record_sink> make_json_file_sink(const std::string& path,
                                                 const sink_options& options);
std::unique_ptr<record_sink> make_json_output_sink(const sink_options& options);

// Messages on standard output, one a line.
std::unique_ptr<record_sink> make_message_sink(const sink_options& options);

#endif
