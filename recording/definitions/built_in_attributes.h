// Attributes of reserved names, in which the library itself keeps, or answers, an entry's time.
#ifndef RECORDING_DEFINITIONS_BUILT_IN_ATTRIBUTES_H
#define RECORDING_DEFINITIONS_BUILT_IN_ATTRIBUTES_H

#include <string>
#include <string_view>

#include "kp_LOG_AttributeType.h"
#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"

// Answered with the entry's own time, whether it is declared or not.
constexpr std::string_view own_time_attribute = "TIMESTAMP";

// An attribute that the library adds to an entry together with its time.
struct zone_attribute {
  const char* name;
  kp_AttributeType type;
};
inline constexpr zone_attribute zone_attributes[] = {{"TIMEZONE_DIFFERENCE", TypeSInt2},
                                                     {"DAYLIGHT_SAVING_ACTIVE", TypeBool}};

// Why no entry of an event that declares the attribute so could keep, or tell, its time; "" when
// all could.
std::string time_attribute_fault(std::string_view name, kp_AttributeType type);

// The fault of an attribute of a reserved name, if it has one.
void add_time_attribute_fault(const attribute_model& attribute, diagnostic_list& found);

#endif
