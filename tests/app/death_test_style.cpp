// The libraries pull in runtimes that keep helper threads; a death test forked from such a process
// can hang in their exit handlers, so every death test re-executes the test binary instead.
#include <gtest/gtest.h>

namespace {

// Set from an environment so that it comes after the command line has been parsed.
class ThreadsafeDeathTests : public testing::Environment {
 public:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

testing::Environment* const kEnvironment = testing::AddGlobalTestEnvironment(new ThreadsafeDeathTests);

}  // namespace
