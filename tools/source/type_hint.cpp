#include "tools/source/type_hint.h"

#include <algorithm>
#include <array>

#include "kp_LOG_AttributeType.h"
#include "recording/text/words.h"

static constexpr std::string_view type_prefix = "Type";

static std::vector<std::string_view> short_type_names() {
  std::vector<std::string_view> names;
  for (const _kp_LOG_attribute_type_row& row : AttributeTypeList)
    if (row.name != nullptr) names.push_back(std::string_view(row.name).substr(type_prefix.size()));
  return names;
}

// What types are called elsewhere, in lower case, and what to use here.
struct foreign_type_row {
  std::string_view name;
  const char* advice;
};

static constexpr const char* no_64_bits =
    "there is no integer of 64 bits; UInt4 and SInt4 have 32, and a Char32 has room for its digits";
static constexpr const char* texts =
    "use one of Char32 to Char2K, which count bytes, or of MBChar32 to MBChar2K, which count "
    "characters";

static constexpr auto foreign_types = std::to_array<foreign_type_row>({
    {"uint8", "integers count bytes, and 8 bits are a UInt1; there is no integer of 64 bits"},
    {"int8", "integers count bytes, and 8 bits are a SInt1; there is no integer of 64 bits"},
    {"sint8", "integers count bytes, and 8 bits are a SInt1; there is no integer of 64 bits"},
    {"byte", "use a UInt1"},
    {"int1", "use a SInt1"},
    {"uint16", "integers count bytes; use a UInt2"},
    {"int16", "integers count bytes; use a SInt2"},
    {"sint16", "integers count bytes; use a SInt2"},
    {"short", "use a SInt2"},
    {"int2", "use a SInt2"},
    {"uint32", "integers count bytes; use a UInt4"},
    {"int32", "integers count bytes; use a SInt4"},
    {"sint32", "integers count bytes; use a SInt4"},
    {"int4", "use a SInt4"},
    {"int", "use a SInt4"},
    {"integer", "use a SInt4"},
    {"uint", "use a UInt4"},
    {"unsigned", "use a UInt4"},
    {"number", "use a UInt4, a SInt4 or a Float"},
    {"uint64", no_64_bits},
    {"int64", no_64_bits},
    {"sint64", no_64_bits},
    {"long", no_64_bits},
    {"ulong", no_64_bits},
    {"longlong", no_64_bits},
    {"double", "use a Float, which has 64 bits"},
    {"float32", "use a Float, which has 64 bits"},
    {"float64", "use a Float, which has 64 bits"},
    {"float8", "use a Float, which has 64 bits"},
    {"real", "use a Float, which has 64 bits"},
    {"string", texts},
    {"str", texts},
    {"text", texts},
    {"char", texts},
    {"varchar", texts},
    {"mbchar", texts},
    {"boolean", "use a UInt1"},
    {"datetime", "use a Timestamp"},
    {"uuid", "use a Char64 for its text"},
    {"enum", "use a UInt1 that selects messages"},
});

static std::string in_lower_case(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

std::string listed(const std::vector<std::string_view>& names) {
  std::string list;
  for (const std::string_view name : names) (list += list.empty() ? "" : ", ") += name;
  return list;
}

// Null for a name that is not known.
static const char* foreign_type_advice(std::string_view name) {
  const auto* foreign = std::find_if(foreign_types.begin(), foreign_types.end(),
                                     [&](const auto& row) { return row.name == name; });
  return foreign == foreign_types.end() ? nullptr : foreign->advice;
}

// A text of a size that there is not, "char16" or "varchar255".
static bool is_text_of_a_size(std::string_view name) {
  const std::vector<std::string_view> types = short_type_names();
  return foreign_type_advice(name.substr(0, name.find_last_not_of("0123456789") + 1)) == texts &&
         std::none_of(types.begin(), types.end(), [&](std::string_view type) {
           return in_lower_case(std::string(type)) == name;
         });
}

std::string type_hint(const std::string& name) {
  std::string known = in_lower_case(name);  // "uint8" of "uint8_t", "varchar255" of "VARCHAR(255)"
  if (known.ends_with("_t")) known.resize(known.size() - 2);
  std::erase_if(
      known, [](char c) { return std::string_view(" _-()[]").find(c) != std::string_view::npos; });
  const char* const advice = is_text_of_a_size(known) ? texts : foreign_type_advice(known);
  if (advice != nullptr) return std::string("; ") + advice;
  const std::string nearest = nearest_name_hint(name, short_type_names());
  return nearest.empty() ? "; types are " + listed(short_type_names()) : nearest;
}
