// The error base of the product line. Errors are thrown by value and caught by reference; the class
// alone tells the kind of error, the message text tells the details.
#ifndef KP_EXCEPTION_H
#define KP_EXCEPTION_H

#include <exception>
#include <memory>

#include "base/kp_export.h"

// Holds a message text and an integer. Copies share the text and never throw, so an error object
// may be copied while another exception is in flight.
class KP_API kp_EXCEPTION_base : public std::exception {
 public:
  // Copies `message`; null is allowed and stays distinguishable from "".
  // Raises KPX_memory_alloc when the text cannot be copied.
  kp_EXCEPTION_base(const char* message, int code);
  kp_EXCEPTION_base(const kp_EXCEPTION_base&) noexcept = default;
  kp_EXCEPTION_base& operator=(const kp_EXCEPTION_base&) noexcept = default;
  ~kp_EXCEPTION_base() override;

  // The text, "" when there is none. Valid as long as any copy of this error lives.
  const char* what() const noexcept override;
  // The text, null when there is none. Same lifetime as what().
  const char* get_message() const;
  // The integer given at construction; the libraries of this product line always pass 0.
  int get_code() const;

 private:
  std::shared_ptr<const char> message_;  // null: no text
  int code_;
};

// Root of general run-time errors; not raised itself.
class KP_API KPX_runtime : public kp_EXCEPTION_base {
 public:
  KPX_runtime(const char* message, int code);
  ~KPX_runtime() override;
};

// An index outside a text or a token list. Raised with a null message.
class KP_API KPX_index_out_of_bounds : public KPX_runtime {
 public:
  KPX_index_out_of_bounds(const char* message, int code);
  ~KPX_index_out_of_bounds() override;
};

// An allocation that failed. Raised with a null message, so that raising it allocates no text.
class KP_API KPX_memory_alloc : public kp_EXCEPTION_base {
 public:
  KPX_memory_alloc(const char* message, int code);
  ~KPX_memory_alloc() override;
};

// Raises KPX_memory_alloc with a null message. Templates in headers raise it so, that programs
// which are compiled without exceptions can include them.
[[noreturn]] KP_API void KP_raise_memory_alloc();

#endif
