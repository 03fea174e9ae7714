#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "tests/loadstore/api_fixture.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::testing {
namespace {

namespace fs = std::filesystem;
// Whole-line match where '*' stands for any run of characters (std::regex warns in the
// sanitizer build).
bool matchesPattern(const char* text, const char* pattern) {
  if (*pattern == '\0') return *text == '\0';
  if (*pattern == '*') return matchesPattern(text, pattern + 1) || (*text && matchesPattern(text + 1, pattern));
  return *text == *pattern && matchesPattern(text + 1, pattern + 1);
}

std::string readText(const std::string& path) {
  const std::vector<uint8_t> bytes = fileBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

TEST(ExportApi, FailedExportsReturnTheFileStatusAndWriteNothing) {
  const std::string out = testing::scratchDir() + "/not_written.xml";
  fs::remove(out);
  EXPECT_EQ(zvrsExportToXML("/nonexistent/scene.glb", out.c_str()), ZVR_ERROR_IO);
  EXPECT_FALSE(fs::exists(out));
  EXPECT_EQ(zvrsExportToXML((kScenes + "Box/Box.glb").c_str(), "/nonexistent-folder/out.xml"), ZVR_ERROR_IO);
  EXPECT_EQ(zvrsExportToXML(nullptr, out.c_str()), ZVR_ERROR_INVALID_ARGUMENT);
}

TEST(OcioFiles, XmlSceneConfigurationIsWrittenOwnedAndRemovedWithTheContextAndGltfKeepsThePath) {
  const std::string folder = testing::scratchDir() + "/ocio";
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string xml = folder + "/scene.xml";
  ASSERT_EQ(zvrsExportToXML((kScenes + "Box/Box.glb").c_str(), xml.c_str()), 0);
  std::string text = readText(xml);
  const size_t end = text.rfind("</zvrscene>");
  ASSERT_NE(end, std::string::npos);
  // "AQID/w==" is the bytes 1, 2, 3, 255.
  text.insert(end, "<ocio><config>ocio_profile_version: 2\nsrc: curve.spi1d\nother: mycurve.spi1d\n</config>"
                   "<file name=\"curve.spi1d\">AQID/w==</file></ocio>");
  std::ofstream(xml, std::ios::trunc) << text;

  std::optional<ScopedContext> scoped(std::in_place);
  ASSERT_EQ(scoped->status(), 0);
  const ZvrContext context = *scoped;
  const std::string temp = folder + "/scene_TEMP_ZVRS_OCIO";
  ASSERT_EQ(zvrsBuildOCIOFiles(xml.c_str(), context, temp.c_str(), 0), 0);
  const std::string config = temp + ".ocio";
  EXPECT_STREQ(info<Name>(zvrContextGetInfo, context, ZVR_CONTEXT_OCIO_CONFIG_PATH).data(), config.c_str());
  const std::string written = readText(config);
  EXPECT_NE(written.find("src: scene_TEMP_ZVRS_OCIO_curve.spi1d\n"), std::string::npos) << written;
  EXPECT_NE(written.find("other: mycurve.spi1d\n"), std::string::npos) << "only whole names are rewritten: " << written;
  EXPECT_EQ(readText(temp + "_curve.spi1d"), std::string("\x01\x02\x03\xff"));
  // The same context, asked again for a glTF file, which carries none, keeps the path it has.
  EXPECT_EQ(zvrsBuildOCIOFiles((kScenes + "Box/Box.glb").c_str(), context, (folder + "/gltf").c_str(), 0), 0);
  EXPECT_STREQ(info<Name>(zvrContextGetInfo, context, ZVR_CONTEXT_OCIO_CONFIG_PATH).data(), config.c_str());
  EXPECT_FALSE(fs::exists(folder + "/gltf.ocio"));
  EXPECT_EQ(zvrsBuildOCIOFiles("/nonexistent/scene.xml", context, temp.c_str(), 0), ZVR_ERROR_IO);
  EXPECT_NE(::lastError(context).find("scene.xml: does not exist"), std::string::npos) << ::lastError(context);
  scoped.reset();  // the context's files go with it
  EXPECT_FALSE(fs::exists(config));
  EXPECT_FALSE(fs::exists(temp + "_curve.spi1d"));
}

using TracedApi = LoadStoreApi;

TEST_F(TracedApi, TraceHasOneLinePerCallInCallOrder) {
  const std::string trace = testing::scratchDir() + "/loadstore_trace.log";
  fs::remove(trace);
  ::setenv("ZVR_TRACE", trace.c_str(), 1);
  const std::string file = kScenes + "Box/Box.glb";
  const std::string temp = testing::scratchDir() + "/Box_TEMP_ZVRS_OCIO";
  EXPECT_EQ(zvrsBuildOCIOFiles(file.c_str(), context, temp.c_str(), 0), 0);
  EXPECT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0);
  EXPECT_EQ(zvrContextSetParameter1u(context, "nonsense", 2), ZVR_ERROR_UNKNOWN_KEY);
  EXPECT_EQ(zvrsReleaseImportedData(), 0);
  ::unsetenv("ZVR_TRACE");
  std::vector<std::string> ours;
  std::istringstream lines(readText(trace));
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("zvrs", 0) == 0 || line.rfind("zvrContextSetParameter1", 0) == 0) ours.push_back(line);
  ASSERT_EQ(ours.size(), 4u) << readText(trace);
  EXPECT_TRUE(matchesPattern(ours[0].c_str(), "zvrsBuildOCIOFiles(path=\"*/Box.glb\", context=0x*, "
                                              "tempName=\"*Box_TEMP_ZVRS_OCIO\", flags=0) -> 0"))
      << ours[0];
  EXPECT_TRUE(matchesPattern(ours[1].c_str(), "zvrsImport(path=\"*/Box.glb\", context=0x*, materialSystem=0x*, "
                                              "scene=0x*, useExistingScene=0, options=0x0) -> 0"))
      << ours[1];
  EXPECT_TRUE(matchesPattern(ours[2].c_str(), "zvrContextSetParameter1u(context=0x*, name=\"nonsense\", x=2) -> -5")) << ours[2];
  EXPECT_EQ(ours[3], "zvrsReleaseImportedData() -> 0");
}

}  // namespace
}  // namespace zvr::testing
