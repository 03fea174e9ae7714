// File and process helpers of the farm: whole files written atomically (a reader on another node
// sees the old file or the new one, never half of one), folders, and programs run to their end.
#pragma once

#include <string>
#include <vector>

namespace zvrs {

// Writes to a temporary name in the same folder and renames; false when that failed.
bool writeFileAtomically(const std::string& path, const std::string& text);
bool readTextFile(const std::string& path, std::string& text);
bool fileExists(const std::string& path);
// Creates the folder and its parents; false when it does not exist afterwards.
bool makeFolders(const std::string& path);
// An absolute path for `path` relative to the working directory.
std::string absolutePath(const std::string& path);
std::string currentDirectory();
// This program's own file, for running it again as a task.
std::string ownProgramPath();

struct CommandResult {
  int exitCode = -1;    // -1 when the program could not be run or a signal ended it
  std::string output;   // standard output
};
// Runs a program found on PATH with these arguments (no shell), standard error passed through.
CommandResult runCommand(const std::vector<std::string>& arguments);

}  // namespace zvrs
