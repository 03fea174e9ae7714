// --local: a farm job's tasks run on this machine, one after another, each as its own process
// (as on a cluster node) and retried up to the job's bound, then the merge.
#pragma once

#include "Apps/ZvrsFarm/farm_job.h"

namespace zvrs {

// The process's exit code: 0 when every task and the merge succeeded.
int runLocally(const FarmJob& job);

}  // namespace zvrs
