#include "recording/files/compression.h"

#include <zstd.h>

#include <algorithm>
#include <new>
#include <utility>

#include "recording/files/file_error.h"

// --- Compressing ---

struct segment_compressor::frame {
  ZSTD_CCtx* context = ZSTD_createCCtx();

  frame() {
    if (context == nullptr) throw std::bad_alloc();
  }
  ~frame() { ZSTD_freeCCtx(context); }
  frame(const frame&) = delete;
  frame& operator=(const frame&) = delete;
};

static constexpr int compression_level = 3;

segment_compressor::segment_compressor(int file, std::string path, uint64_t size)
    : file_(file),
      path_(std::move(path)),
      frame_(std::make_unique<frame>()),
      compressed_(ZSTD_CStreamOutSize()) {
  ZSTD_CCtx_setParameter(frame_->context, ZSTD_c_compressionLevel, compression_level);
  ZSTD_CCtx_setParameter(frame_->context, ZSTD_c_checksumFlag, 1);
  ZSTD_CCtx_setPledgedSrcSize(frame_->context, size);
}

segment_compressor::~segment_compressor() = default;

void segment_compressor::compress(std::string_view bytes, bool is_end) {
  ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
  for (bool is_done = false; !is_done;) {
    ZSTD_outBuffer out{compressed_.data(), compressed_.size(), 0};
    const size_t left =
        ZSTD_compressStream2(frame_->context, &out, &in, is_end ? ZSTD_e_end : ZSTD_e_continue);
    if (ZSTD_isError(left) != 0) raise_write_error("compress", path_, ZSTD_getErrorName(left));
    std::string_view written(compressed_.data(), out.pos);
    if (!write_all(file_, written)) raise_write_error("write", path_);
    is_done = is_end ? left == 0 : in.pos == in.size;
  }
}

void segment_compressor::take(std::string_view bytes) {
  compress(bytes, false);
}

void segment_compressor::finish() {
  compress("", true);
}

// --- Reading ---

struct segment_reader::frames {
  ZSTD_DCtx* context = ZSTD_createDCtx();
  bool is_inside = true;  // a frame has not ended; there is one at least

  frames() {
    if (context == nullptr) throw std::bad_alloc();
  }
  ~frames() { ZSTD_freeDCtx(context); }
  frames(const frames&) = delete;
  frames& operator=(const frames&) = delete;
};

segment_reader::segment_reader(open_descriptor file, std::string path, bool is_compressed)
    : file_(std::move(file)),
      path_(std::move(path)),
      frames_(is_compressed ? std::make_unique<frames>() : nullptr) {}

segment_reader::~segment_reader() = default;

void segment_reader::read_file() {
  bytes_ = read_part(file_.get(), offset_, segment_part, "read", path_);
  offset_ += bytes_.size();
  taken_ = 0;
}

std::string_view segment_reader::decompress(size_t most) {
  lines_.resize(most);
  ZSTD_outBuffer out{lines_.data(), most, 0};
  for (size_t before = SIZE_MAX; out.pos < most && out.pos != before;) {
    if (taken_ == bytes_.size()) read_file();
    const bool is_end = bytes_.empty();
    if (is_end && !frames_->is_inside) break;
    if (is_end) before = out.pos;  // what zstd has left is all that comes
    ZSTD_inBuffer in{bytes_.data(), bytes_.size(), taken_};
    const size_t left = ZSTD_decompressStream(frames_->context, &out, &in);
    if (ZSTD_isError(left) != 0) raise_write_error("read", path_, ZSTD_getErrorName(left));
    taken_ = in.pos;
    frames_->is_inside = left != 0;
  }
  if (out.pos == 0 && frames_->is_inside) raise_write_error("read", path_, "its end is missing");
  return {lines_.data(), out.pos};
}

std::string_view segment_reader::read(size_t most) {
  if (frames_ != nullptr) return decompress(most);
  bytes_ = read_part(file_.get(), offset_, std::min(most, segment_part), "read", path_);
  offset_ += bytes_.size();
  return bytes_;
}
