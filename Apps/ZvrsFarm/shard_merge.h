// The merge of a farm job: per frame, the shards' accumulations summed in shard order into the
// output elements, then the batch loop's own saving road and statistics, so the files are those of
// one long zvrsRender64 run. It refuses an incomplete job and names what is missing; merging again
// writes the same files.
#pragma once

#include "Apps/ZvrsFarm/farm_job.h"

namespace zvrs {

// The process's exit code: 0 merged, 1 refused or failed (reported on standard error).
int runMerge(const FarmJob& job);

}  // namespace zvrs
