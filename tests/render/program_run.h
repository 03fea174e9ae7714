// Runs the built zvrsRender64 in a folder of its own with the API trace on, and keeps what it
// wrote to standard output and standard error.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

struct ProgramRun {
  int exitCode = -1;
  std::string out;
  std::string err;
  std::vector<std::string> trace;

  // Trace lines of one operation, in call order.
  std::vector<std::string> calls(const std::string& operation) const {
    std::vector<std::string> lines;
    for (const std::string& line : trace) {
      if (line.compare(0, operation.size() + 1, operation + "(") == 0) lines.push_back(line);
    }
    return lines;
  }
};

inline std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

inline std::string readWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

// A fresh, empty working folder for runs, removed with everything in it at the end of its scope.
class RunFolder {
 public:
  explicit RunFolder(const std::string& name)
      : path_(::testing::TempDir() + "zvrs_run_" + std::to_string(getpid()) + "_" + name) {
    std::system(("rm -rf " + shellQuoted(path_) + " && mkdir -p " + shellQuoted(path_)).c_str());
  }
  ~RunFolder() { std::system(("rm -rf " + shellQuoted(path_)).c_str()); }
  RunFolder(const RunFolder&) = delete;
  RunFolder& operator=(const RunFolder&) = delete;

  operator const std::string&() const { return path_; }
  std::string operator/(const std::string& file) const { return path_ + "/" + file; }

 private:
  std::string path_;
};

inline ProgramRun runProgram(const std::string& folder, const std::vector<std::string>& arguments) {
  const std::string trace = folder + "/api.trace";
  std::string command = "cd " + shellQuoted(folder) + " && ZVR_TRACE=" + shellQuoted(trace) + " " +
                        shellQuoted(std::string(ZVR_BIN_DIR) + "/zvrsRender64");
  for (const std::string& argument : arguments) command += " " + shellQuoted(argument);
  command += " > stdout.txt 2> stderr.txt";
  std::remove(trace.c_str());
  const int status = std::system(command.c_str());
  ProgramRun run;
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = readWholeFile(folder + "/stdout.txt");
  run.err = readWholeFile(folder + "/stderr.txt");
  std::ifstream lines(trace);
  for (std::string line; std::getline(lines, line);) run.trace.push_back(line);
  return run;
}
