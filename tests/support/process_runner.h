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

// A program that runs beside the test, for tests that talk to it while it runs (a window).
class ChildProcess {
 public:
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const ProcessOptions& options = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Reads what the child has written so far, waiting at most `milliseconds` for more.
  void pump(int milliseconds);
  // True once standard output holds `text`; false after `seconds` or when the child has ended.
  bool waitForOutput(const std::string& text, double seconds);
  const ProcessResult& output() const { return result_; }
  // Waits for the end, at most `seconds` (then kills the child), and answers how it ended.
  ProcessResult finish(double seconds = 600.0);

 private:
  ProcessResult result_;
  int pid_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  bool outOpen_ = false;
  bool errOpen_ = false;
};

// The built program beside the tests' binaries.
std::string renderProgramPath();
