// Runs a program to its end and keeps what it wrote and how it ended.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct ProcessResult {
  std::string out;
  std::string err;
  int exitCode = -1;     // valid when the process exited
  bool exited = false;   // false when a signal ended it
  int signal = 0;
};

struct ProcessOptions {
  std::string workingDirectory;                              // empty: the caller's
  std::vector<std::pair<std::string, std::string>> environment;  // added to the caller's
};

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

// The built program beside the tests' binaries.
std::string renderProgramPath();
