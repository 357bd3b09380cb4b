#include "tools/catalog/bundle.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/whole_file.h"
#include "recording/text/escape.h"
#include "tools/catalog/locale.h"

extern char** environ;  // POSIX leaves its declaration to programs

// --- what stands in the bundles

static void take_over(std::map<std::string, std::string>& templates,
                      const std::vector<catalog_translations>& translations,
                      const std::string& locale) {
  for (const catalog_translations& own : translations)
    if (own.locale == locale)
      for (const auto& [id, text] : own.templates) templates[id] = text;
}

std::vector<catalog_bundle> catalog_bundles(const std::vector<catalog_message>& messages,
                                            const std::vector<catalog_translations>& translations) {
  std::map<std::string, std::string> root;
  for (const catalog_message& message : messages) root.emplace(message.id(), message.fallback());
  std::map<std::string, catalog_bundle> bundles;
  for (const catalog_translations& own : translations) {
    catalog_bundle bundle{own.locale, root};
    const std::vector<std::string> broader = broader_locales(own.locale);
    for (auto locale = broader.rbegin(); locale != broader.rend(); ++locale)
      take_over(bundle.templates, translations, *locale);
    take_over(bundle.templates, translations, own.locale);
    bundles[own.locale] = std::move(bundle);
  }
  std::vector<catalog_bundle> all = {{"root", root}};
  for (auto& [locale, bundle] : bundles) all.push_back(std::move(bundle));
  return all;
}

// --- genrb

// The keys descend: genrb looks for the place of a new one from the smallest that it has, so that
// ascending keys would take it quadratic time.
static std::string genrb_source(const catalog_bundle& bundle) {
  std::string source = bundle.locale + ":table {\n  STRING_TABLE:table {\n";
  for (auto entry = bundle.templates.rbegin(); entry != bundle.templates.rend(); ++entry) {
    const auto& [id, text] = *entry;
    source += "    " + genrb_quoted(id) + ":string { " + genrb_quoted(text) + " }\n";
  }
  return source + "  }\n}\n";
}

// A folder for the time of one compilation.
class bundle_work_folder {
 public:
  bundle_work_folder()
      : path_((std::filesystem::temp_directory_path() / "kplog-catalog-XXXXXX").string()) {
    if (KP_mkdtemp(path_.data()) == nullptr)
      throw std::system_error(errno, std::generic_category(), "no folder for temporary files");
  }
  ~bundle_work_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  bundle_work_folder(const bundle_work_folder&) = delete;
  bundle_work_folder& operator=(const bundle_work_folder&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The exit status of a program with its output in a file; -1 when it cannot be run.
static int run_program(const std::vector<std::string>& arguments, const std::string& output) {
  std::vector<char*> argv(arguments.size() + 1, nullptr);
  std::transform(arguments.begin(), arguments.end(), argv.begin(),
                 [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t child = 0;
  const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (error != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

static void compile_bundles(const bundle_work_folder& work,
                            const std::vector<catalog_bundle>& bundles) {
  std::vector<std::string> arguments = {"genrb", "-q",        "-e", "UTF-8",
                                        "-s",    work.path(), "-d", work.path()};
  for (const catalog_bundle& bundle : bundles) {
    const std::string name = bundle.locale + ".txt";
    std::ofstream source(work.file(name), std::ios::binary);
    if (!(source << genrb_source(bundle)).flush())
      throw bundle_error(file_error(file_use::writing, "write", name, errno).what());
    arguments.push_back(name);
  }
  const int status = run_program(arguments, work.file("messages"));
  if (status < 0 || status == 127)
    throw bundle_error("cannot run genrb; Debian has it in icu-devtools");
  if (status != 0) throw bundle_error("genrb: " + read_file(work.file("messages"), SIZE_MAX));
}

void write_bundles(const std::string& folder, const std::vector<catalog_bundle>& bundles) {
  const bundle_work_folder work;
  compile_bundles(work, bundles);
  if (KP_mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST)
    throw bundle_error("cannot make the folder: " + std::generic_category().message(errno));
  for (const catalog_bundle& bundle : bundles) {
    const std::string name = bundle.locale + ".res";
    const std::string path = std::string(folder).append("/").append(name);
    try {
      write_whole_file(path, read_file(work.file(name), SIZE_MAX));
    } catch (const file_error& error) {
      const char* const action = error.use() == file_use::reading ? "read" : "write";
      throw bundle_error(file_error(error.use(), action, name, error.error()).what());
    }
  }
}
