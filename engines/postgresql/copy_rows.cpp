#include "engines/postgresql/copy_rows.h"

#include <array>
#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "numbers go with their last byte first");

std::optional<int64_t> pg_moment(int64_t seconds) {
  static constexpr int64_t begin = 946684800;           // 2000-01-01T00:00:00Z
  static constexpr int64_t earliest = -210866803200;    // 4714-11-24 before our era
  static constexpr int64_t latest = 9224318016000 - 1;  // the last second of 294276
  if (seconds < earliest || seconds > latest) return std::nullopt;
  return (seconds - begin) * 1'000'000;
}

std::string_view pg_copy_begin() {
  static constexpr std::string_view begin("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
  return begin;
}

std::string_view pg_copy_end() {
  return "\377\377";
}

// Where a row is put together: the widest has five numbers and the size of a text.
class pg_row {
 public:
  void put16(uint16_t value) { put(__builtin_bswap16(value)); }
  void put32(uint32_t value) { put(__builtin_bswap32(value)); }
  void column64(uint64_t value) {
    put32(sizeof(value));
    put(__builtin_bswap64(value));
  }
  void column64(std::optional<int64_t> value) {
    if (value)
      column64(static_cast<uint64_t>(*value));
    else
      put32(no_value);
  }
  void column16(std::optional<unsigned> value) {
    put32(value ? sizeof(uint16_t) : no_value);
    if (value) put16(static_cast<uint16_t>(*value));
  }
  std::string_view bytes() const { return {bytes_.data(), size_}; }

 private:
  static constexpr uint32_t no_value = 0xFFFFFFFF;

  template <typename T>
  void put(T value) {
    std::memcpy(bytes_.data() + size_, &value, sizeof(value));
    size_ += sizeof(value);
  }

  std::array<char, 64> bytes_;
  size_t size_ = 0;
};

// A number with a sign that is in the order of those without.
static uint64_t pg_ordered(uint64_t digest) {
  static constexpr uint64_t sign = uint64_t{1} << 63;
  return digest ^ sign;
}

void append_pg_row(std::string& rows, const shipped_record& record) {
  pg_row row;
  row.put16(6);  // columns
  row.column64(record.line);
  row.column64(pg_ordered(record.digest));
  row.column64(record.time ? pg_moment(*record.time) : std::nullopt);
  row.column64(record.event ? std::optional<int64_t>(*record.event) : std::nullopt);
  row.column16(record.level);
  row.put32(static_cast<uint32_t>(record.text.size()));
  rows += row.bytes();
}
