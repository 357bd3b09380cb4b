#include "recording/ring/ring_info.h"

#include <simdjson.h>

#include <algorithm>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>

#include "recording/files/file_error.h"
#include "recording/files/whole_file.h"
#include "recording/ring/ring_format.h"
#include "recording/sinks/sink.h"
#include "recording/text/json_text.h"
#include "recording/text/number.h"

std::string journal_path(const std::string& journal) {
  return journal.empty() ? "" : path_of_sink(journal_sink_of(journal)).path;
}

std::string ring_info::place() const {
  const std::vector<std::string> all = outputs();
  const auto first =
      std::ranges::find_if(all, [](const std::string& output) { return !output.empty(); });
  return first == all.end() ? "" : *first;
}

// The members by their names, so that both ways go through one list. Paths are bytes, and JSON is
// UTF-8: what is not is kept byte by byte.
template <class Info, class Visitor>
static void visit_texts(Info& info, Visitor visit) {
  visit("definitions", info.definitions);
  visit("aux", info.aux);
  visit("catalog", info.catalog);
  visit("definitions_sum", info.definitions_sum);
  visit("aux_sum", info.aux_sum);
  visit("catalog_sum", info.catalog_sum);
  visit("locale", info.locale);
  visit("code_page", info.code_page);
  visit("text", info.text);
  visit("json", info.json);
  visit("count", info.count);
  visit("host", info.host);
}

// Each byte as the character of that number.
static std::string characters_of(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80) {
      text += byte;
    } else {
      text += static_cast<char>(0xc0 | (value >> 6));
      text += static_cast<char>(0x80 | (value & 0x3f));
    }
  }
  return text;
}

static std::string bytes_of_characters(std::string_view text) {
  std::string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto value = static_cast<unsigned char>(text[i]);
    if (value < 0x80 || i + 1 == text.size()) {
      bytes += text[i];
      continue;
    }
    const auto next = static_cast<unsigned char>(text[++i]);
    bytes += static_cast<char>(((value & 0x03) << 6) | (next & 0x3f));
  }
  return bytes;
}

std::string text_of(const ring_info& info) {
  std::string text;
  json_text json(text);
  json.begin_object();
  visit_texts(info, [&](const char* name, const std::string& member) {
    json.key(name).text(characters_of(member));
  });
  json.key("journal").text(characters_of(info.journal));
  json.key("max_size").number(info.max_size).key("pid").number(info.pid);
  json.key("synced").written(info.synced ? "true" : "false");
  json.end_object();
  return text;
}

std::optional<ring_info> ring_info_of(const std::string& text) {
  simdjson::dom::parser parser;
  simdjson::dom::object object;
  const simdjson::error_code error = parser.parse(text).get(object);
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  if (error != simdjson::SUCCESS) return std::nullopt;
  ring_info info;
  bool is_whole = true;
  const auto read = [&](const char* name, auto& member) {
    is_whole &= object[name].get(member) == simdjson::SUCCESS;
  };
  visit_texts(info, [&](const char* name, std::string& member) {
    std::string_view characters;
    read(name, characters);
    member = bytes_of_characters(characters);
  });
  read("max_size", info.max_size);
  read("synced", info.synced);
  read("pid", info.pid);
  // Rings of before there were journals have none.
  if (std::string_view journal; object["journal"].get(journal) == simdjson::SUCCESS)
    info.journal = bytes_of_characters(journal);
  return is_whole ? std::optional(info) : std::nullopt;
}

static uint64_t file_sum(uint64_t sum, const std::string& path) {
  const std::string bytes = read_file(path, size_t{1} << 30);
  return ring_sum(sum, bytes.data(), bytes.size());
}

static uint64_t folder_sum(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path))
    if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  uint64_t sum = names.size();
  for (const std::string& name : names)
    sum = file_sum(ring_sum(sum, name.data(), name.size()),
                   (std::filesystem::path(path) / name).string());
  return sum;
}

std::string content_sum(const std::string& path) {
  if (path.empty()) return "";
  try {
    const uint64_t sum = std::filesystem::is_directory(path) ? folder_sum(path) : file_sum(0, path);
    return hexadecimal(sum, 16);
  } catch (const file_error&) {
  } catch (const std::filesystem::filesystem_error&) {
  }
  return "";
}
