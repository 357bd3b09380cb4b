// Whom differences break, found out by running what they break.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "recording/report/rules.h"
#include "tests/command/command_run.h"
#include "tests/command/diff_source.h"
#include "tests/support/temp_folder.h"

// An event before and after a change, the records of a program that knows the earlier one, and the
// classes that the change breaks.
struct evolution {
  const char* name;
  std::string before;
  std::string now;
  std::string records;
  unsigned breaks;
  unsigned meant =
      0;  // for whom it is different, and no break: a message of its own, not the default
};

static std::string login_event(const std::string& messages, const std::string& head = "") {
  return "  LOGIN: {id: 1, attributes: {USER: Char64, HOW: UInt1}, " +
         (head.empty() ? "select: HOW, message: \"{USER} came\"" : head) + ", messages: [" +
         messages + "]}\n";
}

static const std::string let_in = "{index: 1, value: 0, id: IN, text: \"{USER} was let in\"}";
static const std::string refused = "{index: 2, value: 1, id: OUT, text: \"{USER} was refused\"}";
static const std::string in_and_out = let_in + ", " + refused;
static const std::string login_records =
    "{\"event\":\"LOGIN\",\"attributes\":{\"USER\":\"al\",\"HOW\":0}}\n"
    "{\"event\":\"LOGIN\",\"attributes\":{\"USER\":\"al\",\"HOW\":1}}\n"
    "{\"event\":\"LOGIN\",\"attributes\":{\"USER\":\"al\",\"HOW\":2}}\n"
    "{\"event\":\"LOGIN\",\"attributes\":{\"USER\":\"al\"},\"message_index\":2}\n";

// A record of the event A with X, and one without.
static const std::string x_records =
    "{\"event\":\"A\"}\n{\"event\":\"A\",\"attributes\":{\"X\":1}}\n";

static const std::vector<evolution> evolutions = {
    {"SelectorValuesExchanged", login_event(in_and_out),
     login_event("{index: 1, value: 1, id: IN, text: \"{USER} was let in\"},"
                 "{index: 2, value: 0, id: OUT, text: \"{USER} was refused\"}"),
     login_records, breaks_source | breaks_records},
    {"SelectorIndexesExchanged", login_event(in_and_out),
     login_event("{index: 2, value: 0, id: IN, text: \"{USER} was let in\"},"
                 "{index: 1, value: 1, id: OUT, text: \"{USER} was refused\"}"),
     login_records, breaks_source | breaks_records | breaks_translations},
    {"SelectorIndexIsAnother", login_event(in_and_out),
     login_event(let_in + ", {index: 3, value: 1, id: OUT, text: \"{USER} was refused\"}"),
     login_records, breaks_source | breaks_records},
    {"SelectorTextsExchanged", login_event(in_and_out),
     login_event("{index: 1, value: 0, id: IN, text: \"{USER} was refused\"},"
                 "{index: 2, value: 1, id: OUT, text: \"{USER} was let in\"}"),
     login_records, breaks_records | breaks_translations},
    {"SelectorMessagesExchanged", login_event(in_and_out),
     login_event("{index: 1, value: 0, id: OUT, text: \"{USER} was refused\"},"
                 "{index: 2, value: 1, id: IN, text: \"{USER} was let in\"}"),
     login_records, breaks_records | breaks_translations},
    {"SelectorTextIsTheDefault", login_event(in_and_out),
     login_event("{index: 1, value: 0, id: IN, text: \"{USER} came\"}, " + refused), login_records,
     breaks_records | breaks_translations},
    {"SelectorIdIsAnotherMessage", login_event(in_and_out),
     login_event("{index: 1, value: 0, id: ELSE, text: \"{USER} is gone\"}, " + refused),
     login_records, breaks_records | breaks_translations},
    {"SelectorIdOfTheSameText", login_event(in_and_out),
     login_event("{index: 1, value: 0, id: ELSE, text: \"{USER} was let in\"}, " + refused),
     login_records, breaks_translations},
    {"SelectorMessageRemoved", login_event(in_and_out), login_event(let_in), login_records,
     breaks_source | breaks_records | breaks_translations},
    {"SelectorMessageAdded", login_event(let_in), login_event(in_and_out),
     "{\"event\":\"LOGIN\",\"attributes\":{\"USER\":\"al\",\"HOW\":0}}\n", breaks_translations},
    {"SelectorMessageAddedForRecordsThatThereAre", login_event(let_in), login_event(in_and_out),
     "{\"event\":\"LOGIN\",\"attributes\":{\"USER\":\"al\",\"HOW\":1}}\n", breaks_translations,
     breaks_records},
    {"NoSelector", login_event(in_and_out), login_event(in_and_out, "message: \"{USER} came\""),
     login_records, breaks_source | breaks_records},
    {"DefaultIdIsAnother", login_event(in_and_out),
     login_event(in_and_out, "select: HOW, message: {id: CAME, text: \"{USER} came\"}"),
     login_records, breaks_source | breaks_records | breaks_translations},
    {"EventRenamed", "  A: {id: 1, message: Here we are}\n", "  B: {id: 1, message: Here we are}\n",
     "{\"event\":\"A\"}\n", breaks_source | breaks_records | breaks_translations},
    {"EventRenamedButForItsMessage", "  A: {id: 1, message: {id: M, text: Here we are}}\n",
     "  B: {id: 1, message: {id: M, text: Here we are}}\n", "{\"event\":\"M\"}\n", breaks_source},
    {"DefaultIdShared", "  A: {id: 1, message: Here}\n",
     "  A: {id: 1, message: Here}\n  B: {id: 2, message: {id: A, text: Here}}\n",
     "{\"event\":\"A\"}\n", breaks_source | breaks_records},
    {"TypeNeedsAnotherTemplate", "  A: {id: 1, attributes: {X: UInt2}, message: \"It is {X}\"}\n",
     "  A: {id: 1, attributes: {X: Char32}, message: \"It is {X}\"}\n", x_records,
     breaks_source | breaks_records | breaks_translations},
    {"TypeOfEveryEventNeedsAnotherTemplate", "  A: {id: 1, message: \"It is {G}\"}\n",
     "  A: {id: 1, attributes: {G: Char32}, message: \"It is {G}\"}\n",
     "{\"event\":\"A\"}\n{\"event\":\"A\",\"attributes\":{\"G\":1}}\n",
     breaks_source | breaks_records | breaks_translations},
    {"TypeOfTheSameTemplate", "  A: {id: 1, attributes: {X: UInt2}, message: \"It is {X}\"}\n",
     "  A: {id: 1, attributes: {X: UInt4}, message: \"It is {X}\"}\n",
     "{\"event\":\"A\",\"attributes\":{\"X\":1}}\n", breaks_source | breaks_records},
    {"AttributeRemoved", "  A: {id: 1, attributes: {X: UInt2}, message: \"It is {X}\"}\n",
     "  A: {id: 1, message: It is}\n", "{\"event\":\"A\",\"attributes\":{\"X\":1}}\n",
     breaks_source | breaks_records | breaks_translations},
    {"TypeInCatalogsNeedsAnotherTemplate",
     "  A: {id: 1, attributes: {X: UInt2}, message: {id: M, text: \"It is {X}\"}}\n",
     "  A: {id: 1, attributes: {X: Char32}, message: {id: M}}\n",
     "{\"event\":\"M\",\"attributes\":{\"X\":1}}\n",
     breaks_source | breaks_records | breaks_translations},
    {"Nothing", login_event(in_and_out), login_event(in_and_out), login_records, 0},
};

class DiffAndWhatComesOfIt : public testing::TestWithParam<evolution> {
 protected:
  DiffAndWhatComesOfIt() {
    const std::string head = "attributes: {G: UInt2}\n";
    folder_.write("old.yaml", source_of(GetParam().before, head));
    folder_.write("new.yaml", source_of(GetParam().now, head));
    folder_.write("records", GetParam().records);
    folder_.write("de.po",
                  "msgid \"\"\nmsgstr \"\"\n\"Language: de\\n\"\n"
                  "\"Content-Type: text/plain; charset=UTF-8\\n\"\n");
    run("compile old.yaml -o old.ldf", 0);
    run("compile new.yaml -o new.ldf", 0);
    run("catalog build old.yaml --po de.po -o messages", 0);
    run("emit --definitions old.ldf records --to json:stored", 0);
  }

  std::string run(const std::string& arguments, int status) const {
    const auto result = run_kplog(folder_.path(), arguments);
    EXPECT_EQ(result.status, status) << arguments << "\n" << result.err;
    return result.out;
  }

  // What is different for records, and for those who read the earlier catalog.
  unsigned broken() const {
    unsigned classes = 0;
    const auto producer =
        run_kplog(folder_.path(), "emit --definitions new.ldf records --to json:-");
    if (producer.status != 0) classes |= breaks_source;
    if (rendered("new.ldf") != rendered("old.ldf")) classes |= breaks_records;
    const std::string catalog = " --catalog messages --locale de";
    const bool has_messages = rendered("new.ldf").find("status 0") != std::string::npos;
    if (has_messages && rendered("new.ldf" + catalog).find("status 0") == std::string::npos)
      classes |= breaks_translations;
    return classes;
  }

  std::string rendered(const std::string& options) const {
    const auto result = run_kplog(folder_.path(), "render stored --definitions " + options);
    return result.out + "status " + std::to_string(result.status);
  }

  unsigned told() const {
    const auto json = nlohmann::json::parse(run("diff --format json old.yaml new.yaml", 0));
    unsigned classes = 0;
    for (const change_class_row& row : change_classes)
      if (json["breaks"][row.name] != 0) classes |= row.bit;
    return classes;
  }

 private:
  const temp_folder folder_;
};

TEST_P(DiffAndWhatComesOfIt, IsTold) {
  EXPECT_EQ(told(), GetParam().breaks);
  EXPECT_EQ(broken() & ~(told() | GetParam().meant), 0u);
}

INSTANTIATE_TEST_SUITE_P(Evolutions, DiffAndWhatComesOfIt, testing::ValuesIn(evolutions),
                         [](const auto& row) { return std::string(row.param.name); });
