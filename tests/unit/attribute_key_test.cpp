// Adding by key, held against adding by name: every outcome is the same.
#include "kp_LOG_AttributeKey.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include "kp_LOG.h"
#include "logging/def_read.h"
#include "logging/ldf_load.h"
#include "logging/logentry_i.h"
#include "tests/support/failing.h"
#include "tests/support/loaded_definitions.h"

TEST(AttributeKey, IsMadeWhileCompiling) {
  static constexpr kp_LOG_AttributeKey key("PORT", 2);
  static_assert(key.length() == 4 && key.number() == 2 && key.hash() != 0);
  EXPECT_STREQ(key.name(), "PORT");
  EXPECT_EQ(key.hash(), my_hashcode("PORT"));
  static constexpr kp_LOG_AttributeKey of_many_bytes("GRÖẞE_OF_A_NAME_OF_MORE_THAN_15_BYTES", 255);
  static_assert(of_many_bytes.number() == 255);
  EXPECT_EQ(of_many_bytes.hash(), my_hashcode(of_many_bytes.name()));
}

TEST(AttributeKey, HasTheWordsThatNamesHaveAtRunTime) {
  static constexpr kp_LOG_AttributeKey keys[] = {{"", 0},
                                                 {"A", 0},
                                                 {"AB", 0},
                                                 {"\xff"
                                                  "BC",
                                                  0},
                                                 {"AB\xff"
                                                  "D",
                                                  0},
                                                 {"ABCDEFG", 0},
                                                 {"ABCDEFGH", 0},
                                                 {"ABCDEFGH\xff", 0},
                                                 {"ABCDEFGHIJKLMNOP", 0},
                                                 {"GR\xc3\x96SSE_OF_A_NAME", 0}};
  for (const kp_LOG_AttributeKey& key : keys) {
    const std::string name = key.name();
    EXPECT_TRUE(key.words() == _kp_LOG_name_words(name.c_str(), name.size())) << name;
  }
}

TEST(AttributeKey, ANullNameIsAnEmptyOne) {
  static constexpr kp_LOG_AttributeKey key(nullptr, 0);
  EXPECT_STREQ(key.name(), "");
  EXPECT_EQ(key.length(), 0U);
}

// --- Every add, by key and by name --------------------------------------------------------------

// An add of one value by name and by key.
struct add_pair {
  std::function<void(kp_LOG_LogEntry&, const char*)> by_name;
  std::function<void(kp_LOG_LogEntry&, const kp_LOG_AttributeKey&)> by_key;
};

// A short text and one that is too long for every size class.
static const std::string long_text(3000, 'x');

#define ADDS(operation, value)                                                         \
  add_pair {                                                                           \
    [](kp_LOG_LogEntry& e, const char* name) { e.AddAttrib##operation(name, value); }, \
        [](kp_LOG_LogEntry& e, const kp_LOG_AttributeKey& key) {                       \
          e.AddKeyed##operation(key, value);                                           \
        }                                                                              \
  }

static std::vector<add_pair> every_add() {
  return {ADDS(Bool, true),
          ADDS(1u, 200),
          ADDS(1, -7),
          ADDS(2u, 60000),
          ADDS(2, -300),
          ADDS(4u, 4000000000U),
          ADDS(4, -70000),
          ADDS(Float8, 0.625),
          ADDS(Str, "a\nb"),
          ADDS(Str, long_text.c_str()),
          ADDS(Str, nullptr),
          ADDS(MBStr, "\u00e9\r"),
          ADDS(MBStr, long_text.c_str()),
          ADDS(MBStr, nullptr),
          ADDS(Time, some_time())};
}

static std::string value_of(const kp_LOG_LogEntry& entry, const char* name, kp_AttributeType type) {
  if (type >= TypeChar32 && type <= TypeChar2K) return entry.GetAttribStr(name);
  if (is_unicode_string_attribute(type)) return entry.GetAttribMBStr(name);
  if (is_time_attribute(type))
    return entry.GetAttribTime(name).compare_time(some_time()) == 0 ? "some time" : "another time";
  if (type == TypeFloat) return std::to_string(entry.GetAttribFloat8(name));
  if (type == TypeBool) return entry.GetAttribBool(name) ? "true" : "false";
  return std::to_string(entry._get_imp().get_attrib_as_4(name));
}

// What became of an add, and of the entry.
template <class Add>
static std::string outcome_of(kp_LOG_LogEntry& entry, Add&& add) {
  std::string told;
  try {
    add();
  } catch (const kp_EXCEPTION_base& error) {
    told = std::string(typeid(error).name()) + ": " + error.what();
  }
  kp_LOG_ForEachAttribute(entry, [&](const char* name, kp_AttributeType type) {
    told += std::string("\n") + name + " of type " + std::to_string(type) + ": " +
            value_of(entry, name, type);
  });
  return told;
}

// Adds to two entries of entry type 17, twice to each.
static void expect_same(const add_pair& add, const char* name, unsigned number) {
  const kp_LOG_AttributeKey key(name, static_cast<unsigned char>(number));
  kp_LOG_LogEntry by_name(17, 3);
  kp_LOG_LogEntry by_key(17, 3);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(outcome_of(by_key, [&] { add.by_key(by_key, key); }),
              outcome_of(by_name, [&] { add.by_name(by_name, name); }))
        << name << " at " << number;
}

// Of the attributes of ldf_with_every_type, of global ones, one that is not declared and none.
static void expect_all_same() {
  for (const add_pair& add : every_add()) {
    for (unsigned type = 1; type <= 24; ++type)
      for (unsigned number : {type - 1, type, 0U, 255U})
        expect_same(add, name_of_type(static_cast<int>(type)).c_str(), number);
    for (const char* name : {"SEVERITY_CODE", "COMPUTER_NAME", "NOT_DECLARED", ""})
      for (unsigned number : {0U, 23U, 24U}) expect_same(add, name, number);
  }
}

TEST(AttributeKeyAdds, AreThoseByName) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  expect_all_same();
}

TEST(AttributeKeyAdds, AreThoseByNameWhereTextsAreCut) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  kp_LOG_LogConfig::SetActionAttrLenExceed(1);
  expect_all_same();
}

TEST(AttributeKeyAdds, WriteTheDebugLinesOfThoseByName) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 3);
  for (const char* name : {"A6", "A9", "NOT_DECLARED", ""})
    for (const add_pair& add : every_add()) {
      const auto lines = [&](auto&& operation) {
        const debug_log_in_temp_folder log(9);
        outcome_of(entry, operation);
        return log.lines();
      };
      EXPECT_EQ(lines([&] { add.by_key(entry, kp_LOG_AttributeKey(name, 5)); }),
                lines([&] { add.by_name(entry, name); }));
    }
}

TEST(AttributeKeyAdds, AreRefusedByAnEntryWithoutADefinition) {
  for (const add_pair& add : every_add()) {
    kp_LOG_LogEntry entry;
    EXPECT_EQ(outcome_of(entry, [&] { add.by_key(entry, kp_LOG_AttributeKey("A6", 5)); }),
              outcome_of(entry, [&] { add.by_name(entry, "A6"); }));
  }
}

// --- Definitions that are others than the program's ---------------------------------------------

static ldf_file file_of(const std::vector<ldf_attribute>& attributes,
                        const std::vector<ldf_attribute>& globals = {}) {
  return {.globals = globals, .entries = {{.id = 17, .attributes = attributes}}};
}

// A program knows A, a UInt4, and B, a Char32, by the numbers 0 and 1.
TEST(AttributeKeyAdds, GoByNameInDefinitionsThatChanged) {
  const loaded_definitions definitions(file_of({{"A", TypeUInt4}, {"B", TypeChar32}}));
  ldf_file twice = file_of({{"A", TypeChar32}, {"A", TypeUInt4}, {"B", TypeChar32}});
  twice.entries[0].selector = "A";
  const ldf_file changed[] = {
      file_of({{"B", TypeChar32}, {"A", TypeUInt4}}),                    // moved
      file_of({{"N", TypeUInt4}, {"A", TypeUInt4}, {"B", TypeChar32}}),  // another before them
      file_of({{"A", TypeChar32}, {"B", TypeUInt4}}),                    // retyped
      file_of({{"A", TypeUInt2}, {"B", TypeChar64}}),                    // a smaller, a larger
      file_of({{"A2", TypeUInt4}, {"B", TypeChar32}}),                   // renamed
      file_of({{"B", TypeChar32}}),                                      // removed
      file_of({}),                                                       // all of them
      file_of({}, {{"A", TypeUInt4}, {"B", TypeChar32}}),                // global now
      file_of({{"A", TypeUInt4, "R"}, {"B", TypeChar32, "R"}}),          // redirected
      twice,                                                             // the last one counts
  };
  for (const ldf_file& file : changed) {
    definitions.load(file);
    for (const add_pair& add : every_add()) {
      expect_same(add, "A", 0);
      expect_same(add, "B", 1);
    }
  }
}

// Names that are longer than their words and differ in one byte, at each other's number.
TEST(AttributeKeyAdds, TellLongNamesApart) {
  for (const size_t length : {17U, 24U, 25U, 33U}) {
    for (const size_t at : {size_t{7}, size_t{8}, length / 2, length - 9, length - 8}) {
      const std::string one(length, 'A');
      std::string other = one;
      other[at] = 'B';
      const loaded_definitions definitions(file_of({{one, TypeUInt4}, {other, TypeSInt4}}));
      for (const add_pair& add : every_add())
        for (const unsigned number : {0U, 1U}) {
          expect_same(add, one.c_str(), number);
          expect_same(add, other.c_str(), number);
        }
    }
  }
}

// Names of one hash at each other's number.
TEST(AttributeKeyAdds, TellNamesOfTheSameHashApart) {
  const std::string one = "Bo";
  const std::string other = {'C', static_cast<char>('o' - 37)};
  ASSERT_EQ(my_hashcode(one.c_str()), my_hashcode(other.c_str()));
  const loaded_definitions definitions(file_of({{one, TypeUInt4}, {other, TypeSInt4}}));
  for (const add_pair& add : every_add())
    for (unsigned number : {0U, 1U, 2U}) {
      expect_same(add, one.c_str(), number);
      expect_same(add, other.c_str(), number);
    }
}

TEST(AttributeKeyAdds, GoByNameInWhatAnAuxiliaryFileAdds) {
  const loaded_definitions definitions(file_of({{"A", TypeUInt4}}));
  const temp_folder folder;
  const std::string path = folder.write("aux.ldf", file_of({{"B", TypeChar32}}).bytes());
  kp_LOG_LogConfig::SetAuxDefinitionPath(path.c_str());
  for (const add_pair& add : every_add())
    for (unsigned number : {0U, 1U, 2U}) {
      expect_same(add, "A", number);
      expect_same(add, "B", number);
    }
}

TEST(AttributeKeyAdds, TakeWhatIsDeclaredAtRunTime) {
  const loaded_definitions definitions(file_of({{"A", TypeUInt4}}));
  static constexpr kp_LOG_AttributeKey late("LATE", 1);
  kp_LOG_LogEntry entry(17, 3);
  EXPECT_THROW(entry.AddKeyed2u(late, 1), KPX_logging_invalid_attribute_name);
  ASSERT_TRUE(kp_LOG_LogEntry::AddAttributeDefinition(17, "LATE", TypeUInt2));
  entry.AddKeyed2u(late, 1);
  EXPECT_EQ(entry.GetAttrib2u("LATE"), 1);
}

// --- Failing allocations ------------------------------------------------------------------------

TEST(AttributeKeyAdds, LeaveTheEntryAsItWasWhereAnAllocationFails) {
  const loaded_definitions definitions(ldf_with_every_type());
  const std::string text(2000, 'x');
  const std::function<void(kp_LOG_LogEntry&)> adds[] = {
      [](kp_LOG_LogEntry& entry) { entry.AddKeyed4u(kp_LOG_AttributeKey("A6", 5), 1); },
      [](kp_LOG_LogEntry& entry) { entry.AddKeyedTime(kp_LOG_AttributeKey("A21", 20), kp_Time()); },
      [&](kp_LOG_LogEntry& entry) {
        entry.AddKeyedStr(kp_LOG_AttributeKey("A14", 13), text.c_str());
      },
      [&](kp_LOG_LogEntry& entry) {
        entry.AddKeyedMBStr(kp_LOG_AttributeKey("A20", 19), text.c_str());
      }};
  for (const auto& add : adds) {
    kp_LOG_LogEntry entry(17, 5);
    entry.AddAttribBool("A1", true);
    const std::string before = outcome_of(entry, [] {});
    for_each_failing_new([&] { add(entry); },
                         [&](const std::exception_ptr& outcome) {
                           expect_memory_alloc(outcome);
                           EXPECT_EQ(outcome_of(entry, [] {}), before);
                         });
    EXPECT_NE(outcome_of(entry, [] {}), before);
  }
}

// A file may declare one.
TEST(AttributeKey, AnEmptyNameIsRefusedWhereOneIsDeclared) {
  const loaded_definitions definitions(
      {.entries = {{.id = 17, .attributes = {{"", TypeUInt4}, {"A", TypeChar32}}}}});
  kp_LOG_LogEntry entry(17, 0);
  EXPECT_THROW(entry.AddKeyed4u(kp_LOG_AttributeKey("", 0), 1), KPX_logging_illegal_argument);
}

TEST(AttributeKey, OfTwoAttributesOfOneNameTheFirstCounts) {
  const loaded_definitions definitions(
      {.entries = {{.id = 17, .attributes = {{"A", TypeUInt4}, {"B", TypeChar32}}}}});
  _kp_LOG_log_definition* const definition = kp_LOG_LogConfig::GetDefinitionTable()->find_entry(17);
  definition->_find_attr_entry_by_name("B")->set_name("A");
  kp_LOG_LogEntry entry(17, 0);
  EXPECT_THROW(entry.AddKeyedStr(kp_LOG_AttributeKey("A", 1), "x"),
               KPX_logging_attribute_type_mismatch);
  entry.AddKeyed4u(kp_LOG_AttributeKey("A", 1), 7);
  EXPECT_EQ(entry.GetAttrib4u("A"), 7U);
}
