// zvrsFarm on a real one-node Slurm cluster that the test starts in a folder of its own (munge,
// slurmctld, slurmd on 127.0.0.1): a 2-frame x 2-shard job array with its merge job, one task killed
// in the middle of rendering and requeued, and the merged files equal to one long run per frame; and
// without retries, the merge job that names the shard that failed for good.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "tests/farm/farm_run.h"

namespace {

const std::string kAnimated = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/BoxAnimated/BoxAnimated.glb";
const std::string kClusterScript = std::string(ZVR_SOURCE_DIR) + "/scripts/slurm-test-cluster.sh";

bool slurmInstalled() {
  return runIn("/", "bash", {"-c", "command -v slurmctld slurmd munged sbatch scontrol squeue"}).exitCode == 0;
}

// A port nobody listens on now, chosen by the system.
int freePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(fd);
  return ntohs(address.sin_port);
}

template <class Condition>
bool waitFor(Condition condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return condition();
}

class SlurmCluster : public ::testing::Test {
 public:
  void SetUp() override {
    if (!slurmInstalled())
      GTEST_SKIP() << "Slurm is not installed (slurmctld, slurmd, munged, sbatch); scripts/install-deps.sh installs it";
    if (::geteuid() != 0) GTEST_SKIP() << "the one-node Slurm cluster of this test runs as root";
    clusterFolder_ = ::testing::TempDir() + "zvrs_slurm_" + std::to_string(::getpid());
    // Stopped in any case: whatever the start got to, even when it failed half-way.
    const ProcessResult start = runIn("/", "bash", {kClusterScript, "start", clusterFolder_, std::to_string(freePort()),
                                                    std::to_string(freePort())});
    ASSERT_EQ(start.exitCode, 0) << start.err;
  }
  void TearDown() override {
    if (clusterFolder_.empty()) return;
    runIn("/", "bash", {kClusterScript, "stop", clusterFolder_});
    std::filesystem::remove_all(clusterFolder_);
  }
  ProcessResult slurm(const std::string& folder, const std::string& program, const std::vector<std::string>& arguments) {
    return runIn(folder, program, arguments, {{"SLURM_CONF", clusterFolder_ + "/slurm.conf"}});
  }

  std::string clusterFolder_;
};

// Submits 2 frames x 2 shards with `retries` and kills task 0 once it has printed its first
// percentage: in the middle of rendering. Returns the array's and the merge job's ids.
std::pair<std::string, std::string> submitAndKillTask0(SlurmCluster& cluster, const RunFolder& folder,
                                                       const std::string& config, const std::string& retries) {
  const ProcessResult submit = cluster.slurm(folder, farmProgram(),
                                          {"submit", kAnimated, config, "--shards", "2", "--frames", "1:2", "--fps",
                                           "24", "--job", "job", "--retries", retries});
  EXPECT_EQ(submit.exitCode, 0) << submit.out << submit.err;
  std::istringstream ids(readWholeFile(folder / "job/slurm"));
  std::string arrayId, mergeId;
  ids >> arrayId >> mergeId;
  const std::string log = folder / ("job/logs/task_" + arrayId + "_0.out");
  EXPECT_TRUE(waitFor([&] { return readWholeFile(log).find("%\n") != std::string::npos; }, 60)) << readWholeFile(log);
  std::string host;
  long pid = 0;
  std::istringstream(readWholeFile(folder / "job/shards/0/running")) >> host >> pid;
  EXPECT_GT(pid, 0);
  EXPECT_EQ(pid > 0 ? ::kill(pid_t(pid), SIGKILL) : -1, 0) << "task 0 ended before it could be killed";
  return {arrayId, mergeId};
}

// One cluster, two jobs in turn: with a retry the killed task is requeued and the merged files equal
// one long run per frame; without, it fails for good and the merge job still runs, names what is
// missing and writes nothing, instead of waiting for ever behind the failed task.
TEST_F(SlurmCluster, KilledTaskIsRequeuedOrNamedByTheMergeJob) {
  const RunFolder folder("slurm");
  const std::string config =
      writeConfig(folder, R"("width":80,"height":60,"batchsize":2,"print.progress":1,"output":["out.png","out.exr"],"aovs":{"normal":"n.exr"})");
  const std::string arrayId = submitAndKillTask0(*this, folder, config, "1").first;
  ASSERT_FALSE(HasFailure());
  const std::string log = folder / ("job/logs/task_" + arrayId + "_0.out");

  // Slurm holds a requeued task for two minutes before it may start again; the test lifts the hold,
  // but only once the task is back in the queue: lifted earlier, it can start again before its
  // killed attempt is wound up. Polled twice a second so the polling does not load the node.
  const std::string task0 = arrayId + "_0";
  const bool merged = waitFor(
      [&] {
        if (fileExists(folder / "job/merged")) return true;
        if (slurm(folder, "squeue", {"--noheader", "--jobs=" + task0, "--states=PENDING", "--format=%r"}).out ==
            "BeginTime\n")
          slurm(folder, "scontrol", {"update", "JobId=" + task0, "StartTime=now"});
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return fileExists(folder / "job/merged");
      },
      90);
  ASSERT_TRUE(merged) << readWholeFile(log) << slurm(folder, "squeue", {"--format=%i %T %r"}).out
                      << readWholeFile(clusterFolder_ + "/slurmctld.log");
  EXPECT_NE(readWholeFile(log).find("zvrsFarm: task 0 ended with status 137 on attempt 1; requeued"), std::string::npos)
      << readWholeFile(log);
  const ProcessResult status = slurm(folder, farmProgram(), {"status", "--job", "job"});
  EXPECT_NE(status.out.find("pending 0, running 0, done 4, failed 0\nmerged into"), std::string::npos) << status.out;

  for (int frame : {1, 2}) {
    const std::string longRun = folder / ("long" + std::to_string(frame));
    std::filesystem::create_directory(longRun);
    char time[128];
    std::snprintf(time, sizeof time, R"({"animation.time":%.17g})", frame / 24.0);
    const ProcessResult single = runIn(longRun, renderProgramPath(), {kAnimated, config, time});
    ASSERT_EQ(single.exitCode, 0) << single.err;
    expectSameFiles("frame " + std::to_string(frame), longRun, folder / ("job/output/frame_000" + std::to_string(frame)),
                    {"out.png", "out.exr", "n.exr", "stats.json"});
  }

  const RunFolder failing("slurm_failed");
  const std::string failingConfig = writeConfig(failing, R"("width":80,"height":60,"batchsize":2,"print.progress":1)");
  const auto [failingArray, mergeId] = submitAndKillTask0(*this, failing, failingConfig, "0");
  ASSERT_FALSE(HasFailure());
  const std::string mergeLog = failing / ("job/logs/merge_" + mergeId + ".out");
  ASSERT_TRUE(waitFor([&] { return readWholeFile(mergeLog).find("Missing:\n  frame 1: shards 0\n") != std::string::npos; },
                      60))
      << readWholeFile(mergeLog) << slurm(failing, "squeue", {"--format=%i %T %r"}).out;
  EXPECT_NE(readWholeFile(failing / ("job/logs/task_" + failingArray + "_0.out"))
                .find("zvrsFarm: task 0 failed with status 137 after 1 attempts"),
            std::string::npos);
  EXPECT_FALSE(fileExists(failing / "job/merged"));
  EXPECT_FALSE(fileExists(failing / "job/output"));
}

}  // namespace
