// Which records an engine is asked for: at least those that fit. Whoever asks looks again.
#ifndef TOOLS_SHIP_ARCHIVE_QUERY_H
#define TOOLS_SHIP_ARCHIVE_QUERY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ship/shipped_record.h"

enum class asked_comparison { equal, less, at_most, greater, at_least };

// What an attribute is compared with. Values of a JSON type that has nothing here may fit all the
// same, unless `others_fit` says that they do not.
struct asked_attribute {
  std::string name;
  asked_comparison comparison = asked_comparison::equal;
  std::optional<bool> boolean = {};
  std::optional<int64_t> integer = {};
  std::optional<double> real = {};
  std::optional<std::string> text = {};
  // An engine may find by an index what is equal where this is false, and has to read it otherwise.
  bool others_fit = true;
};

// Conditions that all hold.
struct asked_group {
  std::optional<std::vector<uint32_t>> events = {};  // one of these, or unknown ones; nothing: any
  std::vector<asked_attribute> attributes = {};
};

struct archive_query {
  // Of which one is to hold; none: every record may fit. Of what arrives while records are followed
  // every one may: definitions come with it.
  std::vector<asked_group> groups = {};
  // Beside that.
  std::vector<std::string> hosts =
      {};  // one of these machines; none: any. "*" and "?" as in names of files
  std::optional<int64_t> since = {};  // seconds since 1970; records without a time may fit
  std::optional<int64_t> until = {};
  unsigned lowest_level = 0;
  unsigned highest_level = 9;
  bool follows = false;  // what arrives from now on, behind what is there
};

// A record where it stands.
struct archived_record {
  std::string_view text;
  journal_identity journal;
  std::string segment;
  uint64_t line = 0;
};

#endif
