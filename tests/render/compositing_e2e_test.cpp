// The compositing outputs of a real run, read back with OpenImageIO: cryptomatte ranks and manifest,
// the deep image, and a shadow catcher. The scene is made here: a block standing on a ground
// plane flagged as shadow catcher, seen from straight above under a white sky.
#include <gtest/gtest.h>

#include <OpenImageIO/deepdata.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <set>

#include "kernel/cryptomatte_hash.h"
#include "tests/render/image_file.h"
#include "tests/support/program_run.h"

namespace {

constexpr int kSize = 48;
constexpr float kHalfView = 5;  // orthographic half height of the view, world units

// A 10 x 10 ground at y = 0 (shadow catcher) and a 2 x 2 x 2 block standing on it, both with
// named materials, and an orthographic camera 10 units above looking down. The buffer goes to
// scene.bin: ground corners, their indices, block corners, their indices.
std::string writeScene(const std::string& folder) {
  std::vector<float> corners = {-5, 0, -5, 5, 0, -5, 5, 0, 5, -5, 0, 5};
  const std::vector<uint32_t> ground = {0, 2, 1, 0, 3, 2}, block = {0, 1, 3, 0, 3, 2, 4, 6, 7, 4, 7, 5, 0, 4, 5, 0, 5, 1,
                                                                    2, 3, 7, 2, 7, 6, 0, 2, 6, 0, 6, 4, 1, 5, 7, 1, 7, 3};
  std::ofstream bin(folder + "/scene.bin", std::ios::binary);
  bin.write(reinterpret_cast<const char*>(corners.data()), 48).write(reinterpret_cast<const char*>(ground.data()), 24);
  corners.clear();
  for (int i = 0; i < 8; ++i) corners.insert(corners.end(), {i & 1 ? 1.f : -1.f, i & 2 ? 2.f : 0.f, i & 4 ? 1.f : -1.f});
  bin.write(reinterpret_cast<const char*>(corners.data()), 96).write(reinterpret_cast<const char*>(block.data()), 144);
  return R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1, 2]}],
    "nodes": [{"name": "ground", "mesh": 0, "extras": {"shadowCatcher": true}}, {"name": "block", "mesh": 1},
              {"name": "eye", "camera": 0, "translation": [0, 10, 0], "rotation": [-0.70710678, 0, 0, 0.70710678]}],
    "cameras": [{"type": "orthographic", "orthographic": {"xmag": 5, "ymag": 5, "znear": 0.1, "zfar": 100}}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1, "material": 0}]},
               {"primitives": [{"attributes": {"POSITION": 2}, "indices": 3, "material": 1}]}],
    "materials": [{"name": "clay", "pbrMetallicRoughness": {"baseColorFactor": [0.8, 0.8, 0.8, 1], "metallicFactor": 0}},
                  {"name": "stone", "pbrMetallicRoughness": {"baseColorFactor": [0.5, 0.5, 0.5, 1], "metallicFactor": 0}}],
    "buffers": [{"byteLength": 312, "uri": "scene.bin"}],
    "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 48, "target": 34962},
                    {"buffer": 0, "byteOffset": 48, "byteLength": 24, "target": 34963},
                    {"buffer": 0, "byteOffset": 72, "byteLength": 96, "target": 34962},
                    {"buffer": 0, "byteOffset": 168, "byteLength": 144, "target": 34963}],
    "accessors": [{"bufferView": 0, "componentType": 5126, "count": 4, "type": "VEC3", "min": [-5, 0, -5], "max": [5, 0, 5]},
                  {"bufferView": 1, "componentType": 5125, "count": 6, "type": "SCALAR"},
                  {"bufferView": 2, "componentType": 5126, "count": 8, "type": "VEC3", "min": [-1, 0, -1], "max": [1, 2, 1]},
                  {"bufferView": 3, "componentType": 5125, "count": 36, "type": "SCALAR"}]})";
}

float idOf(const std::string& hex) {
  const uint32_t bits = uint32_t(std::stoul(hex, nullptr, 16));
  float id;
  std::memcpy(&id, &bits, 4);
  return id;
}

class CompositingRun : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new RunFolder("compositing");
    std::ofstream(*folder_ / "scene.gltf") << writeScene(*folder_);
    const nlohmann::json config = {
        {"plugin", "Velder64.dll"}, {"gui", 0}, {"width", kSize}, {"height", kSize}, {"iterations", 96},
        {"batchsize", 8}, {"output", "beauty.exr"}, {"multilayerexr", 1}, {"framebuffer.save.float32", 1},
        {"environment", {1, 1, 1}}, {"context", {{"cpu", 1}, {"threads", 2}}},
        {"aovs",
         {{"cryptomatte.obj0", "o0"}, {"cryptomatte.obj1", "o1"}, {"cryptomatte.obj2", "o2"},
          {"cryptomatte.mat0", "m0"}, {"opacity", "opacity"}, {"shadow.catcher", "shadow"},
          {"mattepass", "matte"}, {"deep.color", "deep.exr"}}}};
    std::ofstream(*folder_ / "config.json") << config.dump();
    const ProgramRun run = runProgram(*folder_, {"scene.gltf", "config.json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    beauty_ = new ImageFile(readImageFile(*folder_ / "beauty.exr"));
  }
  static void TearDownTestSuite() {
    delete beauty_;
    delete folder_;
  }
  void SetUp() override {
    ASSERT_EQ(beauty_->width * beauty_->height, kSize * kSize) << "no beauty.exr";
    EXPECT_TRUE(beauty_->allFloat) << "every channel float";
  }

  static RunFolder* folder_;
  static ImageFile* beauty_;
};
RunFolder* CompositingRun::folder_ = nullptr;
ImageFile* CompositingRun::beauty_ = nullptr;

TEST(CryptomatteIds, MatchThePublishedExamples) {
  const std::pair<const char*, uint32_t> cases[] = {
      // MurmurHash3 of nothing with seed 0 is 0; the exponent fix lifts it off the denormals.
      {"bunny", 0x13851a76u}, {"default", 0x42c9679fu}, {"bunny_porcelain_mat", 0xb24b26d4u}, {"", 0x00800000u}};
  for (const auto& [name, bits] : cases) EXPECT_EQ(zvr::kernel::cryptomatteIdBits(name), bits) << '"' << name << '"';
  EXPECT_EQ(zvr::kernel::cryptomatteHex(0x0badf00du), "0badf00d");
}

TEST_F(CompositingRun, CryptomatteRanksAndManifestPickAnObjectByName) {
  std::map<std::string, std::map<std::string, std::string>> manifests;  // type name -> name -> hex
  for (const auto& [name, value] : beauty_->attributes) {
    if (name.rfind("cryptomatte/", 0) != 0) continue;
    const std::string key = name.substr(12, 7), field = name.substr(20);
    const std::string typeName = beauty_->attributes.at("cryptomatte/" + key + "/name");
    EXPECT_EQ(key, zvr::kernel::cryptomatteHex(zvr::kernel::murmurHash3x86_32(typeName.data(), typeName.size())).substr(0, 7));
    const std::map<std::string, std::string> fixed = {{"hash", "MurmurHash3_32"}, {"conversion", "uint32_to_float32"}};
    if (fixed.count(field)) {
      EXPECT_EQ(value, fixed.at(field)) << name;
    }
    if (field != "manifest") continue;
    const nlohmann::json manifest = nlohmann::json::parse(value);
    for (auto it = manifest.begin(); it != manifest.end(); ++it) manifests[typeName][it.key()] = it.value().get<std::string>();
  }
  const std::map<std::string, std::set<std::string>> expected = {{"CryptoObject", {"ground", "block"}},
                                                                 {"CryptoMaterial", {"clay", "stone"}}};
  for (const auto& [type, names] : expected) {
    ASSERT_EQ(manifests[type].size(), names.size()) << type;
    for (const std::string& name : names)
      EXPECT_EQ(manifests[type][name], zvr::kernel::cryptomatteHex(zvr::kernel::cryptomatteIdBits(name))) << name;
  }

  const float block = idOf(manifests["CryptoObject"]["block"]), stoneId = idOf(manifests["CryptoMaterial"]["stone"]);
  std::set<float> known;
  for (const auto& [name, hex] : manifests["CryptoObject"]) known.insert(idOf(hex));
  int covered = 0, edges = 0, stone = 0;
  for (int p = 0; p < kSize * kSize; ++p) {
    float sum = 0, matte = 0, previous = 2;
    for (const char* rank : {"CryptoObject00.", "CryptoObject01.", "CryptoObject02."}) {
      for (const char* pair : {"RG", "BA"}) {
        const float id = beauty_->at(rank + std::string(1, pair[0]), p), coverage = beauty_->at(rank + std::string(1, pair[1]), p);
        if (coverage == 0) continue;
        EXPECT_TRUE(known.count(id)) << "pixel " << p << ": id not in the manifest";
        EXPECT_LE(coverage, previous) << "pixel " << p << ": ranks sorted by coverage";
        previous = coverage;
        sum += coverage;
        if (id == block) matte += coverage;
      }
    }
    // The ground is a catcher and invisible, so what covers a pixel is the block alone.
    const float opacity = beauty_->at("opacity.R", p);
    EXPECT_NEAR(matte, opacity, 1e-5f) << "pixel " << p;
    if (opacity == 1) {
      EXPECT_NEAR(sum, 1.0f, 1e-5f) << "pixel " << p;
    }
    covered += opacity == 1;
    edges += opacity > 0 && opacity < 1;
    stone += beauty_->at("CryptoMaterial00.R", p) == stoneId;
  }
  EXPECT_GT(covered, 50);
  EXPECT_GT(edges, 10) << "the filter must give fractional coverage on the block's outline";
  EXPECT_GE(stone, covered) << "the block's material ranks first where the block covers the pixel";
}

TEST_F(CompositingRun, DeepSamplesAreSortedAndFlattenToTheColor) {
  auto input = OIIO::ImageInput::open(*folder_ / "deep.exr");
  ASSERT_TRUE(input);
  OIIO::DeepData deep;
  ASSERT_TRUE(input->read_native_deep_image(0, 0, deep));
  const OIIO::ImageSpec& spec = input->spec();
  int channel[6];
  const char* names[] = {"R", "G", "B", "A", "Z", "ZBack"};
  for (int c = 0; c < 6; ++c) ASSERT_GE(channel[c] = spec.channelindex(names[c]), 0) << names[c];
  int layered = 0;
  for (int p = 0; p < kSize * kSize; ++p) {
    ASSERT_GT(deep.samples(p), 0) << "pixel " << p;
    float flat[4] = {0, 0, 0, 0};
    for (int s = 0; s < deep.samples(p); ++s) {
      const float z = deep.deep_value(p, channel[4], s);
      if (s > 0) {
        EXPECT_LE(deep.deep_value(p, channel[4], s - 1), z) << "pixel " << p << " sorted by depth";
      }
      EXPECT_GE(deep.deep_value(p, channel[5], s), z);
      const float through = 1 - flat[3];
      for (int c = 0; c < 4; ++c) flat[c] += through * deep.deep_value(p, channel[c], s);
    }
    layered += deep.samples(p) > 1;
    for (int c = 0; c < 3; ++c) {
      const float color = beauty_->at(std::string("color.") + names[c], p);
      EXPECT_NEAR(flat[c], color, 2e-4f + 1e-4f * color) << "pixel " << p;
    }
    EXPECT_NEAR(flat[3], 1.0f, 1e-4f);
  }
  EXPECT_GT(layered, 10) << "outline pixels hold more than one surface";
}

TEST_F(CompositingRun, ShadowCatcherShowsTheSkyAndItsShadow) {
  auto at = [&](const char* channel, float x, float z) {
    // World (x, z) on the ground to its pixel: the camera looks down with -z up in the image.
    const int column = int((x + kHalfView) / (2 * kHalfView) * kSize), row = int((z + kHalfView) / (2 * kHalfView) * kSize);
    return beauty_->at(channel, row * kSize + column);
  };
  const struct {
    const char* where;
    float x, z;
    float shadowLow, shadowHigh;
  } cases[] = {
      {"far corner", -4.5f, -4.5f, 0.85f, 1.0f},
      {"beside the block", 1.3f, 0.0f, 0.3f, 0.75f},
      {"beside the block, other side", 0.0f, -1.3f, 0.3f, 0.75f},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.where);
    EXPECT_EQ(at("matte.R", c.x, c.z), 1.0f) << "the catcher covers the ground";
    EXPECT_EQ(at("opacity.R", c.x, c.z), 0.0f) << "the catcher is not a visible surface";
    // Three pixels along the block's side, against the noise of one light sample per camera sample.
    const float step = 2 * kHalfView / kSize;
    const bool alongX = std::fabs(c.z) > std::fabs(c.x);
    float shadow = 0;
    for (int i = -1; i <= 1; ++i) shadow += at("shadow.R", c.x + (alongX ? i * step : 0), c.z + (alongX ? 0 : i * step)) / 3;
    EXPECT_GE(shadow, c.shadowLow);
    EXPECT_LE(shadow, c.shadowHigh);
    for (const char* channel : {"color.R", "color.G", "color.B"})
      EXPECT_NEAR(at(channel, c.x, c.z), shadow, 0.2f) << "the sky of 1, in the shadow";
  }
  EXPECT_EQ(at("shadow.R", 0, 0), 1.0f) << "no catcher under the block's top: unshadowed";
  EXPECT_EQ(at("matte.R", 0, 0), 0.0f);
}

}  // namespace
