#include "process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

void readInto(int fd, std::string& text, bool& open) {
  char buffer[4096];
  const ssize_t count = read(fd, buffer, sizeof buffer);
  if (count > 0)
    text.append(buffer, static_cast<size_t>(count));
  else if (count == 0 || errno != EINTR)
    open = false;
}

}  // namespace

std::string renderProgramPath() { return std::string(ZVR_BIN_DIR) + "/zvrsRender64"; }

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
  ProcessResult result;
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0) return result;

  const pid_t child = fork();
  if (child == 0) {
    dup2(outPipe[1], STDOUT_FILENO);
    dup2(errPipe[1], STDERR_FILENO);
    close(outPipe[0]);
    close(errPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);
    if (!options.workingDirectory.empty() && chdir(options.workingDirectory.c_str()) != 0) _exit(126);
    for (const auto& [name, value] : options.environment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);

  // Both streams are drained together so that a chatty child never blocks on a full pipe.
  bool outOpen = true;
  bool errOpen = true;
  while (outOpen || errOpen) {
    // A negative descriptor is skipped by poll, so a stream at its end stops waking the loop.
    pollfd fds[2] = {{outOpen ? outPipe[0] : -1, POLLIN, 0}, {errOpen ? errPipe[0] : -1, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (outOpen && (fds[0].revents & (POLLIN | POLLHUP | POLLERR))) readInto(outPipe[0], result.out, outOpen);
    if (errOpen && (fds[1].revents & (POLLIN | POLLHUP | POLLERR))) readInto(errPipe[0], result.err, errOpen);
  }
  close(outPipe[0]);
  close(errPipe[0]);

  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exited = true;
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  return result;
}
