// Submitting a farm job: the plan and the job script written into the job folder, then one Slurm
// job array (one task per shard and frame) and a merge job that waits for it, or, with --local,
// the same tasks run here one after another and merged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Apps/ZvrsFarm/farm_job.h"

namespace zvrs {

struct SubmitOptions {
  FarmJob job;
  bool local = false;
  std::vector<std::string> sbatchArguments;  // passed to both sbatch calls
};

// Fills `options` from the arguments after "submit"; false with `error` for a wrong command line.
bool parseSubmitArguments(const std::vector<std::string>& arguments, SubmitOptions& options, std::string& error);
// The bash script that runs one array task with bounded requeues, or the merge.
std::string jobScript(const FarmJob& job, const std::string& farmProgram);
// The process's exit code.
int submitJob(SubmitOptions& options);

}  // namespace zvrs
