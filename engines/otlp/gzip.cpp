#include "engines/otlp/gzip.h"

#include <zlib.h>

#include <new>

std::string gzip_of(std::string_view bytes) {
  constexpr int level = 3, window = 15 + 16, memory = 8;  // the window's 16: with gzip's head
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, window, memory, Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::bad_alloc();
  std::string packed(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
  // zlib does not write to what it reads.
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::bad_alloc();
  return packed;
}
