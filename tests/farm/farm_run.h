// Running zvrsRender64 and zvrsFarm in test folders, and the small file helpers the farm tests share.
#pragma once

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/process_runner.h"
#include "tests/support/program_run.h"

// Single-quoted for the shell, quotes inside closed and reopened.
inline std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

struct CommandRun {
  int exitCode = -1;
  std::string out, err;
};

inline std::string renderProgram() { return std::string(ZVR_BIN_DIR) + "/zvrsRender64"; }
inline std::string farmProgram() { return std::string(ZVR_BIN_DIR) + "/zvrsFarm"; }
inline bool fileExists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}
inline void makeFolder(const std::string& path) { ::mkdir(path.c_str(), 0777); }

inline std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) result.push_back(line);
  return result;
}

// Runs a program in `folder` to its end; `environment` is added to the test's own.
inline CommandRun runIn(const std::string& folder, const std::string& program, const std::vector<std::string>& arguments,
                        const std::vector<std::pair<std::string, std::string>>& environment = {}) {
  ProcessOptions options;
  options.workingDirectory = folder;
  options.environment = environment;
  const ProcessResult result = runProcess(program, arguments, options);
  return {result.exited ? result.exitCode : -1, result.out, result.err};
}

// A small, quick configuration: 64 samples of a 40 x 30 picture on two threads, plus `settings`.
inline std::string writeConfig(const std::string& folder, const std::string& settings) {
  const std::string path = folder + "/config.json";
  std::ofstream(path) << R"({"plugin":"Velder64.dll","gui":0,"width":40,"height":30,"iterations":64,"batchsize":8,)"
                      << R"("print.result":0,"output.json":"stats.json","context":{"gpu0":0,"threads":2})"
                      << (settings.empty() ? "" : ",") << settings << "}";
  return path;
}

// Every channel of every pixel as written, and the channel names: equal means bit for bit.
struct ExrPixels {
  std::vector<std::string> channels;
  std::vector<float> values;
};

inline ExrPixels readExr(const std::string& path) {
  ExrPixels pixels;
  auto input = OIIO::ImageInput::open(path);
  if (!input) return pixels;
  const OIIO::ImageSpec& spec = input->spec();
  pixels.channels = spec.channelnames;
  pixels.values.resize(size_t(spec.width) * spec.height * spec.nchannels);
  input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, pixels.values.data());
  return pixels;
}

inline bool bitEqual(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The statistics lines that do not measure time or memory.
inline std::vector<std::string> statisticsFields(const std::string& path) {
  std::vector<std::string> kept;
  for (const std::string& line : lines(readWholeFile(path)))
    if (line.find(".ms\"") == std::string::npos && line.find("mem.") == std::string::npos) kept.push_back(line);
  return kept;
}

inline void expectSameFiles(const std::string& label, const std::string& expected, const std::string& actual,
                     const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    const std::string a = expected + "/" + file, b = actual + "/" + file;
    ASSERT_TRUE(fileExists(b)) << label << ": " << file << " is missing";
    if (file.size() > 4 && file.compare(file.size() - 4, 4, ".exr") == 0) {
      // The writer stamps EXR headers with the time of writing; the pixels must match bit for bit.
      const ExrPixels want = readExr(a), got = readExr(b);
      EXPECT_EQ(want.channels, got.channels) << label << ": " << file;
      EXPECT_FALSE(want.values.empty()) << label << ": " << file;
      EXPECT_TRUE(bitEqual(want.values, got.values)) << label << ": " << file << " differs in its pixels";
    } else if (file.size() > 5 && file.compare(file.size() - 5, 5, ".json") == 0) {
      EXPECT_EQ(statisticsFields(a), statisticsFields(b)) << label << ": " << file;
    } else {
      EXPECT_EQ(readWholeFile(a), readWholeFile(b)) << label << ": " << file << " differs";
    }
  }
}

