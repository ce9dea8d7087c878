// Memory that will be needed soon is asked for early.
#pragma once

namespace pellor {

// A hint and nothing more: empty where the compiler knows none.
#ifdef __has_builtin
#if __has_builtin(__builtin_prefetch)
#define PELLOR_PREFETCH(...) __builtin_prefetch(__VA_ARGS__)
#endif
#endif
#ifndef PELLOR_PREFETCH
#define PELLOR_PREFETCH(...) static_cast<void>(0)
#endif

/// Has the cache line at an address brought near, to be read. Any address will do.
inline void prefetchLine([[maybe_unused]] const void* address) { PELLOR_PREFETCH(address); }
/// Has the cache line at an address brought near, to be written. Any address will do.
inline void prefetchLineToWrite([[maybe_unused]] const void* address) { PELLOR_PREFETCH(address, 1); }

#undef PELLOR_PREFETCH

}  // namespace pellor
