// The libraries pull in runtimes that keep helper threads; a death test forked from such a process
// can hang in their exit handlers, so every death test re-executes the test binary instead.
#include <gtest/gtest.h>

namespace {

const bool kThreadsafeDeathTests = [] {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  return true;
}();

}  // namespace
