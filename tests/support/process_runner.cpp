#include "tests/support/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
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

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

std::string renderProgramPath() { return std::string(ZVR_BIN_DIR) + "/zvrsRender64"; }

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const ProcessOptions& options) {
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0) return;
  if (pipe(errPipe) != 0) {
    close(outPipe[0]);
    close(outPipe[1]);
    return;
  }
  // Leaks are the libraries' in-process tests' business: in a child, the leak checker's tracer now
  // and then crashes at exit beside the image library's thread pools and fails a run that was fine.
  const char* sanitizerOptions = getenv("ASAN_OPTIONS");
  const std::string childSanitizerOptions = std::string(sanitizerOptions ? sanitizerOptions : "") + ":detect_leaks=0";
  const pid_t child = fork();
  if (child == 0) {
    setenv("ASAN_OPTIONS", childSanitizerOptions.c_str(), 1);
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
    execvp(program.c_str(), argv.data());  // a bare name is looked up on PATH
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  pid_ = child;
  outFd_ = outPipe[0];
  errFd_ = errPipe[0];
  outOpen_ = errOpen_ = child > 0;
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) finish(0.0);
}

void ChildProcess::pump(int milliseconds) {
  if (!outOpen_ && !errOpen_) return;
  // A negative descriptor is skipped by poll, so a stream at its end stops waking the loop.
  pollfd fds[2] = {{outOpen_ ? outFd_ : -1, POLLIN, 0}, {errOpen_ ? errFd_ : -1, POLLIN, 0}};
  if (poll(fds, 2, milliseconds) <= 0) return;
  if (outOpen_ && (fds[0].revents & (POLLIN | POLLHUP | POLLERR))) readInto(outFd_, result_.out, outOpen_);
  if (errOpen_ && (fds[1].revents & (POLLIN | POLLHUP | POLLERR))) readInto(errFd_, result_.err, errOpen_);
}

bool ChildProcess::waitForOutput(const std::string& text, double seconds) {
  const auto start = std::chrono::steady_clock::now();
  while (result_.out.find(text) == std::string::npos) {
    if (!outOpen_ || secondsSince(start) > seconds) return false;
    pump(50);
  }
  return true;
}

ProcessResult ChildProcess::finish(double seconds) {
  if (pid_ <= 0) return result_;
  // Both streams are drained together so that a chatty child never blocks on a full pipe.
  const auto start = std::chrono::steady_clock::now();
  while (outOpen_ || errOpen_) {
    if (secondsSince(start) > seconds) {
      kill(pid_, SIGKILL);
      seconds = 1e9;
    }
    pump(100);
  }
  close(outFd_);
  close(errFd_);
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  if (WIFEXITED(status)) {
    result_.exited = true;
    result_.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result_.signal = WTERMSIG(status);
  }
  return result_;
}

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
  ChildProcess child(program, arguments, options);
  return child.finish();
}
