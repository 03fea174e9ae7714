#include "Apps/ZvrsFarm/farm_files.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace zvrs {

bool writeFileAtomically(const std::string& path, const std::string& text) {
  const std::string temporary = path + ".tmp" + std::to_string(::getpid());
  {
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
      ::unlink(temporary.c_str());
      return false;
    }
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

bool readTextFile(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::stringstream content;
  content << file.rdbuf();
  text = content.str();
  return true;
}

bool fileExists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

bool makeFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
    ::mkdir(path.substr(0, slash).c_str(), 0777);
  ::mkdir(path.c_str(), 0777);
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string currentDirectory() {
  char buffer[PATH_MAX];
  return ::getcwd(buffer, sizeof buffer) ? std::string(buffer) : std::string(".");
}

std::string absolutePath(const std::string& path) {
  if (!path.empty() && path[0] == '/') return path;
  return currentDirectory() + "/" + path;
}

std::string ownProgramPath() {
  char buffer[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  return length > 0 ? std::string(buffer, size_t(length)) : std::string("zvrsFarm");
}

CommandResult runCommand(const std::vector<std::string>& arguments) {
  CommandResult result;
  int pipeEnds[2];
  if (arguments.empty() || ::pipe(pipeEnds) != 0) return result;
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child < 0) {
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
    return result;
  }
  if (child == 0) {
    ::dup2(pipeEnds[1], STDOUT_FILENO);
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
    std::vector<char*> argv;
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    std::fprintf(stderr, "%s cannot be run: %s\n", argv[0], std::strerror(errno));
    ::_exit(127);
  }
  ::close(pipeEnds[1]);
  char buffer[4096];
  for (ssize_t got; (got = ::read(pipeEnds[0], buffer, sizeof buffer)) != 0;) {
    if (got < 0) {
      if (errno == EINTR) continue;
      break;
    }
    result.output.append(buffer, size_t(got));
  }
  ::close(pipeEnds[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (result.exitCode == 127) result.exitCode = -1;
  return result;
}

}  // namespace zvrs
