// Message texts as people write them, turned into templates that render exactly so, and back.
//
// A template is literal text with placeholders, "%", a format character, "%", a name, "%", and "%%"
// for a percent sign. The two renderers read one in their own ways, and each way has edges that a
// plain translation would cut itself on:
//
// The ICU renderer
//   - drops literal text behind the last placeholder or percent sign, and literal text directly
//     before "%%". Literal text survives when a placeholder follows it. A placeholder of a format
//     character without meaning renders as nothing, so "%x%TIMESTAMP%" (a name that every entry
//     knows) is put behind text at the end and between text and a percent sign.
//   - reads "%%" also where the first "%" closes a placeholder and the second would begin
//     something new. Before a percent sign a blank separates the two; it is literal text directly
//     before "%%", so that it is dropped. Before another placeholder a MessageFormat piece that
//     renders as nothing separates them, on the argument of the first of the two.
//   - hands all literal text to MessageFormat, where braces and apostrophes have a meaning: here
//     apostrophes are doubled, and braces stand between apostrophes.
//   - knows ten arguments.
// The byte renderer
//   - shows literal text as it stands, so that quoted braces and doubled apostrophes would show;
//   - shows nothing for "%%", and has nothing to separate two placeholders with.
// What a renderer cannot show is a problem at its place in the text.
#ifndef TOOLS_DEFINITIONS_AUTHORED_TEXT_H
#define TOOLS_DEFINITIONS_AUTHORED_TEXT_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kp_LOG_AttributeType.h"
#include "recording/definitions/template.h"

// What a text may name: the type of an attribute, and the names there are, for a hint at a misspelt
// one.
struct template_attributes {
  std::function<kp_AttributeType(std::string_view name)> type_of;  // TypeUnknown: there is none
  std::function<std::vector<std::string_view>()> names;
};

// The template of an authored text: "{NAME}" is a placeholder, "{NAME:currency}", ":percent",
// ":date" and
// ":time" choose its format, "{{" and "}}" are braces. Adds to `problems` whatever cannot be shown;
// the result is of use only when it adds nothing.
std::string template_from_text(std::string_view authored, message_renderer renderer,
                               const template_attributes& attributes,
                               std::vector<template_problem>& problems);

// A placeholder as texts have it; "" for one that shows nothing.
std::string authored_placeholder(const template_piece& piece, kp_AttributeType type);

// The way back: the authored text of which template_from_text, for ICU, makes exactly this
// template; nothing when there is none, as for most templates written by hand.
std::optional<std::string> authored_text_of(std::string_view bytes,
                                            const attribute_type_of& type_of);

#endif
