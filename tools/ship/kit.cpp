#include "tools/ship/kit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unicode/localpointer.h>
#include <unicode/ures.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "recording/text/escape.h"
#include "recording/text/json_text.h"

namespace fs = std::filesystem;

static constexpr const char* use_of_definitions = "definitions";
static constexpr const char* use_of_aux = "aux";
static constexpr const char* use_of_catalog = "catalog";

// --- Packing ---

struct packed_file {
  const char* use;
  std::string name;
  std::string bytes;
};

static packed_file pack(const char* use, const std::string& path) {
  std::string bytes = read_file(path, longest_kit);
  if (bytes.size() > longest_kit)
    throw std::invalid_argument(path + " is too large to be sent with the records");
  return {use, place_of(path).name, std::move(bytes)};
}

// The catalog's files in the order of their names.
static void pack_catalog(const std::string& folder, std::vector<packed_file>& files) {
  std::vector<std::string> paths;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error))
    if (entry->path().extension() == ".res" && entry->is_regular_file(error))
      paths.push_back(entry->path().string());
  if (error) throw file_error(file_use::reading, "read", folder, error.value());
  std::ranges::sort(paths);
  for (const std::string& path : paths) files.push_back(pack(use_of_catalog, path));
}

record_kit make_kit(const std::vector<std::string>& definitions, const event_set_options& options) {
  std::vector<packed_file> files;
  files.reserve(definitions.size());
  for (const std::string& path : definitions) files.push_back(pack(use_of_definitions, path));
  if (!options.aux.empty()) files.push_back(pack(use_of_aux, options.aux));
  if (!options.catalog.empty()) pack_catalog(options.catalog, files);
  record_kit kit;
  json_text json(kit.bytes);
  json.begin_object().key("kplog_kit").number(1).key("files").begin_list();
  for (const packed_file& file : files)
    json.begin_object()
        .key("use")
        .text(file.use)
        .key("name")
        .text(file.name)
        .key("size")
        .number(file.bytes.size())
        .end_object();
  json.end_list().end_object();
  kit.bytes += '\n';
  for (const packed_file& file : files) kit.bytes += file.bytes;
  if (kit.bytes.size() > longest_kit)
    throw std::invalid_argument("definitions and catalogs are too large to be sent with records");
  return kit;
}

// --- Unpacking ---

static constexpr const char* kit_folder_prefix = "kplog-kit-";
static constexpr const char* kit_lock_name = "lock";

static fs::path place_of_kits() {
  std::error_code error;
  const fs::path place = fs::temp_directory_path(error);
  return error ? fs::path("/tmp") : place;
}

// Closed where it is not there. It is held while the folder is used, or removed.
static open_descriptor open_lock_of_kits(const fs::path& folder, int more_flags) {
  const std::string path = folder / kit_lock_name;
  return open_descriptor(
      KP_open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | more_flags, S_IRUSR | S_IWUSR));
}

// Folders of this user's runs that were killed.
static void remove_left_kits(const fs::path& place) {
  std::error_code error;
  for (fs::directory_iterator entry(place, error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat status {};
    const bool is_own = entry->path().filename().string().starts_with(kit_folder_prefix) &&
                        KP_lstat(entry->path().c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                        status.st_uid == geteuid();
    if (!is_own) continue;
    const open_descriptor lock = open_lock_of_kits(entry->path(), 0);
    std::error_code ignored;
    if (lock.is_open() && KP_flock(lock.get(), LOCK_EX | LOCK_NB) == 0)
      fs::remove_all(entry->path(), ignored);
  }
}

// Another run may hold a new folder for one that was left, before its lock is held.
static bool is_removed(const open_descriptor& lock) {
  struct stat status {};
  return KP_fstat(lock.get(), &status) == 0 && status.st_nlink == 0;
}

kit_folder::kit_folder() {
  const fs::path place = place_of_kits();
  remove_left_kits(place);
  do {
    path_ = place / (std::string(kit_folder_prefix) + "XXXXXX");
    if (KP_mkdtemp(path_.data()) == nullptr)
      throw file_error(file_use::writing, "make the folder", path_, errno);
    lock_ = open_lock_of_kits(path_, O_CREAT);
    if (!lock_.is_open())
      throw file_error(file_use::writing, "make the lock of the folder", path_, errno);
    while (KP_flock(lock_.get(), LOCK_EX) != 0 && errno == EINTR) continue;
  } while (is_removed(lock_));
}

kit_folder::~kit_folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

static void make_folder(const std::string& path) {
  if (KP_mkdir(path.c_str(), S_IRWXU) != 0)
    throw file_error(file_use::writing, "make the folder", path, errno);
}

// A name from elsewhere must not lead out of the folder.
static std::string name_in_kit(const nlohmann::json& file) {
  std::string name = file.at("name").get<std::string>();
  const bool is_name = !name.empty() && name.size() <= longest_file_name && name != "." &&
                       name != ".." && name.find('/') == std::string::npos &&
                       name.find('\0') == std::string::npos;
  if (!is_name) throw std::invalid_argument("the kit has a file without a proper name");
  return name;
}

static std::string use_in_kit(const nlohmann::json& file) {
  std::string use = file.at("use").get<std::string>();
  if (use != use_of_definitions && use != use_of_aux && use != use_of_catalog)
    throw std::invalid_argument("the kit has a file for an unknown use");
  return use;
}

// A fraction, or a number that is larger than any size, would be made something else.
static uint64_t size_in_kit(const nlohmann::json& file) {
  const nlohmann::json& size = file.at("size");
  if (!size.is_number_unsigned())
    throw std::invalid_argument("the kit has a file without a proper size");
  return size.get<uint64_t>();
}

static constexpr size_t longest_head = size_t{1} << 20;
static constexpr int deepest_head = 3;  // the members of a file

static nlohmann::json files_of_kit(std::string_view line) {
  try {
    if (line.size() > longest_head) throw std::invalid_argument("the head of the kit is too long");
    const nlohmann::json head =
        nlohmann::json::parse(line, [](int depth, nlohmann::json::parse_event_t,
                                       const nlohmann::json&) { return depth <= deepest_head; });
    if (head.at("kplog_kit") == 1U) return head.at("files");
  } catch (const nlohmann::json::exception&) {
  }
  throw std::invalid_argument("what came as definitions and catalogs is no kit of this form");
}

// Reads all that a rendering may read of it. ICU believes what a bundle says.
static bool read_whole_bundle(const std::string& folder, const std::string& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::LocalUResourceBundlePointer bundle(
      ures_openDirect(folder.c_str(), locale.c_str(), &status));
  const icu::LocalUResourceBundlePointer texts(
      ures_getByKey(bundle.getAlias(), "STRING_TABLE", nullptr, &status));
  const int32_t count = U_SUCCESS(status) ? ures_getSize(texts.getAlias()) : 0;
  uint64_t read = 0;
  for (int32_t at = 0; at < count && U_SUCCESS(status); ++at) {
    int32_t size = 0;
    const char* key = nullptr;
    const char16_t* const text = ures_getNextString(texts.getAlias(), &size, &key, &status);
    for (int32_t unit = 0; U_SUCCESS(status) && unit < size; ++unit) read += text[unit];
    if (U_SUCCESS(status) && key != nullptr) {
      read += strlen(key);
      static_cast<void>(ures_getStringByKey(texts.getAlias(), key, &size, &status));
    }
  }
  volatile uint64_t is_read = read;
  static_cast<void>(is_read);
  return U_SUCCESS(status);
}

// One that is damaged may end the process that reads it: that is a process of its own.
static void require_sound_bundle(const std::string& folder, const std::string& locale) {
  constexpr unsigned patience = 20;
  const pid_t child = fork();
  if (child == 0) {
    static_cast<void>(std::signal(SIGALRM, SIG_DFL));
    alarm(patience);
    _exit(read_whole_bundle(folder, locale) ? 0 : 1);
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (child < 0 || status != 0)
    throw std::invalid_argument("the catalog of the locale " + terminal_text(locale) +
                                " in the kit is damaged");
}

kit_folder::unpacked kit_folder::unpack(const record_kit& kit) try {
  const size_t head_end = kit.bytes.find('\n');
  const nlohmann::json files = files_of_kit(std::string_view(kit.bytes).substr(0, head_end));
  std::string_view left = std::string_view(kit.bytes).substr(head_end + 1);
  const std::string folder = path_ + "/" + std::to_string(kits_++);
  make_folder(folder);
  unpacked kept;
  for (const nlohmann::json& file : files) {
    const std::string use = use_in_kit(file);
    const uint64_t size = size_in_kit(file);
    if (size > left.size()) throw std::invalid_argument("the kit ends before its files do");
    std::string place = folder;
    place.append("/").append(use);
    if (use == use_of_definitions) place += std::to_string(kept.definitions.size());
    if (KP_access(place.c_str(), F_OK) != 0) make_folder(place);
    const std::string path = place + "/" + name_in_kit(file);
    write_whole_file(path, left.substr(0, size), false);
    left.remove_prefix(size);
    if (use == use_of_definitions) kept.definitions.push_back(path);
    if (use == use_of_aux) kept.aux = path;
    if (use == use_of_catalog) kept.catalog = place;
    if (use == use_of_catalog) require_sound_bundle(place, fs::path(path).stem());
  }
  return kept;
} catch (const nlohmann::json::exception&) {
  throw std::invalid_argument("what came as definitions and catalogs is no kit of this form");
}
