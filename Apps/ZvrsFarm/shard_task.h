// One task of a farm job: the same set-up as zvrsRender64, the shard's samples rendered from its
// first sample index, the raw accumulation of every output element saved, and the manifest last,
// so a shard counts as done only when all of its files are whole.
#pragma once

#include <cstdint>

#include "Apps/ZvrsFarm/farm_job.h"

namespace zvrs {

// The process's exit code: 0 done, 1 failed (reported on standard error).
int runShardTask(const FarmJob& job, uint32_t task);

}  // namespace zvrs
