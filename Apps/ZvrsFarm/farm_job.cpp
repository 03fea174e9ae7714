#include "Apps/ZvrsFarm/farm_job.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "Apps/ZvrsFarm/farm_files.h"
#include "program/config_json.h"

namespace zvrs {

namespace {

bool parseInt(const std::string& text, int32_t& value) {
  if (text.empty()) return false;
  size_t used = 0;
  try {
    const long parsed = std::stol(text, &used);
    if (used != text.size() || parsed < INT32_MIN || parsed > INT32_MAX) return false;
    value = int32_t(parsed);
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

std::string padded(int32_t frame) {
  char text[32];
  std::snprintf(text, sizeof text, frame < 0 ? "%05d" : "%04d", frame);
  return text;
}

}  // namespace

SampleRange shardSamples(uint32_t total, uint32_t shard, uint32_t shards) {
  const uint64_t begin = uint64_t(total) * shard / shards;
  const uint64_t end = uint64_t(total) * (shard + 1) / shards;
  return {uint32_t(begin), uint32_t(end - begin)};
}

bool parseFrameRange(const std::string& text, std::vector<int32_t>& frames, std::string& error) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, ':');) parts.push_back(part);
  int32_t first = 0, last = 0, step = 1;
  if (parts.size() < 2 || parts.size() > 3 || !parseInt(parts[0], first) || !parseInt(parts[1], last) ||
      (parts.size() == 3 && !parseInt(parts[2], step))) {
    error = "--frames \"" + text + "\" is not FIRST:LAST or FIRST:LAST:STEP with whole numbers";
    return false;
  }
  if (step < 1 || last < first) {
    error = "--frames \"" + text + "\" is empty: LAST must not be below FIRST and STEP must be 1 or more";
    return false;
  }
  frames.clear();
  for (int64_t frame = first; frame <= last; frame += step) frames.push_back(int32_t(frame));
  return true;
}

uint32_t taskCount(const FarmJob& job) { return uint32_t(job.frames.size()) * job.shards; }
int32_t frameOfTask(const FarmJob& job, uint32_t task) { return job.frames[task / job.shards]; }
uint32_t shardOfTask(const FarmJob& job, uint32_t task) { return task % job.shards; }

std::string describeTask(const FarmJob& job, uint32_t task) {
  const std::string shard = "shard " + std::to_string(shardOfTask(job, task));
  return job.animated ? "frame " + std::to_string(frameOfTask(job, task)) + " " + shard : shard;
}

std::string planPath(const std::string& jobFolder) { return jobFolder + "/job.json"; }
std::string taskFolder(const FarmJob& job, uint32_t task) { return job.folder + "/shards/" + std::to_string(task); }
std::string accumulationPath(const FarmJob& job, uint32_t task, size_t element) {
  return taskFolder(job, task) + "/element" + std::to_string(element) + ".zacc";
}
std::string manifestPath(const FarmJob& job, uint32_t task) { return taskFolder(job, task) + "/done.json"; }
std::string runningMarkerPath(const FarmJob& job, uint32_t task) { return taskFolder(job, task) + "/running"; }
std::string failedMarkerPath(const FarmJob& job, uint32_t task) { return taskFolder(job, task) + "/failed"; }

std::string frameOutputFolder(const FarmJob& job, int32_t frame) {
  return job.animated ? job.folder + "/output/frame_" + padded(frame) : job.folder + "/output";
}

void saveJob(const FarmJob& job) {
  picojson::object plan;
  plan["scene"] = picojson::value(job.sceneFile);
  plan["scene.argument"] = picojson::value(job.sceneArgument);
  plan["config"] = picojson::value(job.configFile);
  plan["override"] = picojson::value(job.overrideText);
  plan["workdir"] = picojson::value(job.workingDirectory);
  plan["shards"] = picojson::value(double(job.shards));
  plan["animated"] = picojson::value(job.animated);
  picojson::array frames;
  for (int32_t frame : job.frames) frames.push_back(picojson::value(double(frame)));
  plan["frames"] = picojson::value(frames);
  plan["fps"] = picojson::value(job.fps);
  plan["retries"] = picojson::value(double(job.retries));
  writeFileAtomically(planPath(job.folder), picojson::value(plan).serialize(true));
}

bool loadJob(const std::string& jobFolder, FarmJob& job, std::string& error) {
  std::string text;
  if (!readTextFile(planPath(jobFolder), text)) {
    error = planPath(jobFolder) + " cannot be read: is " + jobFolder + " a farm job folder?";
    return false;
  }
  picojson::value plan;
  const std::string parseError = picojson::parse(plan, text);
  const auto text_ = [&](const char* key) { return plan.get(key).is<std::string>() ? plan.get(key).get<std::string>() : ""; };
  const auto number = [&](const char* key) { return plan.get(key).is<double>() ? plan.get(key).get<double>() : -1.0; };
  if (!parseError.empty() || !plan.is<picojson::object>() || number("shards") < 1 || !plan.get("frames").is<picojson::array>() ||
      plan.get("frames").get<picojson::array>().empty()) {
    error = planPath(jobFolder) + " is not a farm plan" + (parseError.empty() ? "" : ": " + parseError);
    return false;
  }
  job.folder = jobFolder;
  job.sceneFile = text_("scene");
  job.sceneArgument = text_("scene.argument");
  job.configFile = text_("config");
  job.overrideText = text_("override");
  job.workingDirectory = text_("workdir");
  job.shards = uint32_t(number("shards"));
  job.animated = plan.get("animated").is<bool>() && plan.get("animated").get<bool>();
  job.frames.clear();
  for (const picojson::value& frame : plan.get("frames").get<picojson::array>())
    job.frames.push_back(frame.is<double>() ? int32_t(frame.get<double>()) : 0);
  job.fps = number("fps");
  job.retries = uint32_t(std::max(0.0, number("retries")));
  return true;
}

ConfigDocument frameDocument(const FarmJob& job, int32_t frame) {
  ConfigDocument document = loadConfigFile(job.configFile);
  if (!job.overrideText.empty()) mergeOverride(parseJsonString(job.overrideText.data(), job.overrideText.size()), document);
  picojson::object farm;
  farm["gui"] = picojson::value(0.0);
  if (job.animated) farm["animation.time"] = picojson::value(double(frame) / job.fps);
  mergeOverride(picojson::value(farm), document);
  return document;
}

}  // namespace zvrs
