// A recorder's place, and what comes to it.
#ifndef TESTS_RECORDER_RECORDER_FIXTURE_H
#define TESTS_RECORDER_RECORDER_FIXTURE_H

#include <gtest/gtest.h>
#include <zstd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kp_LOG_Recorder.h"
#include "shop.h"
#include "tests/support/temp_folder.h"

class RecorderPlace : public testing::Test {
 protected:
  kp_LOG_RecorderOptions options() const {
    kp_LOG_RecorderOptions options;
    options.definitions = KPLOG_SHOP_DEFINITIONS;
    options.locale = "en";
    options.text = folder_.file("shop");
    options.json = folder_.file("shop.jsonl");
    options.on_fault = [](kp_LOG_RecorderFault kind, const std::string& text) {
      ADD_FAILURE() << "fault " << static_cast<int>(kind) << ": " << text;
    };
    return options;
  }

  std::vector<std::string> files_with(const std::string& part) const {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(folder_.path()))
      if (file.path().filename().string().find(part) != std::string::npos)
        names.push_back(file.path().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  std::vector<std::string> rings() const { return files_with(".ring."); }

  static std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
      const size_t end = std::min(text.find('\n', at), text.size());
      lines.push_back(text.substr(at, end - at));
      at = end + 1;
    }
    return lines;
  }

  // The messages of the text logs: what stands behind time, level and name.
  std::vector<std::string> messages() const {
    std::vector<std::string> found;
    for (const std::string& log : files_with("shop.2"))
      for (const std::string& line : lines_of(read_whole_file(log))) {
        size_t at = 0;
        for (int word = 0; word < 3; ++word) at = line.find(' ', at) + 1;
        found.push_back(line.substr(at));
      }
    return found;
  }

  // What the journal of that name has, segment by segment.
  std::string journal(const std::string& name) const {
    std::map<std::string, std::string> segments;  // of two forms the plain one
    for (const std::string& file : files_with(name + ".2")) {
      const std::string content = read_whole_file(file);
      if (file.ends_with(".jsonl")) segments[file] = content;
      if (!file.ends_with(".zst")) continue;
      std::string lines(ZSTD_getFrameContentSize(content.data(), content.size()), '\0');
      EXPECT_EQ(ZSTD_decompress(lines.data(), lines.size(), content.data(), content.size()),
                lines.size());
      segments.try_emplace(file.substr(0, file.size() - 4), lines);
    }
    std::string all;
    for (const auto& [file, lines] : segments) all += lines;
    return all;
  }

  std::vector<nlohmann::json> stored() const {
    std::vector<nlohmann::json> found;
    for (const std::string& line : lines_of(read_whole_file(folder_.file("shop.jsonl"))))
      found.push_back(nlohmann::json::parse(line));
    return found;
  }

  const temp_folder folder_;
};

#endif
