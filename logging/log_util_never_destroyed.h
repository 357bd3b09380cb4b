// A static object that outlives every other one.
#ifndef KP_LOG_UTIL_NEVER_DESTROYED_H
#define KP_LOG_UTIL_NEVER_DESTROYED_H

// A T that is never destroyed, so that whoever logs last still finds it.
template <class T>
union kp_log_never_destroyed {
  constexpr kp_log_never_destroyed() noexcept : value() {}
  ~kp_log_never_destroyed() {}  // NOLINT(modernize-use-equals-default): = default would be deleted
  T value;
};

#endif
