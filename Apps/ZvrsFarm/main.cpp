// zvrsFarm: renders one scene on a Slurm cluster (or on this machine) in sample shards and frames,
// and merges the shards into the files one long zvrsRender64 run would write.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Apps/ZvrsFarm/farm_files.h"
#include "Apps/ZvrsFarm/farm_job.h"
#include "Apps/ZvrsFarm/farm_status.h"
#include "Apps/ZvrsFarm/farm_submit.h"
#include "Apps/ZvrsFarm/shard_merge.h"
#include "Apps/ZvrsFarm/shard_task.h"

namespace zvrs {

namespace {

const char kUsage[] =
    "Usage:\n"
    "  zvrsFarm submit scene cfg.json [override] --shards N [--frames FIRST:LAST[:STEP] --fps F]\n"
    "           [--job FOLDER] [--retries R] [--local] [--partition P] [--time T] [--mem M] [--sbatch ARG]...\n"
    "      Splits each frame's \"iterations\" into N shards and submits one Slurm job array (a task per\n"
    "      shard and frame) and a merge job that waits for it. --local runs the tasks here instead.\n"
    "      A failed task is requeued at most R times (default 2). FOLDER (default farm-job) must be on\n"
    "      a file system every node shares, like the scene and the configuration.\n"
    "  zvrsFarm status [--job FOLDER]     tasks pending, running, done and failed\n"
    "  zvrsFarm merge [--job FOLDER]      writes each frame's outputs into FOLDER/output[/frame_NNNN]\n"
    "  zvrsFarm task --job FOLDER --index I    runs one task (what the job script calls)\n";

// --job FOLDER and --index I after a subcommand; false for anything else.
bool parseJobArguments(const std::vector<std::string>& arguments, std::string& folder, long* index) {
  for (size_t i = 0; i < arguments.size(); i += 2) {
    if (i + 1 >= arguments.size()) return false;
    if (arguments[i] == "--job") folder = arguments[i + 1];
    else if (arguments[i] == "--index" && index) {
      char* end = nullptr;
      *index = std::strtol(arguments[i + 1].c_str(), &end, 10);
      if (*end != '\0' || *index < 0) return false;
    } else return false;
  }
  return true;
}

int usageError(const std::string& message) {
  std::fprintf(stderr, "zvrsFarm: %s\n%s", message.c_str(), kUsage);
  return 2;
}

}  // namespace

}  // namespace zvrs

int main(int argc, char** argv) {
  using namespace zvrs;
  if (argc < 2 || std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0) {
    std::printf("%s", kUsage);
    return argc < 2 ? 2 : 0;
  }
  const std::string command = argv[1];
  const std::vector<std::string> arguments(argv + 2, argv + argc);
  if (command == "submit") {
    SubmitOptions options;
    std::string error;
    if (!parseSubmitArguments(arguments, options, error)) return usageError(error);
    return submitJob(options);
  }
  if (command != "status" && command != "merge" && command != "task") return usageError("unknown command " + command);

  std::string folder = "farm-job";
  long index = -1;
  if (!parseJobArguments(arguments, folder, command == "task" ? &index : nullptr) || (command == "task" && index < 0))
    return usageError("wrong arguments for " + command);
  FarmJob job;
  std::string error;
  if (!loadJob(absolutePath(folder), job, error)) {
    std::fprintf(stderr, "zvrsFarm %s: %s\n", command.c_str(), error.c_str());
    return 1;
  }
  if (command == "status") return printStatus(job);
  if (command == "merge") return runMerge(job);
  return runShardTask(job, uint32_t(index));
}
