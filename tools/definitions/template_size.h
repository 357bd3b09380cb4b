// How long a message may become.
#ifndef TOOLS_DEFINITIONS_TEMPLATE_SIZE_H
#define TOOLS_DEFINITIONS_TEMPLATE_SIZE_H

#include "recording/definitions/template.h"

constexpr size_t rendered_size_limit = 65536;  // bytes; the library's buffer for a message

// The bytes, in UTF-8, of the template's text and of the largest values of its attributes.
size_t largest_rendered_size(const std::vector<template_piece>& pieces,
                             const attribute_type_of& type_of);

#endif
