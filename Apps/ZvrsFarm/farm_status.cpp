#include "Apps/ZvrsFarm/farm_status.h"

#include <csignal>
#include <cstdio>
#include <sstream>

#include "Apps/ZvrsFarm/farm_files.h"

namespace zvrs {

namespace {

// The running marker of a local task names its process; a process that is gone was killed.
bool localProcessAlive(const std::string& marker) {
  std::string text, host;
  long pid = 0;
  if (!readTextFile(marker, text)) return false;
  std::istringstream(text) >> host >> pid;
  return pid > 0 && ::kill(pid_t(pid), 0) == 0;
}

}  // namespace

TaskCounts countTasks(const FarmJob& job, const std::map<uint32_t, std::string>& queued, bool submittedToSlurm) {
  TaskCounts counts;
  for (uint32_t task = 0; task < taskCount(job); ++task) {
    const auto inQueue = queued.find(task);
    if (fileExists(manifestPath(job, task))) {
      ++counts.done;
    } else if (inQueue != queued.end()) {
      const std::string& state = inQueue->second;
      if (state == "RUNNING" || state == "COMPLETING") ++counts.running;
      else if (state == "FAILED" || state == "TIMEOUT" || state == "NODE_FAIL" || state == "OUT_OF_MEMORY" ||
               state == "CANCELLED")
        ++counts.failed;
      else ++counts.pending;
    } else if (fileExists(failedMarkerPath(job, task))) {
      ++counts.failed;
    } else if (submittedToSlurm) {
      // Left the queue without a manifest: it ended without finishing.
      if (fileExists(runningMarkerPath(job, task))) ++counts.failed;
      else ++counts.pending;
    } else if (fileExists(runningMarkerPath(job, task))) {
      if (localProcessAlive(runningMarkerPath(job, task))) ++counts.running;
      else ++counts.failed;
    } else {
      ++counts.pending;
    }
  }
  return counts;
}

int printStatus(const FarmJob& job) {
  std::string slurmText, arrayId, mergeId;
  const bool submittedToSlurm = readTextFile(job.folder + "/slurm", slurmText);
  std::istringstream(slurmText) >> arrayId >> mergeId;
  std::map<uint32_t, std::string> queued;
  std::string mergeState;
  if (submittedToSlurm) {
    const CommandResult listed =
        runCommand({"squeue", "--noheader", "--array", "--states=all", "--jobs=" + arrayId + (mergeId.empty() ? "" : "," + mergeId),
                    "--format=%i %T"});
    if (listed.exitCode != 0)
      std::fprintf(stderr, "zvrsFarm status: squeue failed; counting from the job folder alone\n");
    std::istringstream lines(listed.output);
    for (std::string id, state; lines >> id >> state;) {
      const size_t underscore = id.find('_');
      if (id == mergeId) mergeState = state;
      else if (underscore != std::string::npos && id.compare(0, underscore, arrayId) == 0)
        queued[uint32_t(std::stoul(id.substr(underscore + 1)))] = state;
    }
  }
  const TaskCounts counts = countTasks(job, queued, submittedToSlurm);
  std::printf("job %s: %zu frame(s) x %u shard(s) = %u tasks%s\n", job.folder.c_str(), job.frames.size(), job.shards,
              taskCount(job), submittedToSlurm ? (", Slurm job array " + arrayId).c_str() : ", local");
  std::printf("pending %u, running %u, done %u, failed %u\n", counts.pending, counts.running, counts.done,
              counts.failed);
  if (fileExists(job.folder + "/merged")) std::printf("merged into %s/output\n", job.folder.c_str());
  else if (!mergeState.empty()) std::printf("merge job %s: %s\n", mergeId.c_str(), mergeState.c_str());
  else std::printf("not merged yet\n");
  return 0;
}

}  // namespace zvrs
