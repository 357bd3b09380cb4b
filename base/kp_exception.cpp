#include "base/kp_exception.h"

#include <cstring>
#include <new>

// A copy in one heap block together with its share count; null for null.
static std::shared_ptr<const char> shared_copy(const char* message) {
  if (message == nullptr) return nullptr;
  const size_t size = std::strlen(message) + 1;
  try {
    const std::shared_ptr<char[]> block = std::make_shared<char[]>(size);
    std::memcpy(block.get(), message, size);
    return {block, block.get()};
  } catch (const std::bad_alloc&) {
    KP_raise_memory_alloc();
  }
}

kp_EXCEPTION_base::kp_EXCEPTION_base(const char* message, int code)
    : message_(shared_copy(message)), code_(code) {}
kp_EXCEPTION_base::~kp_EXCEPTION_base() = default;

const char* kp_EXCEPTION_base::what() const noexcept {
  return message_ ? message_.get() : "";
}
const char* kp_EXCEPTION_base::get_message() const {
  return message_.get();
}
int kp_EXCEPTION_base::get_code() const {
  return code_;
}

KPX_runtime::KPX_runtime(const char* message, int code) : kp_EXCEPTION_base(message, code) {}
KPX_runtime::~KPX_runtime() = default;

KPX_index_out_of_bounds::KPX_index_out_of_bounds(const char* message, int code)
    : KPX_runtime(message, code) {}
KPX_index_out_of_bounds::~KPX_index_out_of_bounds() = default;

KPX_memory_alloc::KPX_memory_alloc(const char* message, int code)
    : kp_EXCEPTION_base(message, code) {}
KPX_memory_alloc::~KPX_memory_alloc() = default;

void KP_raise_memory_alloc() {
  throw KPX_memory_alloc(nullptr, 0);
}
