// Any bytes as the definitions and catalogs that travel with records: they are unpacked into a
// folder of their own, and nowhere else, or refused. What was unpacked makes a kit that unpacks to
// the same files.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "recording/files/file_error.h"
#include "tools/ship/kit.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
// Of the sanitizers; not there without them.
extern "C" [[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

static void require(bool holds) {
  if (!holds) std::abort();
}

// Catalogs are read by a process of its own, which may die of them: that is no finding.
static void be_silent() {
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(nullptr);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDERR_FILENO);
}

static std::string content_of(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// The files by what they are for, with their content.
static std::map<std::string, std::string> files_of(const kit_folder::unpacked& kept) {
  std::map<std::string, std::string> files;
  for (size_t i = 0; i < kept.definitions.size(); ++i)
    files[std::to_string(i) + " " + fs::path(kept.definitions[i]).filename().string()] =
        content_of(kept.definitions[i]);
  if (!kept.aux.empty())
    files["aux " + fs::path(kept.aux).filename().string()] = content_of(kept.aux);
  if (kept.catalog.empty()) return files;
  for (const auto& entry : fs::directory_iterator(kept.catalog))
    if (entry.path().extension() == ".res")
      files["catalog " + entry.path().filename().string()] = content_of(entry.path());
  return files;
}

// The folder that all of them are in; nothing lies beside them.
static void require_within(const kit_folder::unpacked& kept, const fs::path& place) {
  for (const std::string& path : kept.definitions)
    require(fs::is_regular_file(path) && fs::path(path).parent_path().parent_path() == place);
  if (!kept.aux.empty())
    require(fs::is_regular_file(kept.aux) &&
            fs::path(kept.aux).parent_path().parent_path() == place);
  if (!kept.catalog.empty())
    require(fs::is_directory(kept.catalog) && fs::path(kept.catalog).parent_path() == place);
}

static std::optional<kit_folder::unpacked> unpacked(kit_folder& folder, const record_kit& kit) {
  try {
    return folder.unpack(kit);
  } catch (const std::invalid_argument&) {
  } catch (const file_error&) {  // of a name that is too long for a temporary file beside it
  }
  return std::nullopt;
}

static fs::path place_of_kit(const kit_folder::unpacked& kept) {
  if (!kept.definitions.empty())
    return fs::path(kept.definitions.front()).parent_path().parent_path();
  if (!kept.aux.empty()) return fs::path(kept.aux).parent_path().parent_path();
  return fs::path(kept.catalog).parent_path();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  [[maybe_unused]] static const int silent = pthread_atfork(nullptr, nullptr, be_silent);
  kit_folder folder;
  const record_kit kit{std::string(reinterpret_cast<const char*>(data), size)};
  const auto kept = unpacked(folder, kit);
  if (!kept) return 0;
  const fs::path place = place_of_kit(*kept);
  require(place.empty() || place.filename() == "0");
  require_within(*kept, place);
  if (kept->definitions.empty()) return 0;
  event_set_options options;
  options.aux = kept->aux;
  options.catalog = kept->catalog;
  const auto again = unpacked(folder, make_kit(kept->definitions, options));
  require(again.has_value() && files_of(*again) == files_of(*kept));
  return 0;
}
