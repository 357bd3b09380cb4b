// Random sets, and random sets that were changed in one way: whatever the compiler or a reader of
// the source could tell apart, kplog diff shows.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "recording/definitions/compiled_file.h"
#include "tests/command/random_definitions.h"
#include "tools/compare/changes.h"
#include "tools/compare/report.h"
#include "tools/compiled/writer.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

static constexpr unsigned rounds = 4000;

// Changes one thing of a set that is not complete yet; false when it has no such thing.
class set_mutation {
 public:
  set_mutation(definition_set& set, std::mt19937& random) : set_(set), random_(random) {}

  size_t below(size_t bound) {
    return std::uniform_int_distribution<size_t>(0, bound - 1)(random_);
  }

  // --- the set

  bool change_log_version() { return append(set_.log_version.value); }
  bool add_flag() {
    auto& flag = set_.flags["NEW"];
    flag.value = 4;
    return place(flag);
  }
  bool change_flag() { return add_one(set_.flags.begin()->second.value); }
  bool add_retired() { return add_range(set_.retired, {900, 901, here()}); }
  bool add_ids() { return add_range(set_.id_ranges, {900, 901, here()}); }
  bool remove_retired() { return remove(set_.retired); }
  bool remove_ids() { return remove(set_.id_ranges); }
  bool narrow_ids() { return !set_.id_ranges.empty() && add_one(set_.id_ranges.front().first); }

  // --- lists of attributes

  bool add_attribute(bool global) {
    std::vector<attribute_model>* const list = attributes(global);
    if (list == nullptr) return false;
    attribute_model added;
    added.name = {"ADDED", here()};
    added.type = TypeGUID;
    list->insert(list->begin() + static_cast<ptrdiff_t>(below(list->size() + 1)), added);
    return true;
  }
  bool remove_attribute(bool global) { return has(global) && remove(*attributes(global)); }
  bool swap_attributes(bool global) { return has(global) && swap(*attributes(global)); }
  bool rename_attribute(bool global) { return has(global) && append(attribute(global).name.value); }
  bool retype_attribute(bool global) {
    if (!has(global)) return false;
    kp_AttributeType& type = attribute(global).type;
    type = static_cast<kp_AttributeType>(type % TypeGUID + 1);
    return true;
  }
  bool note_attribute(bool global) { return has(global) && append(attribute(global).note); }
  bool redirect_attribute() {
    if (!has(false)) return false;
    placed<std::string>& redirection = attribute(false).redirection;
    return append(redirection.value) && place(redirection);
  }

  // --- events

  bool add_event() {
    event_model added;
    added.name = {"ADDED", here()};
    added.id = {500, here()};
    set_.events.insert(set_.events.begin() + static_cast<ptrdiff_t>(below(set_.events.size() + 1)),
                       added);
    return true;
  }
  bool remove_event() { return remove(set_.events); }
  bool swap_events() { return swap(set_.events); }
  bool rename_event() { return has_event() && append(event().name.value); }
  bool change_id() { return has_event() && add_one(event().id.value); }
  bool change_second_word() { return has_event() && add_one(event().second_word.value); }
  bool note_event() { return has_event() && append(event().note); }
  bool change_flags() {
    if (!has_event()) return false;
    if (event().flag_names.empty())
      event().flag_names.push_back({"SECURITY", here()});
    else
      event().flag_names.pop_back();
    return true;
  }
  bool drop_selector() {
    return has_event() && event().selector.is_given() && (event().selector = {}, true);
  }

  // --- messages

  bool change_default_id() { return has_event() && change_id_of(event().message); }
  bool change_default_text() { return has_event() && change_text_of(event().message); }
  bool change_message_id() { return has_message() && change_id_of(message()); }
  bool change_message_text() { return has_message() && change_text_of(message()); }
  bool change_index() { return has_message() && add_one(message().index.value); }
  bool change_value() { return has_message() && add_one(message().value.value); }
  bool name_message() {
    return has_message() && append(message().name.value) && place(message().name);
  }
  bool remove_message() { return has_message() && remove(event().messages); }
  bool swap_messages() { return has_message() && swap(event().messages); }
  bool add_message() {
    if (!has_event()) return false;
    message_model added;
    added.index = {700, here()};
    added.value = {7, here()};
    event().messages.insert(event().messages.begin(), added);
    return true;
  }

 private:
  text_place here() const { return set_.log_version.place; }
  bool append(std::string& text) { return !(text += "x").empty(); }
  bool add_one(uint32_t& number) { return ++number, true; }
  template <class T>
  bool place(placed<T>& value) {
    return value.place = here(), true;
  }
  static bool add_range(std::vector<id_range>& ranges, const id_range& range) {
    return ranges.push_back(range), true;
  }

  template <class T>
  bool remove(std::vector<T>& list) {
    if (list.empty()) return false;
    list.erase(list.begin() + static_cast<ptrdiff_t>(below(list.size())));
    return true;
  }
  template <class T>
  bool swap(std::vector<T>& list) {
    if (list.size() < 2) return false;
    const size_t first = below(list.size() - 1);
    std::swap(list[first], list[first + 1 + below(list.size() - 1 - first)]);
    return true;
  }

  // The same event, attribute and message, however often one mutation asks.
  bool has_event() {
    if (event_ == no_choice && !set_.events.empty()) event_ = below(set_.events.size());
    return event_ != no_choice;
  }
  event_model& event() { return set_.events[event_]; }
  std::vector<attribute_model>* attributes(bool global) {
    if (global) return &set_.globals;
    return has_event() ? &event().attributes : nullptr;
  }
  bool has(bool global) {
    const auto* const list = attributes(global);
    if (list == nullptr || list->empty()) return false;
    if (item_ == no_choice) item_ = below(list->size());
    return true;
  }
  attribute_model& attribute(bool global) { return (*attributes(global))[item_]; }
  bool has_message() {
    if (!has_event() || event().messages.empty()) return false;
    if (item_ == no_choice) item_ = below(event().messages.size());
    return true;
  }
  message_model& message() { return event().messages[item_]; }

  bool change_id_of(message_model& message) {
    return append(message.id.value) && place(message.id);
  }
  bool change_text_of(message_model& message) {
    placed<std::string>& text = message.raw.is_given() ? message.raw : message.text;
    return append(text.value) && place(text);
  }

  static constexpr size_t no_choice = static_cast<size_t>(-1);

  definition_set& set_;
  std::mt19937& random_;
  size_t event_ = no_choice;
  size_t item_ = no_choice;
};

struct mutation_row {
  const char* name;
  std::function<bool(set_mutation&)> apply;
  bool is_in_source_alone = false;  // the compiled file does not have it
};

static const std::vector<mutation_row> mutations = {
    {"log version", &set_mutation::change_log_version},
    {"flag added", &set_mutation::add_flag, true},
    {"flag changed", &set_mutation::change_flag, true},
    {"retired added", &set_mutation::add_retired, true},
    {"retired removed", &set_mutation::remove_retired, true},
    {"ids added", &set_mutation::add_ids, true},
    {"ids removed", &set_mutation::remove_ids, true},
    {"ids narrowed", &set_mutation::narrow_ids, true},
    {"global added", [](set_mutation& m) { return m.add_attribute(true); }},
    {"global removed", [](set_mutation& m) { return m.remove_attribute(true); }},
    {"globals swapped", [](set_mutation& m) { return m.swap_attributes(true); }},
    {"global renamed", [](set_mutation& m) { return m.rename_attribute(true); }},
    {"global type", [](set_mutation& m) { return m.retype_attribute(true); }},
    {"global note", [](set_mutation& m) { return m.note_attribute(true); }, true},
    {"attribute added", [](set_mutation& m) { return m.add_attribute(false); }},
    {"attribute removed", [](set_mutation& m) { return m.remove_attribute(false); }},
    {"attributes swapped", [](set_mutation& m) { return m.swap_attributes(false); }},
    {"attribute renamed", [](set_mutation& m) { return m.rename_attribute(false); }},
    {"attribute type", [](set_mutation& m) { return m.retype_attribute(false); }},
    {"attribute note", [](set_mutation& m) { return m.note_attribute(false); }, true},
    {"redirection", &set_mutation::redirect_attribute},
    {"event added", &set_mutation::add_event},
    {"event removed", &set_mutation::remove_event},
    {"events swapped", &set_mutation::swap_events},
    {"event renamed", &set_mutation::rename_event, true},
    {"event ID", &set_mutation::change_id},
    {"event flags", &set_mutation::change_flags},
    {"second word", &set_mutation::change_second_word},
    {"event note", &set_mutation::note_event, true},
    {"selector dropped", &set_mutation::drop_selector},
    {"default message ID", &set_mutation::change_default_id},
    {"default message text", &set_mutation::change_default_text},
    {"message ID", &set_mutation::change_message_id},
    {"message text", &set_mutation::change_message_text},
    {"message index", &set_mutation::change_index},
    {"message value", &set_mutation::change_value},
    {"message name", &set_mutation::name_message, true},
    {"message added", &set_mutation::add_message},
    {"message removed", &set_mutation::remove_message},
    {"messages swapped", &set_mutation::swap_messages},
};

// A source as it is read, and later completed.
struct read_source {
  explicit read_source(const std::string& yaml) : text("random.yaml", yaml) {
    read_definition_source(text, set, found);
  }
  // False when something is wrong with it.
  bool complete() {
    complete_definition_set(set, found);
    return found.empty();
  }

  text_file text;
  definition_set set;
  diagnostic_list found;
};

static std::string random_source(random_definitions& random) {
  return random.source() + "ids: [1-20, 30]\nretired: [100-110, 120]\n";
}

// The differences of compiled files of the sets, in words.
static std::string compiled_changes(const std::string& before, const std::string& now) {
  definition_file old_file("old.ldf", before);
  definition_file new_file("new.ldf", now);
  diagnostic_list found;
  EXPECT_TRUE(read_definition_file(old_file, found) && read_definition_file(new_file, found));
  std::string text;
  for (const definition_change& change :
       definition_changes({old_file.set, false}, {new_file.set, false}))
    text += change.text + "\n";
  return text;
}

static std::string source_changes(const definition_set& before, const definition_set& now) {
  std::string text;
  for (const definition_change& change : definition_changes({before}, {now}))
    text += change.text + "\n";
  return text;
}

TEST(DiffOfRandomSets, ShowsEverySingleMutation) {
  random_definitions random(21);
  std::mt19937 choices(22);  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run tries the same cases
  std::map<std::string, unsigned> shown;
  for (unsigned i = 0; i < rounds; ++i) {
    const mutation_row& mutation = mutations[i % mutations.size()];
    const std::string yaml = random_source(random);
    read_source before(yaml);
    read_source now(yaml);
    set_mutation mutate(now.set, choices);
    if (!mutation.apply(mutate) || !before.complete() || !now.complete()) continue;
    const std::string old_bytes = definition_file_bytes(before.set);
    const std::string new_bytes = definition_file_bytes(now.set);
    ASSERT_EQ(old_bytes == new_bytes, compiled_changes(old_bytes, new_bytes).empty())
        << mutation.name << "\n"
        << yaml;
    ASSERT_TRUE(mutation.is_in_source_alone || old_bytes != new_bytes) << mutation.name;
    ASSERT_NE(source_changes(before.set, now.set), "") << mutation.name << "\n" << yaml;
    ++shown[mutation.name];
  }
  for (const mutation_row& mutation : mutations)
    EXPECT_GE(shown[mutation.name], 8u) << mutation.name;
}

TEST(DiffOfRandomSets, DiffersFromNothingInItself) {
  random_definitions random(23);
  for (unsigned i = 0; i < 500; ++i) {
    const std::string yaml = random_source(random);
    read_source before(yaml);
    read_source now(yaml);
    ASSERT_TRUE(before.complete() && now.complete());
    ASSERT_EQ(source_changes(before.set, now.set), "") << yaml;
  }
}

TEST(DiffOfRandomSets, CompiledSetsDifferWhenTheirBytesDo) {
  random_definitions random(24);
  for (unsigned i = 0; i < 1000; ++i) {
    read_source before(random.source());
    read_source now(random.source());
    ASSERT_TRUE(before.complete() && now.complete());
    const std::string old_bytes = definition_file_bytes(before.set);
    const std::string new_bytes = definition_file_bytes(now.set);
    ASSERT_EQ(old_bytes == new_bytes, compiled_changes(old_bytes, new_bytes).empty());
  }
}
