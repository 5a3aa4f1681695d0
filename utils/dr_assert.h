// Internal consistency checks of the library.
//
// They report through the C library's assertion handler with a fixed
// expression text, source path, line and function, whatever NDEBUG says, so
// that a failure in the field reads the same on every build and target.
#pragma once

extern "C" void __assert_fail(const char *assertion, const char *file, unsigned int line,
                              const char *function) noexcept __attribute__((noreturn));

// DR_ASSERT(cond, "expression text", "source/path", line, "function")
#define DR_ASSERT(cond, text, path, line, func) \
    ((cond) ? static_cast<void>(0) : __assert_fail(text, path, line, func))
