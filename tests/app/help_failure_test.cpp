// The help text and the failure reports that need no library.
#include <gtest/gtest.h>

#include "tests/app/expected_help.h"
#include "program/failure.h"
#include "Apps/ZvrsRender/help.h"

using namespace zvrs;

namespace {

TEST(Help, PrintsTheWholeTextByteForByte) {
  testing::internal::CaptureStdout();
  printHelp();
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(printed, std::string(kExpectedHelp));
}

TEST(FailureDeathTest, FatalErrorPrintsReportAndStops) {
  const std::pair<int, const char*> cases[] = {
      {8, "^E000008: cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0\nfile=/src/x.cpp \\(12\\)\n"
          "Critical error : the program stops now.\n$"},
      {10002, "^E010002: cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0\nfile=/src/x.cpp \\(12\\)\n"
              "Critical error : the program stops now.\n$"},
  };
  for (const auto& c : cases)
    EXPECT_EXIT(fatalError(c.first, "cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0", 12,
                           "/src/x.cpp"),
                testing::ExitedWithCode(1), c.second);
}

TEST(Failure, SuccessStatusPrintsNothingAndAsksNothing) {
  // A null context would make the last-error query fail loudly; a success returns before it.
  testing::internal::CaptureStderr();
  checkStatus(1, "f.cpp", 0, nullptr, "never shown", Critical);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
