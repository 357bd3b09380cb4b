// Fingerprints of events.
#include "recording/definitions/fingerprint.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

using attribute_list = std::vector<std::pair<std::string, kp_AttributeType>>;

static uint64_t fingerprint_of(uint32_t id, const attribute_list& attributes) {
  event_fingerprint fingerprint(id);
  for (const auto& [name, type] : attributes) fingerprint.add(name, type);
  return fingerprint.value();
}

// Programs that were compiled hold them.
TEST(Fingerprint, StaysWhatItWasInEveryRelease) {
  EXPECT_EQ(fingerprint_of(0, {}), 0u);
  EXPECT_EQ(fingerprint_of(1001, {}), 8158757963912344451u);
  EXPECT_EQ(fingerprint_of(1001, {{"PACKAGE", TypeMBChar128}, {"SIZE_IN_BYTES", TypeUInt4}}),
            1388839535435874706u);
}

TEST(Fingerprint, OfAPrefixIsThatOfAnEventWithTheseAttributesAlone) {
  event_fingerprint fingerprint(7);
  EXPECT_EQ(fingerprint.value(), fingerprint_of(7, {}));
  fingerprint.add("A", TypeBool);
  EXPECT_EQ(fingerprint.value(), fingerprint_of(7, {{"A", TypeBool}}));
  fingerprint.add("B", TypeDate);
  EXPECT_EQ(fingerprint.value(), fingerprint_of(7, {{"A", TypeBool}, {"B", TypeDate}}));
}

TEST(Fingerprint, IsAnotherForWhateverIsDifferent) {
  const std::string name(20, 'n');
  std::vector<std::pair<uint32_t, attribute_list>> events = {
      {0, {}},
      {1, {}},
      {0xFFFFFFFF, {}},
      {1, {{"", TypeBool}}},
      {1, {{"", TypeBool}, {"", TypeBool}}},
      {1, {{"A", TypeBool}}},
      {1, {{"B", TypeBool}}},
      {1, {{"A", TypeUInt1}}},
      {1, {{std::string(1, '\0'), TypeBool}}},
      {1, {{std::string("A\0", 2), TypeBool}}},
      {1, {{"A", TypeBool}, {"B", TypeDate}}},
      {1, {{"B", TypeDate}, {"A", TypeBool}}},
      {1, {{"AB", TypeBool}, {"", TypeDate}}},
      {1, {{"", TypeBool}, {"AB", TypeDate}}},
  };
  // A name of every length, and with another byte at every place.
  for (size_t length = 3; length < name.size(); ++length) {
    events.push_back({1, {{name.substr(0, length), TypeBool}}});
    std::string other = name;
    other[length] = 'o';
    events.push_back({1, {{other, TypeBool}}});
  }
  std::set<uint64_t> values;
  for (const auto& [id, attributes] : events) values.insert(fingerprint_of(id, attributes));
  EXPECT_EQ(values.size(), events.size());
}
