// Runs the built zvrsRender64 to its end in a folder of its own with the API trace on, and keeps
// what it wrote to standard output and standard error and the trace.
#pragma once

#include <string>
#include <vector>

struct ProgramRun {
  int exitCode = -1;  // -1 when a signal ended it
  std::string out;
  std::string err;
  std::vector<std::string> trace;

  // Trace lines of one operation, in call order.
  std::vector<std::string> calls(const std::string& operation) const;
};

ProgramRun runProgram(const std::string& folder, const std::vector<std::string>& arguments);

std::string readWholeFile(const std::string& path);

// A fresh, empty working folder for runs, removed with everything in it at the end of its scope.
class RunFolder {
 public:
  explicit RunFolder(const std::string& name);
  ~RunFolder();
  RunFolder(const RunFolder&) = delete;
  RunFolder& operator=(const RunFolder&) = delete;

  operator const std::string&() const { return path_; }
  std::string operator/(const std::string& file) const { return path_ + "/" + file; }

 private:
  std::string path_;
};
