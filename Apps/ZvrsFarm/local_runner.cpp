#include "Apps/ZvrsFarm/local_runner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Apps/ZvrsFarm/farm_files.h"
#include "Apps/ZvrsFarm/shard_merge.h"

namespace zvrs {

namespace {

// Runs one task as a child process with its output appended to `log`; answers its exit code.
int runTaskProcess(const FarmJob& job, uint32_t task, const std::string& log) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
      ::dup2(fd, STDOUT_FILENO);
      ::dup2(fd, STDERR_FILENO);
      ::close(fd);
    }
    const std::string program = ownProgramPath(), index = std::to_string(task);
    ::execl(program.c_str(), program.c_str(), "task", "--job", job.folder.c_str(), "--index", index.c_str(),
            static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int runLocally(const FarmJob& job) {
  const uint32_t tasks = taskCount(job);
  for (uint32_t task = 0; task < tasks; ++task) {
    const std::string log = job.folder + "/logs/task_" + std::to_string(task) + ".out";
    int status = -1;
    for (uint32_t attempt = 0; attempt <= job.retries && status != 0; ++attempt) {
      std::printf("zvrsFarm: task %u of %u (%s), attempt %u\n", task + 1, tasks, describeTask(job, task).c_str(),
                  attempt + 1);
      status = runTaskProcess(job, task, log);
    }
    if (status != 0) {
      makeFolders(taskFolder(job, task));
      writeFileAtomically(failedMarkerPath(job, task), "task " + std::to_string(task) + " failed with status " +
                                                         std::to_string(status) + "\n");
      std::fprintf(stderr, "zvrsFarm: task %u (%s) failed %u times, see %s\n", task, describeTask(job, task).c_str(),
                   job.retries + 1, log.c_str());
      return 1;
    }
  }
  return runMerge(job);
}

}  // namespace zvrs
