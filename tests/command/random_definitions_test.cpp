// Random sets: what compiles is loaded, what is refused beside an STD set is refused by the
// library, and a dump compiles to what it was made of.
#include <gmock/gmock.h>

#include <sstream>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "logging/log_definition.h"
#include "recording/definitions/merged_set.h"
#include "tests/command/random_definitions.h"
#include "tests/support/temp_folder.h"
#include "tools/compiled/verify.h"
#include "tools/compiled/writer.h"
#include "tools/dump/yaml.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

static constexpr unsigned set_count = 1500;

static std::string shown(const diagnostic_list& found, const text_file& source) {
  std::ostringstream out;
  found.write(out, {&source}, diagnostic_format::text, false);
  return out.str();
}

// A source, compiled alone or beside an STD set.
struct compiled_source {
  compiled_source(const std::string& yaml, const std_definitions* standard)
      : text("random.yaml", yaml) {
    read_definition_source(text, set, found);
    complete_definition_set(set, found, standard);
  }

  text_file text;
  definition_set set;
  diagnostic_list found;
};

static std::string compiled(const std::string& yaml) {
  const compiled_source source(yaml, nullptr);
  EXPECT_EQ(shown(source.found, source.text), "") << yaml;
  return definition_file_bytes(source.set);
}

class DefinitionSets : public testing::Test {
 protected:
  void set_standard(const std::string& bytes) {
    kp_LOG_LogConfig::ClearDefinitions();
    kp_LOG_LogConfig::SetDefinitionPath(folder_.write("std.ldf", bytes).c_str());
  }

  void set_auxiliary(const std::string& bytes) {
    kp_LOG_LogConfig::SetAuxDefinitionPath(folder_.write("aux.ldf", bytes).c_str());
  }

  // Why the library refuses an AUX file beside the STD file; "" when it does not.
  std::string refusal_of(const std::string& bytes) {
    try {
      set_auxiliary(bytes);
    } catch (const KPX_logging_invalid_definition& error) {
      return error.what();
    }
    return "";
  }

  static _kp_LOG_log_definition* find(unsigned id) {
    return kp_LOG_LogConfig::GetDefinitionTable()->find_entry(id);
  }

 private:
  settings_guard guard_;
  temp_folder folder_;
};

static void expect_attributes(const event_model& event, const _kp_LOG_log_definition& definition) {
  ASSERT_EQ(definition.get_n_attributes(), event.attributes.size());
  for (size_t i = 0; i < event.attributes.size(); ++i) {
    const char* name = nullptr;
    const char* redirection = nullptr;
    unsigned char type = 0;
    definition.get_attr_info_by_index(static_cast<unsigned char>(i), name, type, redirection);
    EXPECT_EQ(name, event.attributes[i].name.value);
    EXPECT_EQ(type, event.attributes[i].type);
    EXPECT_EQ(redirection == nullptr ? "" : redirection, event.attributes[i].redirection.value);
  }
}

// Texts that a definition does not have are null.
static std::string text_of(const char* text) {
  return text == nullptr ? "" : text;
}

static void expect_messages(const event_model& event, const _kp_LOG_log_definition& definition) {
  EXPECT_EQ(text_of(definition.get_default_msg_id()), event.message.id.value);
  EXPECT_EQ(text_of(definition.get_default_msg_text()), event.message.template_bytes);
  ASSERT_EQ(definition.get_n_selector_msgs(), event.messages.size());
  for (const message_model& message : event.messages) {
    const auto* loaded = definition.get_selector_msg_by_index(message.index.value);
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded, definition.get_selector_msg_by_value(message.value.value));
    EXPECT_EQ(text_of(loaded->get_msg_id()), message.id.value);
    EXPECT_EQ(text_of(loaded->get_msg_text()), message.template_bytes);
  }
}

static void expect_loaded(const event_model& event, const _kp_LOG_log_definition* definition) {
  ASSERT_NE(definition, nullptr);
  EXPECT_EQ(definition->get_entry_id(), event.id.value);
  EXPECT_EQ(definition->get_second_word(), event.second_word.value);
  EXPECT_EQ(definition->get_property_flags(), event.flags);
  const auto* const selector = definition->get_selector_attribute();
  EXPECT_EQ(selector == nullptr ? "" : selector->get_name(), event.selector.value);
  expect_attributes(event, *definition);
  expect_messages(event, *definition);
}

TEST_F(DefinitionSets, LibraryLoadsWhateverCompiles) {
  random_definitions random(11);
  size_t events = 0;
  for (unsigned i = 0; i < set_count; ++i) {
    const std::string yaml = random.source();
    const compiled_source source(yaml, nullptr);
    ASSERT_EQ(shown(source.found, source.text), "") << yaml;
    set_standard(definition_file_bytes(source.set));
    for (const event_model& event : source.set.events) expect_loaded(event, find(event.id.value));
    ASSERT_FALSE(HasFailure()) << yaml;
    events += source.set.events.size();
  }
  EXPECT_GT(events, set_count);
}

TEST_F(DefinitionSets, CompilerAndLibraryRefuseTheSameAuxSets) {
  random_definitions random(12);
  size_t refused = 0;
  size_t merged = 0;
  for (unsigned i = 0; i < 2 * set_count; ++i) {
    const std::string std_yaml = random.source();
    const std::string aux_yaml = random.source();
    const compiled_source std_source(std_yaml, nullptr);
    ASSERT_TRUE(std_source.found.empty());
    const std_definitions standard(std_source.set);
    const compiled_source aux_source(aux_yaml, &standard);
    set_standard(definition_file_bytes(std_source.set));
    const std::string refusal = refusal_of(definition_file_bytes(aux_source.set));
    ASSERT_EQ(aux_source.found.empty(), refusal.empty())
        << refusal << "\n"
        << shown(aux_source.found, aux_source.text) << std_yaml << aux_yaml;
    if (!refusal.empty()) ++refused;
    for (const event_model& event : aux_source.set.events)
      if (refusal.empty() && standard.find(event.id.value) != nullptr) ++merged;
  }
  EXPECT_GT(refused, set_count / 10);
  EXPECT_GT(merged, set_count / 10);
}

static std::string global_attributes() {
  std::string text;
  for (unsigned i = 0; i < _kp_LOG_log_definition::n_global_attr_entries; ++i) {
    const char* name = nullptr;
    unsigned char type = 0;
    _kp_LOG_log_definition::get_global_attr_info_by_index(static_cast<unsigned char>(i), name,
                                                          type);
    text += name + (" " + std::to_string(type)) + "\n";
  }
  return text;
}

TEST_F(DefinitionSets, MergedSetIsWhatTheLibraryMerges) {
  random_definitions random(19);
  size_t merged_events = 0;
  for (unsigned i = 0; i < set_count / 3; ++i) {
    const std::string std_yaml = random.source();
    const compiled_source std_source(std_yaml, nullptr);
    const std_definitions standard(std_source.set);
    const std::string aux_yaml = random.auxiliary();
    const compiled_source aux_source(aux_yaml, &standard);
    if (!aux_source.found.empty()) continue;
    const definition_set merged = merged_set(standard.set(), aux_source.set);
    set_standard(definition_file_bytes(std_source.set));
    ASSERT_EQ(refusal_of(definition_file_bytes(aux_source.set)), "");
    const std::string globals = global_attributes();
    for (event_model event : merged.events) {
      const bool is_aux_alone = standard.find(event.id.value) == nullptr;
      const bool is_whole =
          !event.message.id.value.empty() && !event.message.template_bytes.empty();
      if (is_aux_alone && !is_whole) event.message = {};  // the library drops it
      expect_loaded(event, find(event.id.value));
    }
    set_standard(definition_file_bytes(merged));
    for (const event_model& event : merged.events) expect_loaded(event, find(event.id.value));
    ASSERT_EQ(global_attributes(), globals);
    ASSERT_FALSE(HasFailure()) << std_yaml << aux_yaml;
    const size_t in_both =
        std_source.set.events.size() + aux_source.set.events.size() - merged.events.size();
    merged_events += in_both;
  }
  EXPECT_GT(merged_events, set_count / 100);
}

TEST_F(DefinitionSets, CompiledStdSetRefusesWhatItsSourceRefuses) {
  random_definitions random(13);
  for (unsigned i = 0; i < set_count; ++i) {
    const compiled_source std_source(random.source(), nullptr);
    definition_file std_file("std.ldf", definition_file_bytes(std_source.set));
    diagnostic_list none;
    ASSERT_TRUE(read_definition_file(std_file, none));
    const std_definitions from_source(std_source.set);
    const std_definitions from_file(std_file.set);
    const std::string aux_yaml = random.source();
    const compiled_source one(aux_yaml, &from_source);
    const compiled_source other(aux_yaml, &from_file);
    ASSERT_EQ(one.found.size(), other.found.size()) << aux_yaml;
    ASSERT_EQ(definition_file_bytes(one.set), definition_file_bytes(other.set));
  }
}

TEST_F(DefinitionSets, CheckHasNothingAgainstCompiledFiles) {
  random_definitions random(14);
  for (unsigned i = 0; i < set_count; ++i) {
    const std::string yaml = random.source();
    definition_file file("random.ldf", compiled(yaml));
    diagnostic_list found;
    read_definition_file(file, found);
    verify_definition_file(file, nullptr, found);
    ASSERT_EQ(shown(found, file.source), "") << yaml;
  }
}

static std::string dumped(const std::string& bytes, const std_definitions* standard = nullptr) {
  definition_file file("random.ldf", bytes);
  diagnostic_list found;
  EXPECT_TRUE(read_definition_file(file, found));
  std::string yaml = definition_yaml(file, found, standard);
  EXPECT_EQ(shown(found, file.source), "") << yaml;
  return yaml;
}

TEST_F(DefinitionSets, DumpsCompileToTheSameBytes) {
  random_definitions random(15);
  for (unsigned i = 0; i < set_count; ++i) {
    const std::string yaml = random.source();
    const std::string bytes = compiled(yaml);
    const std::string dump = dumped(bytes);
    ASSERT_EQ(compiled(dump), bytes) << yaml << dump;
    ASSERT_EQ(dumped(compiled(dump)), dump);
    ASSERT_FALSE(HasFailure()) << yaml;
  }
}

static std::string compiled_beside(const std::string& yaml, const std_definitions& standard) {
  const compiled_source source(yaml, &standard);
  EXPECT_EQ(shown(source.found, source.text), "") << yaml;
  return definition_file_bytes(source.set);
}

static size_t count_of(const std::string& text, const std::string& what) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) ++count;
  return count;
}

TEST_F(DefinitionSets, DumpsOfAuxSetsCompileToTheSameBytesBesideTheirStdSets) {
  random_definitions random(16);
  size_t compared = 0;
  for (unsigned i = 0; i < 2 * set_count; ++i) {
    const compiled_source std_source(random.source(), nullptr);
    const std_definitions standard(std_source.set);
    const std::string yaml = random.auxiliary();
    const compiled_source source(yaml, &standard);
    if (!source.found.empty()) continue;
    const std::string bytes = definition_file_bytes(source.set);
    const std::string dump = dumped(bytes, &standard);
    ASSERT_EQ(compiled_beside(dump, standard), bytes) << yaml << dump;
    ASSERT_EQ(dumped(compiled_beside(dump, standard), &standard), dump);
    ASSERT_EQ(count_of(dump, "raw: "), count_of(yaml, "raw: ")) << yaml << dump;
    ASSERT_FALSE(HasFailure()) << yaml;
    if (!source.set.events.empty()) ++compared;
  }
  EXPECT_GT(compared, set_count / 2);
}

TEST_F(DefinitionSets, DumpsOfAuxSetsWithoutTheirStdSetsCompileToTheSameBytes) {
  random_definitions random(17);
  size_t raw = 0;
  size_t selected = 0;
  for (unsigned i = 0; i < set_count; ++i) {
    const compiled_source std_source(random.source(), nullptr);
    const std_definitions standard(std_source.set);
    const compiled_source source(random.auxiliary(), &standard);
    if (!source.found.empty()) continue;
    definition_file file("random.ldf", definition_file_bytes(source.set));
    diagnostic_list found;
    ASSERT_TRUE(read_definition_file(file, found));
    const std::string dump = definition_yaml(file, found);
    ASSERT_EQ(found.count(rule_severity::error), 0u) << shown(found, file.source);
    ASSERT_EQ(compiled_beside(dump, standard), file.source.bytes()) << dump;
    if (dump != dumped(std::string(file.source.bytes()), &standard)) ++raw;
    selected += found.size();
  }
  EXPECT_GT(raw, 50u);
  EXPECT_GT(selected, 5u);
}
