// ZT_EXPORT marks what callers of the shared library may use: the library is compiled with
// hidden visibility, so a class or function without it stays inside the library, where it can
// change without breaking a program built against an earlier release.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define ZT_EXPORT __attribute__((visibility("default")))
#else
#define ZT_EXPORT
#endif

// ZT_TEST_EXPORT marks the internal interfaces (headers under src/) that the library's own test
// programs drive directly. They are no part of the public interface: no header under include/
// declares them, and they may change in any release.
#define ZT_TEST_EXPORT ZT_EXPORT
