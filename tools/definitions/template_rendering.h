// What the library makes of a template: it is asked to render it.
#ifndef TOOLS_DEFINITIONS_TEMPLATE_RENDERING_H
#define TOOLS_DEFINITIONS_TEMPLATE_RENDERING_H

#include <string_view>
#include <vector>

#include "recording/definitions/merged_set.h"
#include "recording/definitions/template.h"

struct rendered_template {
  std::string_view bytes;
  message_renderer renderer;
  // As declared; TypeUnknown: it is not, or of no type.
  attribute_type_of declared_type;
};

// A template of the event's; both outlive it.
rendered_template rendered_template_of(const event_model& event, std::string_view bytes,
                                       message_renderer renderer, const attribute_lookup& known);

// Renders the template, in which check_template finds nothing, by the renderers that it is for,
// with a value for each attribute. Adds a problem when the library refuses it, or might never end.
// Changes no setting of the library.
void check_rendering(const rendered_template& checked, std::vector<template_problem>& problems);

// Adds the placeholders of a raw template that ICU does not show, because they are quoted.
void find_quoted_placeholders(std::string_view bytes, std::vector<template_problem>& problems);

#endif
