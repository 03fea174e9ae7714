// Running zvrsRender64 and zvrsFarm in test folders, and comparing what they wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/render/image_file.h"
#include "tests/support/process_runner.h"
#include "tests/support/program_run.h"

inline std::string farmProgram() { return std::string(ZVR_BIN_DIR) + "/zvrsFarm"; }
inline bool fileExists(const std::string& path) { return std::filesystem::exists(path); }

// Runs a program in `folder` to its end; `environment` is added to the test's own.
inline ProcessResult runIn(const std::string& folder, const std::string& program,
                           const std::vector<std::string>& arguments,
                           const std::vector<std::pair<std::string, std::string>>& environment = {}) {
  return runProcess(program, arguments, ProcessOptions{folder, environment});
}

// A small, quick configuration: 64 samples of a 40 x 30 picture on two threads, plus `settings`.
inline std::string writeConfig(const std::string& folder, const std::string& settings) {
  const std::string path = folder + "/config.json";
  std::ofstream(path) << R"({"plugin":"Velder64.dll","gui":0,"width":40,"height":30,"iterations":64,"batchsize":8,)"
                      << R"("print.result":0,"output.json":"stats.json","context":{"gpu0":0,"threads":2})"
                      << (settings.empty() ? "" : ",") << settings << "}";
  return path;
}

// The statistics lines that do not measure time or memory.
inline std::vector<std::string> statisticsFields(const std::string& path) {
  std::vector<std::string> kept;
  std::istringstream text(readWholeFile(path));
  for (std::string line; std::getline(text, line);)
    if (line.find(".ms\"") == std::string::npos && line.find("mem.") == std::string::npos) kept.push_back(line);
  return kept;
}

inline void expectSameFiles(const std::string& label, const std::string& expected, const std::string& actual,
                            const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    const std::string a = expected + "/" + file, b = actual + "/" + file, extension = std::filesystem::path(file).extension();
    ASSERT_TRUE(fileExists(b)) << label << ": " << file << " is missing";
    if (extension == ".exr") {
      // The writer stamps EXR headers with the time of writing; the pixels must match bit for bit.
      const ImageFile want = readImageFile(a), got = readImageFile(b);
      EXPECT_EQ(want.channels, got.channels) << label << ": " << file;
      EXPECT_FALSE(want.values.empty()) << label << ": " << file;
      EXPECT_TRUE(want.values.size() == got.values.size() &&
                  std::memcmp(want.values.data(), got.values.data(), want.values.size() * sizeof(float)) == 0)
          << label << ": " << file << " differs in its pixels";
    } else if (extension == ".json") {
      EXPECT_EQ(statisticsFields(a), statisticsFields(b)) << label << ": " << file;
    } else {
      EXPECT_EQ(readWholeFile(a), readWholeFile(b)) << label << ": " << file << " differs";
    }
  }
}
