#pragma once

/** The C runtime's reporter of broken assertions: prints the report and aborts. Declared here
 * because <assert.h> hides it from builds with NDEBUG, and these checks stay in every build. */
extern "C" void __assert_fail(const char* expression, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((__noreturn__));

namespace ZyFmt {

/**
 * What is reported when an assertion does not hold.
 *
 * Crash collectors group the reports by their texts, so these are fixed: unit, line and function
 * name the assertion for good, and are not its place in the file of today. An assertion that moves
 * keeps its report.
 */
struct Assertion {
   const char* expression;
   const char* unit;
   unsigned line;
   const char* function;

   /** Reports the assertion and stops the process, in every build type. */
   [[noreturn, gnu::cold, gnu::noinline]] void fail() const noexcept {
      __assert_fail(expression, unit, line, function);
   }
};

}  // namespace ZyFmt
