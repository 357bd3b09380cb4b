#include "recording/sinks/sink.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "kp_LOG_filenames.h"
#include "recording/files/path.h"
#include "recording/text/escape.h"
#include "recording/text/size.h"
#include "recording/text/words.h"

[[noreturn]] static void refuse(const std::string& text) {
  throw std::invalid_argument(terminal_text(text));
}

static constexpr std::string_view text_sink_prefix = "text:";
static constexpr std::string_view json_sink_prefix = "json:";

// --- A place in a folder ---

static void check_name(const std::string& sink, const char* what, const std::string& name) {
  const std::string fault = fault_of_file_name(what, name);
  if (!fault.empty()) refuse("the sink " + sink + " " + fault);
}

// --- text: ---

static void check_prefix(const std::string& sink, const std::string& prefix) {
  check_name(sink, "prefix", prefix);
  std::string safe = prefix;
  remove_pathname_dir_separators(safe.data());
  const size_t at = static_cast<size_t>(
      std::mismatch(prefix.begin(), prefix.end(), safe.begin()).first - prefix.begin());
  if (at == prefix.size()) return;
  refuse("the sink " + sink + " has " + in_quotes(utf8_at(prefix, at).bytes) +
         " in its prefix, which is of ASCII letters, digits, \"_\" and \"-\"");
}

static uintmax_t parse_text_options(const std::string& sink, std::string_view options) {
  const std::string_view key = "max-size=";
  if (options.substr(0, key.size()) != key)
    refuse("the sink " + sink + " has the option " + in_quotes(options) +
           "; the only one is max-size=SIZE");
  const std::optional<uintmax_t> size = size_of(options.substr(key.size()));
  if (!size)
    refuse("the sink " + sink + " has the size " + in_quotes(options.substr(key.size())) + "; " +
           size_form);
  return *size;
}

static std::unique_ptr<record_sink> make_text_sink(const std::string& sink, const std::string& path,
                                                   const sink_options& options) {
  file_place place = place_of(path);
  const size_t comma = place.name.find(',');
  uintmax_t max_size = default_log_size;
  if (comma != std::string::npos) {
    max_size = parse_text_options(sink, std::string_view(place.name).substr(comma + 1));
    place.name.resize(comma);
  }
  check_prefix(sink, place.name);
  return make_text_log_sink(place.folder, place.name, max_size, options);
}

// --- json: ---

static std::unique_ptr<record_sink> make_json_sink(const std::string& sink, const std::string& path,
                                                   const sink_options& options) {
  if (path == "-") return make_json_output_sink(options);
  check_name(sink, "file", place_of(path).name);
  return make_json_file_sink(path, options);
}

sink_path path_of_sink(const std::string& description) {
  if (description.starts_with(text_sink_prefix)) {
    const file_place place = place_of(description.substr(text_sink_prefix.size()));
    return {place.folder + "/" + place.name.substr(0, place.name.find(',')), true};
  }
  if (!description.starts_with(json_sink_prefix)) return {};
  const std::string path = description.substr(json_sink_prefix.size());
  return {path == "-" ? "" : path, false};
}

std::unique_ptr<record_sink> make_record_sink(const std::string& description,
                                              const sink_options& options) {
  if (description.find('\0') != std::string::npos) refuse("the sink " + description + " has a NUL");
  if (description == "-") return make_message_sink(options);
  if (description.starts_with(text_sink_prefix))
    return make_text_sink(description, description.substr(text_sink_prefix.size()), options);
  if (description.starts_with(json_sink_prefix))
    return make_json_sink(description, description.substr(json_sink_prefix.size()), options);
  refuse(in_quotes(description) +
         " is no sink; a sink is text:DIR/PREFIX[,max-size=SIZE], json:FILE, json:- or -");
}
