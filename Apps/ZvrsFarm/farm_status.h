// How far a farm job is: tasks pending, running, done and failed, from Slurm's queue where the job
// went to Slurm and from the files the tasks leave in the job folder.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Apps/ZvrsFarm/farm_job.h"

namespace zvrs {

struct TaskCounts {
  uint32_t pending = 0, running = 0, done = 0, failed = 0;
};

// Slurm's state of each array task ("PENDING", "RUNNING", ...) as squeue lists them, by task index.
TaskCounts countTasks(const FarmJob& job, const std::map<uint32_t, std::string>& queued, bool submittedToSlurm);
// The process's exit code: 0 when the job could be read.
int printStatus(const FarmJob& job);

}  // namespace zvrs
