// Any bytes as one item of a definition file: the first byte chooses the item. The same bytes are
// read from a regular file, from a stream without a size and through a view of the file, which must
// agree in everything: result, values, and the next byte.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "base/kp_clib.h"
#include "logging/def_read.h"
#include "logging/def_read_items.h"
#include "logging/def_read_view.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// What reading an item gave. `text` and `word` start with values that show whether they were set.
struct readers_fuzz_outcome {
  bool done = false;
  unsigned word[4] = {11, 12, 13, 14};
  kp_AttributeType type = TypeUnknown;
  kp_String text[3] = {kp_String("a"), kp_String("b"), kp_String("c")};
  _kp_LOG_ldf_header_struct header = {};
  bool has_next = false;
  unsigned char next = 0;
};

static bool read_item(unsigned item, FILE* in, readers_fuzz_outcome& o) {
  switch (item) {
    case 0:
      return _kp_LOG_read_file_header(in, o.header);
    case 1:
      return _kp_LOG_read_string(in, o.text[0]);
    case 2:
      return _kp_LOG_read_property_flag(in, o.text[0], o.word[0]);
    case 3:
      return _kp_LOG_read_attribute(in, o.text[0], o.type, o.text[1]);
    case 4:
      return _kp_LOG_read_entry_info(in, o.word[0], o.word[1], o.word[2], o.text[0], o.text[1],
                                     o.text[2]);
    case 5:
      return _kp_LOG_read_selector_msg(in, o.word[0], o.word[1], o.text[0], o.text[1]);
    default:
      return _kp_LOG_read_entry_id_offset_mapping(in, o.word[0], o.word[1]);
  }
}

static bool read_item(unsigned item, _kp_LOG_ldf_view& in, readers_fuzz_outcome& o) {
  switch (item) {
    case 0:
      return kp_ldf_read_header(in, o.header);
    case 1:
      return kp_ldf_read_string(in, o.text[0]);
    case 2:
      return kp_ldf_read_property_flag(in, o.text[0], o.word[0]);
    case 3:
      return kp_ldf_read_attribute(in, o.text[0], o.type, o.text[1]);
    case 4:
      return kp_ldf_read_entry_info(in, o.word[0], o.word[1], o.word[2], o.text[0], o.text[1],
                                    o.text[2]);
    case 5:
      return kp_ldf_read_selector_msg(in, o.word[0], o.word[1], o.text[0], o.text[1]);
    default:
      return kp_ldf_read_mapping(in, o.word[0], o.word[1]);
  }
}

static bool read_next(FILE* in, unsigned char& next) {
  return kp_be_read_int1(in, &next);
}

static bool read_next(_kp_LOG_ldf_view& in, unsigned char& next) {
  return in.read(&next, 1);
}

template <class Source>
static readers_fuzz_outcome outcome_of(unsigned item, Source&& in) {
  readers_fuzz_outcome o;
  o.done = read_item(item, in, o);
  if (o.done) o.has_next = read_next(in, o.next);
  return o;
}

// A raw field that is cut may be filled in part, so that headers are compared when they are whole.
static void require_same(const readers_fuzz_outcome& a, const readers_fuzz_outcome& b) {
  const bool same = a.done == b.done && std::memcmp(a.word, b.word, sizeof a.word) == 0 &&
                    a.type == b.type &&
                    std::equal(std::begin(a.text), std::end(a.text), std::begin(b.text)) &&
                    (!a.done || std::memcmp(&a.header, &b.header, sizeof a.header) == 0) &&
                    a.has_next == b.has_next && a.next == b.next;
  if (!same) std::abort();
}

// No text is longer than the bytes that were there, nor holds a NUL.
static void require_texts_within(const readers_fuzz_outcome& o, size_t size) {
  for (const kp_String& text : o.text)
    if (text.length() > size + 1 || std::strlen(text.c_str()) != text.length()) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const unsigned item = data[0] % 7;
  std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const kp_file file(fdopen(memfd_create("item", MFD_CLOEXEC), "w+b"));
  if (std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) std::abort();
  std::rewind(file.get());
  const kp_file sizeless(fmemopen(bytes.data(), bytes.size(), "rb"));
  const readers_fuzz_outcome expected = outcome_of(item, file.get());
  require_texts_within(expected, bytes.size());
  require_same(expected, outcome_of(item, sizeless.get()));
  require_same(expected, outcome_of(item, _kp_LOG_ldf_view(file.get())));
  return 0;
}
