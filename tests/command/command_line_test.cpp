// What is written from the description of the command line: help, completion, manual pages.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "tests/command/command_run.h"
#include "tests/command/documentation_page.h"
#include "tests/support/temp_folder.h"
#include "tools/command/command_line.h"
#include "tools/report/outcome.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

static command_description whole_command_line() {
  return kplog_command_line("1.0").description();
}

static std::vector<std::string> words_of(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

// The output of a script that a shell runs in the folder.
static std::string shell_output(const temp_folder& folder, const std::string& shell,
                                const std::string& script) {
  folder.write("script", script);
  const auto run = run_kplog(folder.path(), "--version > version; " + shell + " script");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  return run.out;
}

// --- the description

TEST(CommandLine, EveryCommandHasATextAndExamples) {
  const command_description kplog = whole_command_line();
  for (const command_description* command : all_commands(kplog)) {
    EXPECT_NE(command->text, "") << command->name(" ");
    const bool has_examples = command->examples.find(command->name(" ")) != std::string::npos;
    EXPECT_TRUE(has_examples || command->path.empty()) << command->name(" ");
  }
}

TEST(CommandLine, EveryOptionHasAText) {
  const command_description kplog = whole_command_line();
  for (const command_description* command : all_commands(kplog))
    for (const option_description& option : command->options)
      EXPECT_NE(option.text, "") << command->name(" ") << ' ' << option.names.front();
}

TEST(CommandLine, HelpOfEveryCommandGivesStatus0) {
  const temp_folder folder;
  const command_description kplog = whole_command_line();
  for (const command_description* command : all_commands(kplog)) {
    const auto run = run_kplog(folder.path(), command->name(" ").substr(5) + " --help");
    EXPECT_EQ(run.status, 0) << command->name(" ");
    EXPECT_THAT(run.out, HasSubstr(command->text));
  }
}

TEST(CommandLine, CommandsForPackagersStayOutOfTheHelp) {
  const temp_folder folder;
  EXPECT_THAT(run_kplog(folder.path(), "--help").out,
              AllOf(HasSubstr("compile"), Not(HasSubstr("completion")), Not(HasSubstr("manual"))));
}

// --- options before the command

TEST(CommandLine, OptionsMayStandBeforeTheCommand) {
  const temp_folder folder;
  folder.write("bad.yaml", "kplog: 2\n");
  const auto behind = run_kplog(folder.path(), "check --color always --format text -q bad.yaml");
  EXPECT_EQ(behind.status, 1);
  EXPECT_THAT(behind.err, HasSubstr("\x1b["));
  for (const std::string arguments :
       {"--color always -q check bad.yaml", "--color=always --quiet check --format text bad.yaml",
        "-q --format=text --color always check bad.yaml"}) {
    const auto before = run_kplog(folder.path(), arguments);
    EXPECT_EQ(before.status, 1) << arguments;
    EXPECT_EQ(before.err, behind.err) << arguments;
  }
}

TEST(CommandLine, OptionsBeforeCommandsOfCommandsReachThem) {
  const temp_folder folder;
  folder.write("bad.yaml", "kplog: 2\n");
  const auto run = run_kplog(folder.path(), "--format json catalog extract bad.yaml -o -");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, testing::StartsWith("{\"file\":\"bad.yaml\""));
}

TEST(CommandLine, OptionsThatTheCommandDoesNotTakeGiveStatus2) {
  const temp_folder folder;
  for (const char* arguments : {"--quiet help", "--color blue check x", "--format table check x",
                                "--color", "--color never", "--nothing check x"})
    EXPECT_EQ(run_kplog(folder.path(), arguments).status, 2) << arguments;
}

// --- wrong command lines

TEST(CommandLine, ErrorsSayWhatWasMeantAndWhoseHelpSaysMore) {
  const temp_folder folder;
  folder.write("e.yaml", "kplog: 1\nlog_version: \"1.0\"\n");
  const std::vector<std::pair<std::string, std::string>> errors = {
      {"compil e.yaml -o e.ldf",
       "kplog has no command \"compil\"; did you mean \"compile\"?\nTry 'kplog --help'.\n"},
      {"catalog biuld e.yaml",
       "kplog catalog has no command \"biuld\"; did you mean \"build\"?\n"
       "Try 'kplog catalog --help'.\n"},
      {"catalog",
       "kplog catalog needs a command: extract merge build check\n"
       "Try 'kplog catalog --help'.\n"},
      {"check --colour=never e.yaml",
       "kplog check has no option \"--colour\"; did you mean \"--color\"?\n"
       "Try 'kplog check --help'.\n"},
      {"compile --outptu e.ldf e.yaml",
       "kplog compile has no option \"--outptu\"; did you mean \"--output\"?\n"
       "Try 'kplog compile --help'.\n"},
      {"dump e.ldf two.ldf",
       "kplog dump takes nothing more: \"two.ldf\"\n"
       "Try 'kplog dump --help'.\n"},
      {"compile e.yaml -o e.ldf --std ''",
       "--std: the name is empty\nTry 'kplog compile --help'.\n"},
      {"dump -x e.ldf", "kplog dump has no option \"-x\"\nTry 'kplog dump --help'.\n"},
      {"compile e.yaml", "--output is required\nTry 'kplog compile --help'.\n"},
      {"compile e.yaml -o e.ldf --color \"$(printf '\\033[7m')\"",
       "--color: \"\\x1B[7m\" is none of auto|always|never\nTry 'kplog compile --help'.\n"},
  };
  for (const auto& [arguments, error] : errors) {
    const auto run = run_kplog(folder.path(), arguments);
    EXPECT_EQ(run.err, "kplog: " + error) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_EQ(run.status, 2) << arguments;
  }
}

// --- closed descriptors

TEST(CommandLine, ClosedStandardDescriptorsAreNotThoseOfFiles) {
  const temp_folder folder;
  folder.write("e.yaml", "kplog: 1\nlog_version: \"1.0\"\nevents: {A: {id: 1, message: x}}\n");
  ASSERT_EQ(run_kplog(folder.path(), "compile -q e.yaml -o e.ldf").status, 0);
  const std::string emit = "emit -q --definitions e.ldf --to json:out ";
  EXPECT_EQ(run_kplog(folder.path(), emit + "- <&-").err,
            "kplog: cannot read <stdin>: Bad file descriptor\n");
  folder.write("bad", "no record\n");
  EXPECT_EQ(run_kplog(folder.path(), emit + "bad <&- >&- 2>&-").status, 1);
  EXPECT_EQ(read_whole_file(folder.file("out")), "");
  folder.write("good", "{\"event\":1}\n");
  EXPECT_EQ(run_kplog(folder.path(), emit + "--ack good >&-").err,
            "kplog: cannot write to standard output: Bad file descriptor\n");
}

// --- help

TEST(HelpCommand, SaysWhatTheOptionOfTheCommandSays) {
  const temp_folder folder;
  const command_description kplog = whole_command_line();
  for (const command_description* command : all_commands(kplog)) {
    const std::string path = command->name(" ").substr(5);
    const auto run = run_kplog(folder.path(), "help " + path);
    EXPECT_EQ(run.status, 0) << path;
    EXPECT_EQ(run.out, run_kplog(folder.path(), path + " --help").out) << path;
  }
}

TEST(HelpCommand, UnknownCommandsGiveStatus2) {
  const temp_folder folder;
  EXPECT_EQ(run_kplog(folder.path(), "help complie").err,
            "kplog: no command \"complie\"; did you mean \"compile\"?\n");
  EXPECT_EQ(run_kplog(folder.path(), "help complie").status, 2);
  EXPECT_EQ(run_kplog(folder.path(), "help catalog nothing").status, 2);
  EXPECT_EQ(run_kplog(folder.path(), "help compile nothing").status, 2);
}

// --- completion

// Every option but the positional arguments, by its last name.
static std::vector<std::string> all_option_names() {
  const command_description kplog = whole_command_line();
  std::vector<std::string> names;
  for (const command_description* command : all_commands(kplog))
    for (const option_description& option : command->options)
      if (!option.is_positional) names.push_back(option.names.back());
  return names;
}

TEST(Completion, ScriptsKnowEveryOption) {
  const temp_folder folder;
  const std::string bash = run_kplog(folder.path(), "completion bash").out;
  const std::string zsh = run_kplog(folder.path(), "completion zsh").out;
  const std::string fish = run_kplog(folder.path(), "completion fish").out;
  for (const std::string& name : all_option_names()) {
    EXPECT_THAT(bash, HasSubstr(name));
    EXPECT_THAT(zsh, HasSubstr(name + "["));
    EXPECT_THAT(fish, HasSubstr(" -l " + name.substr(2)));
  }
}

TEST(Completion, ScriptsAreSoundForTheirShells) {
  const temp_folder folder;
  for (const std::string shell : {"bash", "zsh", "fish"}) {
    folder.write("script", run_kplog(folder.path(), "completion " + shell).out);
    EXPECT_EQ(run_kplog(folder.path(), "--version; " + shell + " -n script").status, 0) << shell;
  }
}

TEST(Completion, OtherShellsGiveStatus2) {
  const temp_folder folder;
  EXPECT_EQ(run_kplog(folder.path(), "completion csh").status, 2);
  EXPECT_EQ(run_kplog(folder.path(), "completion").status, 2);
}

// What bash offers when the last of the words is to be completed.
static std::vector<std::string> bash_offers(const std::string& words) {
  const temp_folder folder;
  folder.write("set.ldf", "");
  std::filesystem::create_directory(folder.file("subfolder"));
  const std::string script = run_kplog(folder.path(), "completion bash").out;
  return words_of(shell_output(folder, "bash",
                               script + "COMP_WORDS=(" + words +
                                   ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_kplog\n"
                                   "echo \"${COMPREPLY[@]}\"\n"));
}

TEST(BashCompletion, OffersCommandsOptionsChoicesAndFiles) {
  EXPECT_THAT(bash_offers("kplog d"), UnorderedElementsAre("dump", "diff"));
  EXPECT_THAT(bash_offers("kplog dump --f"), UnorderedElementsAre("--format"));
  EXPECT_THAT(bash_offers("kplog dump --format ''"), UnorderedElementsAre("yaml", "json", "table"));
  EXPECT_THAT(bash_offers("kplog dump --format = j"), UnorderedElementsAre("json"));
  EXPECT_THAT(bash_offers("kplog dump --format ="), UnorderedElementsAre("yaml", "json", "table"));
  EXPECT_THAT(bash_offers("kplog dump se"), UnorderedElementsAre("set.ldf"));
  EXPECT_THAT(bash_offers("kplog compile -o s"), IsSupersetOf({"set.ldf", "subfolder"}));
  EXPECT_THAT(bash_offers("kplog diff --accept ''"), testing::IsEmpty());
  EXPECT_THAT(bash_offers("kplog help com"), UnorderedElementsAre("compile"));
}

TEST(BashCompletion, GoesOnBehindTheCommasOfLists) {
  EXPECT_THAT(bash_offers("kplog diff --fail-on tr"), UnorderedElementsAre("translations"));
  EXPECT_THAT(bash_offers("kplog diff --fail-on source,f"), UnorderedElementsAre("source,filters"));
  EXPECT_THAT(bash_offers("kplog diff --fail-on = source,records,f"),
              UnorderedElementsAre("source,records,filters"));
  EXPECT_THAT(bash_offers("kplog dump --format x,j"), testing::IsEmpty());
}

TEST(BashCompletion, OffersTheCodesOfSeverities) {
  EXPECT_THAT(bash_offers("kplog check --severity no-m"),
              UnorderedElementsAre("no-message=off", "no-message=warning", "no-message=error"));
  EXPECT_THAT(bash_offers("kplog check --severity ''"), Not(testing::Contains("yaml-syntax=off")));
  EXPECT_THAT(bash_offers("kplog check --severity no-message ="),
              UnorderedElementsAre("off", "warning", "error"));
  EXPECT_THAT(bash_offers("kplog check --severity no-message = o"), UnorderedElementsAre("off"));
  EXPECT_THAT(bash_offers("kplog check --severity = no-message = o"), UnorderedElementsAre("off"));
}

TEST(FishCompletion, OffersCommandsOptionsChoicesAndFiles) {
  const temp_folder folder;
  folder.write("set.ldf", "");
  const std::string script = run_kplog(folder.path(), "completion fish").out;
  const auto offers = [&](const std::string& line) {
    return shell_output(folder, "HOME=. fish --no-config", script + "complete -C '" + line + "'\n");
  };
  EXPECT_THAT(offers("kplog d"), AllOf(HasSubstr("dump\t"), HasSubstr("diff\t")));
  EXPECT_THAT(offers("kplog dump --f"), HasSubstr("--format\t"));
  EXPECT_THAT(offers("kplog dump --format "),
              AllOf(HasSubstr("yaml\t"), Not(HasSubstr("set.ldf"))));
  EXPECT_THAT(offers("kplog dump se"), HasSubstr("set.ldf"));
  EXPECT_THAT(offers("kplog diff --fail-on source,f"), HasSubstr("source,filters"));
  EXPECT_THAT(offers("kplog check --severity no-m"), HasSubstr("no-message=off"));
}

// --- manual pages

TEST(ManualPages, EveryCommandHasOneThatKnowsItsOptions) {
  const temp_folder folder;
  EXPECT_EQ(run_kplog(folder.path(), "manual .").status, 0);
  const command_description kplog = whole_command_line();
  for (const command_description* command : all_commands(kplog)) {
    const std::string page = read_whole_file(folder.file(command->name("-") + ".1"));
    EXPECT_THAT(page, testing::StartsWith(".TH kplog")) << command->name("-");
    std::string plain = page;
    for (size_t at = 0; (at = plain.find("\\-", at)) != std::string::npos;) plain.erase(at, 1);
    for (const option_description& option : command->options)
      EXPECT_THAT(plain, HasSubstr(option.names.back())) << command->name("-");
  }
}

// --- pages

// The options, "-o" and "--output", in the first cells of the page's tables of options.
static std::set<std::string> explained_options(const std::string& page) {
  std::set<std::string> found;
  std::istringstream lines(page);
  bool in_table = false;
  for (std::string line; std::getline(lines, line); in_table &= line.starts_with("|")) {
    in_table |= line == "| option | effect |";
    if (!in_table || !line.starts_with("| `")) continue;
    std::istringstream pieces(line.substr(0, line.find(" | ")));
    for (std::string piece; std::getline(pieces, piece, '`') && std::getline(pieces, piece, '`');)
      if (piece.starts_with('-')) found.insert(piece.substr(0, piece.find(' ')));
  }
  return found;
}

// The options of the command and of those below it, each with all its names; none for --help.
static std::vector<std::vector<std::string>> options_of(const command_description& command) {
  std::vector<std::vector<std::string>> options;
  for (const command_description* each : all_commands(command))
    for (const option_description& option : each->options)
      if (option.names.back() != "--help" && !option.is_positional) options.push_back(option.names);
  return options;
}

TEST(CommandPages, ExplainTheOptionsOfTheirCommandsAndNoOthers) {
  for (const command_description& command : whole_command_line().commands) {
    if (command.path.back() == "help") continue;  // has no options and no page
    const std::set<std::string> explained =
        explained_options(documentation_page("commands/" + command.path.back() + ".md"));
    std::set<std::string> known;
    for (const std::vector<std::string>& names : options_of(command)) {
      const auto is_explained = [&](const std::string& name) { return explained.contains(name); };
      EXPECT_TRUE(std::ranges::any_of(names, is_explained))
          << command.name(" ") << ' ' << names.back();
      known.insert(names.begin(), names.end());
    }
    EXPECT_THAT(known, IsSupersetOf(explained)) << command.name(" ");
  }
}

TEST(CommandPages, AreThoseOfTheCommandsInTheOverview) {
  const std::string overview = documentation_page("tools.md");
  std::set<std::string> commands;
  for (const command_description& command : whole_command_line().commands) {
    const std::string& name = command.path.back();
    const bool is_help = name == "help";  // the overview itself tells of it
    if (!is_help) commands.insert(name + ".md");
    const std::string place =
        is_help ? "#options-before-the-command-and-help" : "commands/" + name + ".md";
    EXPECT_THAT(overview,
                HasSubstr("\n| [`kplog " + name + "`](" + place + ") | " + command.text + " |\n"));
  }
  std::set<std::string> pages;
  for (const auto& page : std::filesystem::directory_iterator(KPLOG_DOCS "/commands"))
    pages.insert(page.path().filename());
  EXPECT_EQ(pages, commands);
}

TEST(ExitStatus, IsToldByTheHelpTheManualAndThePage) {
  const temp_folder folder;
  ASSERT_EQ(run_kplog(folder.path(), "manual .").status, 0);
  const std::string manual = read_whole_file(folder.file("kplog-emit.1"));
  const std::string help = run_kplog(folder.path(), "emit --help").out;
  const std::string page = documentation_page("tools.md");
  for (const exit_status_row& row : exit_status_rows) {
    const std::string status = std::to_string(row.status());
    EXPECT_THAT(help, HasSubstr(" " + status + " " + row.brief));
    EXPECT_THAT(manual, HasSubstr(".TP\n" + status + "\n"));
    EXPECT_THAT(page, HasSubstr("\n| " + status + " | " + row.meaning + " |\n"));
  }
  EXPECT_THAT(manual, HasSubstr("SIGINT came before the input of kplog emit, or of kplog render "
                                R"(\-\-by or \-\-last, had ended.)"
                                "\n"));
}

TEST(ManualPages, FormatterHasNothingAgainstThem) {
  const temp_folder folder;
  const auto run = run_kplog(folder.path(), "manual . && groff -man -Tutf8 -ww -z *.1");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
}

TEST(ManualPages, FolderThatIsMissingGivesStatus3) {
  const temp_folder folder;
  const auto run = run_kplog(folder.path(), "manual none");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot write none/kplog.1: No such file or directory\n");
}
