#include "Apps/ZvrsFarm/farm_submit.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Apps/ZvrsFarm/farm_files.h"
#include "Apps/ZvrsFarm/farm_limits.h"
#include "Apps/ZvrsFarm/local_runner.h"
#include "program/config_json.h"

namespace zvrs {

namespace {

bool parseCount(const std::string& text, uint32_t minimum, uint32_t& value) {
  try {
    size_t used = 0;
    const long parsed = std::stol(text, &used);
    if (used != text.size() || parsed < long(minimum) || parsed > 1000000) return false;
    value = uint32_t(parsed);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// The first field of sbatch --parsable's answer ("id" or "id;cluster").
std::string jobIdFrom(const std::string& answer) {
  std::string id = answer.substr(0, answer.find_first_of(";\n"));
  return id.find_first_not_of("0123456789") == std::string::npos ? id : std::string();
}

}  // namespace

bool parseSubmitArguments(const std::vector<std::string>& arguments, SubmitOptions& options, std::string& error) {
  std::vector<std::string> positional;
  FarmJob& job = options.job;
  std::string folder = "farm-job", frames;
  bool shardsGiven = false, fpsGiven = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const bool hasValue = i + 1 < arguments.size();
    auto value = [&]() -> const std::string& { return arguments[++i]; };
    if (argument == "--local") {
      options.local = true;
    } else if (argument.compare(0, 2, "--") != 0) {
      positional.push_back(argument);
    } else if (!hasValue) {
      error = argument + " needs a value";
      return false;
    } else if (argument == "--shards") {
      shardsGiven = true;
      if (!parseCount(value(), 1, job.shards)) {
        error = "--shards must be a whole number of 1 or more";
        return false;
      }
    } else if (argument == "--frames") {
      frames = value();
    } else if (argument == "--fps") {
      fpsGiven = true;
      const std::string& text = value();
      char* end = nullptr;
      job.fps = std::strtod(text.c_str(), &end);
      if (end == text.c_str() || *end != '\0' || !(job.fps > 0) || job.fps > 1e6) {
        error = "--fps must be a number greater than 0";
        return false;
      }
    } else if (argument == "--job") {
      folder = value();
    } else if (argument == "--retries") {
      if (!parseCount(value(), 0, job.retries)) {
        error = "--retries must be a whole number of 0 or more";
        return false;
      }
    } else if (argument == "--partition" || argument == "--time" || argument == "--mem") {
      options.sbatchArguments.push_back(argument + "=" + value());
    } else if (argument == "--sbatch") {
      options.sbatchArguments.push_back(value());
    } else {
      error = "unknown option " + argument;
      return false;
    }
  }
  if (positional.size() < 2 || positional.size() > 3) {
    error = "submit takes a scene file, a configuration file and an optional JSON override";
    return false;
  }
  if (!shardsGiven) {
    error = "--shards is required";
    return false;
  }
  if (!frames.empty() && !fpsGiven) {
    error = "--frames needs --fps to turn frames into animation times";
    return false;
  }
  job.animated = !frames.empty();
  job.frames = {0};
  if (job.animated && !parseFrameRange(frames, job.frames, error)) return false;
  job.sceneArgument = positional[0];
  job.sceneFile = absolutePath(positional[0]);
  job.configFile = absolutePath(positional[1]);
  job.overrideText = positional.size() == 3 ? positional[2] : std::string();
  job.workingDirectory = currentDirectory();
  job.folder = absolutePath(folder);
  return true;
}

std::string jobScript(const FarmJob& job, const std::string& farmProgram) {
  std::string script =
      "#!/bin/bash\n"
      "# Written by zvrsFarm submit. \"task\" renders array task $SLURM_ARRAY_TASK_ID and asks Slurm to run it\n"
      "# again (requeue) when it fails, at most the job's number of retries; \"merge\" merges the job.\n";
  script += "farm=" + shellQuoted(farmProgram) + "\njob=" + shellQuoted(job.folder) +
            "\nretries=" + std::to_string(job.retries) + "\n";
  script +=
      "if [ \"$1\" = merge ]; then exec \"$farm\" merge --job \"$job\"; fi\n"
      "task=$SLURM_ARRAY_TASK_ID\n"
      "attempt=${SLURM_RESTART_COUNT:-0}\n"
      "\"$farm\" task --job \"$job\" --index \"$task\"\n"
      "status=$?\n"
      "[ \"$status\" -eq 0 ] && exit 0\n"
      "if [ \"$attempt\" -lt \"$retries\" ]; then\n"
      "  echo \"zvrsFarm: task $task ended with status $status on attempt $((attempt + 1)); requeued\"\n"
      "  if scontrol requeue \"${SLURM_ARRAY_JOB_ID}_${task}\"; then\n"
      "    # The requeue ends this attempt itself. Ending it first with the failure status races that\n"
      "    # end, and when the failure wins Slurm records the task FAILED and does not run it again.\n"
      "    # So wait to be stopped; give up only if that never comes.\n"
      "    sleep 300\n"
      "    echo \"zvrsFarm: task $task was requeued, but Slurm did not stop this attempt\" >&2\n"
      "    exit \"$status\"\n"
      "  fi\n"
      "fi\n"
      "echo \"task $task failed with status $status after $((attempt + 1)) attempts\" > \"$job/shards/$task/failed\"\n"
      "echo \"zvrsFarm: task $task failed with status $status after $((attempt + 1)) attempts\" >&2\n"
      "exit \"$status\"\n";
  return script;
}

int submitJob(SubmitOptions& options) {
  FarmJob& job = options.job;
  if (!fileExists(job.sceneFile)) {
    std::fprintf(stderr, "zvrsFarm submit: the scene %s does not exist\n", job.sceneFile.c_str());
    return 1;
  }
  // Stops here, with zvrsRender64's own message, when the configuration or override is wrong.
  const ConfigDocument document = frameDocument(job, job.frames[0]);
  const std::string refusal = farmRefusal(document);
  if (!refusal.empty()) {
    std::fprintf(stderr, "zvrsFarm submit: %s\n", refusal.c_str());
    return 1;
  }
  const picojson::value& iterations = document.get("iterations");
  if (iterations.is<double>() && iterations.get<double>() < job.shards) {
    std::fprintf(stderr, "zvrsFarm submit: %u shards need at least %u iterations, the configuration has %g\n",
                 job.shards, job.shards, iterations.get<double>());
    return 1;
  }
  if (fileExists(planPath(job.folder))) {
    std::fprintf(stderr, "zvrsFarm submit: %s already holds a job; choose another --job folder\n", job.folder.c_str());
    return 1;
  }
  const std::string scriptPath = job.folder + "/job.sh";
  if (!makeFolders(job.folder + "/logs") || !makeFolders(job.folder + "/shards") ||
      !writeFileAtomically(scriptPath, jobScript(job, ownProgramPath())) || ::chmod(scriptPath.c_str(), 0755) != 0) {
    std::fprintf(stderr, "zvrsFarm submit: cannot write into %s: %s\n", job.folder.c_str(), std::strerror(errno));
    return 1;
  }
  saveJob(job);
  std::printf("zvrsFarm submit: %u tasks (%zu frames x %u shards) in %s\n", taskCount(job), job.frames.size(),
              job.shards, job.folder.c_str());
  if (options.local) return runLocally(job);

  std::vector<std::string> array = {"sbatch", "--parsable", "--requeue", "--job-name=zvrsFarm",
                                    "--array=0-" + std::to_string(taskCount(job) - 1),
                                    "--output=" + job.folder + "/logs/task_%A_%a.out", "--open-mode=append",
                                    "--chdir=" + job.workingDirectory};
  array.insert(array.end(), options.sbatchArguments.begin(), options.sbatchArguments.end());
  array.insert(array.end(), {scriptPath, "task"});
  const std::string arrayId = jobIdFrom(runCommand(array).output);
  if (arrayId.empty()) {
    std::fprintf(stderr, "zvrsFarm submit: sbatch did not accept the job array (see its message above)\n");
    return 1;
  }
  // afterany, not afterok: once every task has ended, done or failed for good, the merge runs and
  // either merges or names the missing shards, instead of waiting for ever behind a failed task.
  std::vector<std::string> merge = {"sbatch", "--parsable", "--job-name=zvrsFarm-merge",
                                    "--dependency=afterany:" + arrayId, "--output=" + job.folder + "/logs/merge_%j.out",
                                    "--chdir=" + job.workingDirectory};
  merge.insert(merge.end(), options.sbatchArguments.begin(), options.sbatchArguments.end());
  merge.insert(merge.end(), {scriptPath, "merge"});
  const std::string mergeId = jobIdFrom(runCommand(merge).output);
  writeFileAtomically(job.folder + "/slurm", arrayId + " " + mergeId + "\n");
  if (mergeId.empty()) {
    std::fprintf(stderr, "zvrsFarm submit: the array is job %s, but sbatch did not accept the merge job; run "
                 "\"zvrsFarm merge --job %s\" when it is done\n", arrayId.c_str(), job.folder.c_str());
    return 1;
  }
  std::printf("zvrsFarm submit: Slurm job array %s, merge job %s\n", arrayId.c_str(), mergeId.c_str());
  return 0;
}

}  // namespace zvrs
