// Clang's thread-safety annotations, empty for other compilers.
#ifndef KP_THREAD_ANNOTATIONS_H
#define KP_THREAD_ANNOTATIONS_H

#if defined(__clang__)
#define KP_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KP_THREAD_ATTRIBUTE(x)
#endif

#define KP_CAPABILITY(name) KP_THREAD_ATTRIBUTE(capability(name))
#define KP_SCOPED_CAPABILITY KP_THREAD_ATTRIBUTE(scoped_lockable)
#define KP_GUARDED_BY(lock) KP_THREAD_ATTRIBUTE(guarded_by(lock))
#define KP_REQUIRES(...) KP_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KP_REQUIRES_SHARED(...) KP_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define KP_ACQUIRE(...) KP_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KP_ACQUIRE_SHARED(...) KP_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define KP_RELEASE(...) KP_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KP_RELEASE_SHARED(...) KP_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define KP_RELEASE_GENERIC(...) KP_THREAD_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
#define KP_NO_THREAD_SAFETY_ANALYSIS KP_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
