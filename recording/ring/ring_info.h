// What a ring is for: all that is needed to bring its events into their outputs without the process
// that recorded them.
#ifndef RECORDING_RING_RING_INFO_H
#define RECORDING_RING_RING_INFO_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// "DIR/NAME" of a journal, without the options behind that.
std::string journal_path(const std::string& journal);

// Paths are absolute; an empty one stands for an output, or a file, that is not wanted.
struct ring_info {
  std::string definitions, aux, catalog;
  std::string definitions_sum, aux_sum, catalog_sum;  // of what these hold, 16 hexadecimal digits
  std::string locale;                                 // empty: that of the environment
  std::string code_page;                              // of text
  std::string text;                                   // "DIR/PREFIX" of dated logs
  std::string json;
  std::string count;      // "DIR/NAME"
  std::string journal;    // "DIR/NAME", and options behind a comma
  uint64_t max_size = 0;  // bytes of a text log; 0: as it is without it
  bool synced = false;
  std::string host;
  uint64_t pid = 0;

  // Where the ring belongs: the first of the outputs that is wanted.
  std::string place() const;
  // What is appended to, in the order of ring_start::delivered.
  std::vector<std::string> outputs() const { return {text, json, count, journal_path(journal)}; }
};

// The text of it, a JSON object, and back; nothing for a text that is none.
std::string text_of(const ring_info& info);
std::optional<ring_info> ring_info_of(const std::string& text);

// Of a file's bytes, or of the names and bytes of a folder's files; empty for a path that is empty
// or cannot be read.
std::string content_sum(const std::string& path);

#endif
