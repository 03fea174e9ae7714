#include "tests/support/program_run.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/process_runner.h"

std::vector<std::string> ProgramRun::calls(const std::string& operation) const {
  std::vector<std::string> lines;
  for (const std::string& line : trace)
    if (line.compare(0, operation.size() + 1, operation + "(") == 0) lines.push_back(line);
  return lines;
}

ProgramRun runProgram(const std::string& folder, const std::vector<std::string>& arguments) {
  const std::string trace = folder + "/api.trace";
  std::remove(trace.c_str());
  const ProcessResult result = runProcess(renderProgramPath(), arguments, {folder, {{"ZVR_TRACE", trace}}});
  ProgramRun run;
  run.exitCode = result.exited ? result.exitCode : -1;
  run.out = result.out;
  run.err = result.err;
  std::ifstream lines(trace);
  for (std::string line; std::getline(lines, line);) run.trace.push_back(line);
  return run;
}

std::string readWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

RunFolder::RunFolder(const std::string& name)
    : path_((std::filesystem::temp_directory_path() / ("zvrs_run_" + std::to_string(getpid()) + "_" + name)).string()) {
  std::filesystem::remove_all(path_);
  std::filesystem::create_directories(path_);
}

RunFolder::~RunFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}
