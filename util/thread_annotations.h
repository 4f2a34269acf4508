#pragma once

// Macros for clang's thread-safety analysis: which lock guards which data, and which operation takes or needs
// which lock. Empty for other compilers. scripts/check-tidy.py runs the analysis over every source.

#if defined(__clang__)
#define TAMLOG_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TAMLOG_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) TAMLOG_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY TAMLOG_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) TAMLOG_THREAD_ATTRIBUTE(guarded_by(x))
#define PT_GUARDED_BY(x) TAMLOG_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) TAMLOG_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) TAMLOG_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define REQUIRES(...) TAMLOG_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) TAMLOG_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) TAMLOG_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) TAMLOG_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define EXCLUDES(...) TAMLOG_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) TAMLOG_THREAD_ATTRIBUTE(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS TAMLOG_THREAD_ATTRIBUTE(no_thread_safety_analysis)
