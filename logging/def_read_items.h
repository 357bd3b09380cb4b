// The readers of a definition file's items, written once over any source of bytes: a stream
// (def_read.cpp) or a bounded view of a file (def_read_view.h). The layout:
// docs/definition-format.md.
//
// A source has three operations:
//   bool read(void* bytes, size_t n)    the next n bytes, all of them or false
//   bool may_hold(size_t n)             false only when it certainly ends before n further bytes
//   bool knows_its_end()                whether may_hold, asked before, was sure of its answer
//
// Every reader takes what lies at the source's position, and returns false at the first item that
// cannot be read; items before that one keep their new values. A failed allocation raises
// KPX_memory_alloc.
#ifndef KP_LOG_DEF_READ_ITEMS_H
#define KP_LOG_DEF_READ_ITEMS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>

#include "base/kp_endian.h"
#include "base/kp_string.h"
#include "kp_LOG_debug_log.h"
#include "logging/def_read.h"

// The name by which debug lines tell where they come from.
constexpr char kp_ldf_reader_source[] = "logging/def_read";

// A text up to this length is allocated at once; a longer one of a source that cannot tell where it
// ends is read in steps of this length, so that a length without bytes behind it costs nothing.
constexpr unsigned kp_ldf_text_step = 65536;

template <class Source>
bool kp_ldf_read_int4(Source& in, unsigned& value) {
  unsigned char bytes[4];
  if (!in.read(bytes, sizeof bytes)) return false;
  value = KP_get_big_endian<unsigned>(bytes);
  return true;
}

// Appends the next `length` bytes to `text`.
template <class Source>
bool kp_ldf_append_bytes(Source& in, kp_String& text, unsigned length) {
  char step[4096];
  while (length != 0) {
    const unsigned part = std::min(length, unsigned{sizeof step});
    if (!in.read(step, part)) return false;
    text.append(step, part);
    length -= part;
  }
  return true;
}

// The next `length` bytes, at least one, of a source that has been asked whether it may hold them.
// Allocates what they take where the source knows its end, and about as much as there is where it
// does not.
template <class Source>
bool kp_ldf_read_bytes(Source& in, kp_String& bytes, unsigned length) {
  if (length > kp_ldf_text_step && !in.knows_its_end()) {
    if (!kp_ldf_append_bytes(in, bytes, length)) return false;
    bytes = kp_String(bytes.c_str(), length);  // without the room for growing
    return true;
  }
  bytes = kp_String(length, '\0');
  return in.read(&bytes[0], length);
}

// How much of `length` bytes is the text: all before the first NUL.
inline unsigned kp_ldf_text_length(const char* bytes, unsigned length) noexcept {
  const void* const nul = std::memchr(bytes, '\0', length);
  return nul != nullptr ? static_cast<unsigned>(static_cast<const char*>(nul) - bytes) : length;
}

// The text of `length` bytes up to its first NUL; without one all of them are the text. A text that
// ends early is copied out of its bytes, so that it does not hold the memory of all of them for as
// long as it lives.
template <class Source>
bool kp_ldf_read_text_of(Source& in, kp_String& text, unsigned length) {
  if (!in.may_hold(length)) return false;
  char short_text[64];
  if (length <= sizeof short_text) {
    if (!in.read(short_text, length)) return false;
    text = kp_String(short_text, kp_ldf_text_length(short_text, length));
    return true;
  }
  kp_String bytes;
  if (!kp_ldf_read_bytes(in, bytes, length)) return false;
  const unsigned kept = kp_ldf_text_length(bytes.c_str(), length);
  if (kept + 1 < length)
    bytes = kp_String(bytes.c_str(), kept);
  else
    bytes.assign(bytes.c_str(), kept);
  text = std::move(bytes);
  return true;
}

template <class Source>
bool kp_ldf_read_string(Source& in, kp_String& text) {
  unsigned length = 0;
  if (!kp_ldf_read_int4(in, length)) {
    LogDebugMessage(1, "%s:%d kp_be_read_int4\n", kp_ldf_reader_source, __LINE__);
    return false;
  }
  if (length != 0) return kp_ldf_read_text_of(in, text, length);
  text = kp_String("", 0);
  return true;
}

template <class Source, size_t n>
bool kp_ldf_read_words(Source& in, unsigned (&words)[n]) {
  return std::all_of(std::begin(words), std::end(words),
                     [&in](unsigned& word) { return kp_ldf_read_int4(in, word); });
}

template <class Source>
bool kp_ldf_read_header(Source& in, _kp_LOG_ldf_header_struct& header) {
  return kp_ldf_read_int4(in, header.magic) && header.magic == kp_ldf_magic &&
         in.read(&header.raw_word, sizeof header.raw_word) && kp_ldf_read_int4(in, header.word2) &&
         kp_ldf_read_int4(in, header.word3) &&
         in.read(header.log_version, sizeof header.log_version) &&
         kp_ldf_read_words(in, header.words16) &&
         kp_ldf_read_int4(in, header.n_global_attributes) &&
         kp_ldf_read_int4(in, header.global_attributes_offset) &&
         kp_ldf_read_int4(in, header.n_entries) && kp_ldf_read_int4(in, header.word52) &&
         kp_ldf_read_int4(in, header.mapping_offset) && kp_ldf_read_words(in, header.words60);
}

template <class Source>
bool kp_ldf_read_property_flag(Source& in, kp_String& name, unsigned& flag) {
  return kp_ldf_read_string(in, name) && kp_ldf_read_int4(in, flag);
}

// An attribute's type has 8 bits; the file gives it four bytes.
template <class Source>
bool kp_ldf_read_attribute(Source& in, kp_String& name, kp_AttributeType& type,
                           kp_String& redirection) {
  unsigned code = 0;
  if (!kp_ldf_read_string(in, name) || !kp_ldf_read_int4(in, code)) return false;
  type = static_cast<kp_AttributeType>(code & 0xFF);
  return kp_ldf_read_string(in, redirection);
}

template <class Source>
bool kp_ldf_read_entry_info(Source& in, unsigned& id, unsigned& word2, unsigned& property_flags,
                            kp_String& default_msg_id, kp_String& default_msg_text,
                            kp_String& selector_attribute) {
  return kp_ldf_read_int4(in, id) && kp_ldf_read_int4(in, word2) &&
         kp_ldf_read_int4(in, property_flags) && kp_ldf_read_string(in, default_msg_id) &&
         kp_ldf_read_string(in, default_msg_text) && kp_ldf_read_string(in, selector_attribute);
}

// What read() says, with a debug line when it is false and when it raises.
template <class Read>
bool kp_ldf_read_told(int line, const char* item, Read read) {
  const auto tell = [=] {
    LogDebugMessage(1, "%s:%d %s error\n", kp_ldf_reader_source, line, item);
    return false;
  };
  try {
    return read() || tell();
  } catch (...) {
    tell();
    throw;
  }
}

template <class Source>
bool kp_ldf_read_selector_msg(Source& in, unsigned& index, unsigned& value, kp_String& msg_id,
                              kp_String& msg_text) {
  return kp_ldf_read_told(__LINE__, "kp_be_read_int4 selector_msg_index",
                          [&] { return kp_ldf_read_int4(in, index); }) &&
         kp_ldf_read_told(__LINE__, "kp_be_read_int4 selector_value",
                          [&] { return kp_ldf_read_int4(in, value); }) &&
         kp_ldf_read_told(__LINE__, "kp_be_read_string selector_msg_id",
                          [&] { return kp_ldf_read_string(in, msg_id); }) &&
         kp_ldf_read_told(__LINE__, "kp_be_read_string selector_msg_text",
                          [&] { return kp_ldf_read_string(in, msg_text); });
}

template <class Source>
bool kp_ldf_read_mapping(Source& in, unsigned& id, unsigned& offset) {
  return kp_ldf_read_int4(in, id) && kp_ldf_read_int4(in, offset);
}

#endif
