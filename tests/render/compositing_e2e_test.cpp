// The compositing outputs of a real run, read back with OpenEXR: cryptomatte ranks and manifest,
// the deep image, and a shadow catcher. The scene is made here: a block standing on a ground
// plane flagged as shadow catcher, seen from straight above under a white sky.
#include <gtest/gtest.h>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDeepFrameBuffer.h>
#include <OpenEXR/ImfDeepScanLineInputFile.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <set>

#include "kernel/cryptomatte_hash.h"
#include "tests/support/program_run.h"

namespace {

constexpr int kSize = 48;
constexpr float kHalfView = 5;  // orthographic half height of the view, world units

std::string base64(const std::string& bytes) {
  static const char* const kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t v = uint32_t(uint8_t(bytes[i])) << 16;
    if (i + 1 < bytes.size()) v |= uint32_t(uint8_t(bytes[i + 1])) << 8;
    if (i + 2 < bytes.size()) v |= uint8_t(bytes[i + 2]);
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(v >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[v & 63] : '=';
  }
  return out;
}

// A 10 x 10 ground at y = 0 (shadow catcher) and a 2 x 2 x 2 block standing on it, both with
// named materials, and an orthographic camera 10 units above looking down.
std::string sceneText() {
  const std::vector<float> ground = {-5, 0, -5, 5, 0, -5, 5, 0, 5, -5, 0, 5};
  const std::vector<uint32_t> groundIndices = {0, 2, 1, 0, 3, 2};
  std::vector<float> block;
  for (int i = 0; i < 8; ++i) block.insert(block.end(), {i & 1 ? 1.f : -1.f, i & 2 ? 2.f : 0.f, i & 4 ? 1.f : -1.f});
  const std::vector<uint32_t> blockIndices = {0, 1, 3, 0, 3, 2, 4, 6, 7, 4, 7, 5, 0, 4, 5, 0, 5, 1,
                                              2, 3, 7, 2, 7, 6, 0, 2, 6, 0, 6, 4, 1, 5, 7, 1, 7, 3};
  std::string bytes;
  auto append = [&](const void* data, size_t size) { bytes.append(static_cast<const char*>(data), size); };
  append(ground.data(), ground.size() * 4);
  append(groundIndices.data(), groundIndices.size() * 4);
  append(block.data(), block.size() * 4);
  append(blockIndices.data(), blockIndices.size() * 4);
  using nlohmann::json;
  json views = json::array(), accessors = json::array();
  size_t offset = 0;
  auto view = [&](size_t size, int target, int type, size_t count, const char* kind, json bounds) {
    views.push_back({{"buffer", 0}, {"byteOffset", offset}, {"byteLength", size}, {"target", target}});
    json accessor = {{"bufferView", views.size() - 1}, {"componentType", type}, {"count", count}, {"type", kind}};
    if (!bounds.is_null()) accessor.update(bounds);
    accessors.push_back(accessor);
    offset += size;
  };
  view(48, 34962, 5126, 4, "VEC3", {{"min", {-5, 0, -5}}, {"max", {5, 0, 5}}});
  view(24, 34963, 5125, 6, "SCALAR", nullptr);
  view(96, 34962, 5126, 8, "VEC3", {{"min", {-1, 0, -1}}, {"max", {1, 2, 1}}});
  view(144, 34963, 5125, 36, "SCALAR", nullptr);
  auto material = [](const char* name, float grey) {
    return json{{"name", name}, {"pbrMetallicRoughness", {{"baseColorFactor", {grey, grey, grey, 1}}, {"metallicFactor", 0}}}};
  };
  json document = json::parse(R"({
    "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1, 2]}],
    "nodes": [{"name": "ground", "mesh": 0, "extras": {"shadowCatcher": true}},
              {"name": "block", "mesh": 1},
              {"name": "eye", "camera": 0, "translation": [0, 10, 0], "rotation": [-0.70710678, 0, 0, 0.70710678]}],
    "cameras": [{"type": "orthographic", "orthographic": {"xmag": 5, "ymag": 5, "znear": 0.1, "zfar": 100}}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1, "material": 0}]},
               {"primitives": [{"attributes": {"POSITION": 2}, "indices": 3, "material": 1}]}]})");
  document["materials"] = {material("clay", 0.8f), material("stone", 0.5f)};
  document["buffers"] = json::array({{{"byteLength", bytes.size()}, {"uri", "data:application/octet-stream;base64," + base64(bytes)}}});
  document["bufferViews"] = views;
  document["accessors"] = accessors;
  return document.dump();
}

using Layer = std::vector<float>;  // kSize * kSize * 4, top row first

std::map<std::string, Layer> readLayers(const std::string& path, const std::vector<std::string>& names,
                                        Imf::Header* header) {
  Imf::InputFile file(path.c_str());
  *header = file.header();
  std::map<std::string, Layer> layers;
  Imf::FrameBuffer slices;
  for (const std::string& name : names) {
    Layer& layer = layers[name];
    layer.assign(kSize * kSize * 4, 0.0f);
    const char* channels[] = {"R", "G", "B", "A"};
    for (int c = 0; c < 4; ++c)
      slices.insert(name + "." + channels[c], Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(layer.data() + c),
                                                          4 * sizeof(float), 4 * sizeof(float) * kSize));
  }
  file.setFrameBuffer(slices);
  file.readPixels(0, kSize - 1);
  return layers;
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
    std::ofstream(*folder_ / "scene.gltf") << sceneText();
    const nlohmann::json config = {
        {"plugin", "Velder64.dll"}, {"gui", 0}, {"width", kSize}, {"height", kSize}, {"iterations", 96},
        {"batchsize", 8}, {"output", "beauty.exr"}, {"multilayerexr", 1}, {"framebuffer.save.float32", 1},
        {"environment", {1, 1, 1}}, {"context", {{"cpu", 1}, {"threads", 2}}},
        {"aovs",
         {{"cryptomatte.obj0", "o0"}, {"cryptomatte.obj1", "o1"}, {"cryptomatte.obj2", "o2"},
          {"cryptomatte.mat0", "m0"}, {"opacity", "opacity"}, {"shadow.catcher", "shadow"},
          {"mattepass", "matte"}, {"deep.color", "deep.exr"}}}};
    std::ofstream(*folder_ / "config.json") << config.dump();
    run_ = new ProgramRun(runProgram(*folder_, {"scene.gltf", "config.json"}));
  }
  static void TearDownTestSuite() {
    delete run_;
    delete folder_;
  }
  void SetUp() override { ASSERT_EQ(run_->exitCode, 0) << run_->err; }

  static RunFolder* folder_;
  static ProgramRun* run_;
};
RunFolder* CompositingRun::folder_ = nullptr;
ProgramRun* CompositingRun::run_ = nullptr;

TEST(CryptomatteIds, MatchThePublishedExamples) {
  const std::pair<const char*, const char*> cases[] = {
      {"bunny", "13851a76"}, {"default", "42c9679f"}, {"bunny_porcelain_mat", "b24b26d4"}, {"", "00000000"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    uint32_t bits = zvr::kernel::cryptomatteIdBits(c.first);
    if (std::string(c.first).empty()) {
      // MurmurHash3 of nothing with seed 0 is 0; the exponent fix lifts it off the denormals.
      EXPECT_EQ(bits, 0x00800000u);
      continue;
    }
    EXPECT_EQ(zvr::kernel::cryptomatteHex(bits), c.second);
  }
}

TEST_F(CompositingRun, CryptomatteRanksAndManifestPickAnObjectByName) {
  Imf::Header header;
  auto layers = readLayers(*folder_ / "beauty.exr",
                           {"CryptoObject00", "CryptoObject01", "CryptoObject02", "CryptoMaterial00", "opacity"}, &header);
  EXPECT_EQ(header.channels().findChannel("CryptoObject00.R")->type, Imf::FLOAT);

  std::map<std::string, std::map<std::string, std::string>> manifests;  // type name -> name -> hex
  for (auto it = header.begin(); it != header.end(); ++it) {
    const std::string name = it.name();
    if (name.rfind("cryptomatte/", 0) != 0) continue;
    const std::string key = name.substr(12, 7), field = name.substr(20);
    const std::string value = header.typedAttribute<Imf::StringAttribute>(name).value();
    const std::string typeName = header.typedAttribute<Imf::StringAttribute>("cryptomatte/" + key + "/name").value();
    EXPECT_EQ(key, zvr::kernel::cryptomatteHex(zvr::kernel::murmurHash3x86_32(typeName.data(), typeName.size())).substr(0, 7));
    if (field == "hash") {
      EXPECT_EQ(value, "MurmurHash3_32");
    } else if (field == "conversion") {
      EXPECT_EQ(value, "uint32_to_float32");
    } else if (field == "manifest") {
      const nlohmann::json manifest = nlohmann::json::parse(value);
      for (auto it = manifest.begin(); it != manifest.end(); ++it) manifests[typeName][it.key()] = it.value().get<std::string>();
    }
  }
  const std::map<std::string, std::set<std::string>> expected = {{"CryptoObject", {"ground", "block"}},
                                                                 {"CryptoMaterial", {"clay", "stone"}}};
  for (const auto& [type, names] : expected) {
    ASSERT_EQ(manifests[type].size(), names.size()) << type;
    for (const std::string& name : names)
      EXPECT_EQ(manifests[type][name], zvr::kernel::cryptomatteHex(zvr::kernel::cryptomatteIdBits(name))) << name;
  }

  const float block = idOf(manifests["CryptoObject"]["block"]);
  std::set<float> known;
  for (const auto& [name, hex] : manifests["CryptoObject"]) known.insert(idOf(hex));
  const Layer& opacity = layers["opacity"];
  int covered = 0, edges = 0;
  for (int p = 0; p < kSize * kSize; ++p) {
    float sum = 0, matte = 0;
    float previous = 2;
    for (const char* rank : {"CryptoObject00", "CryptoObject01", "CryptoObject02"}) {
      const Layer& layer = layers[rank];
      for (int pair = 0; pair < 2; ++pair) {
        const float id = layer[p * 4 + pair * 2], coverage = layer[p * 4 + pair * 2 + 1];
        if (coverage == 0) continue;
        EXPECT_TRUE(known.count(id)) << "pixel " << p << ": id not in the manifest";
        EXPECT_LE(coverage, previous) << "pixel " << p << ": ranks sorted by coverage";
        previous = coverage;
        sum += coverage;
        if (id == block) matte += coverage;
      }
    }
    // The ground is a catcher and invisible, so what covers a pixel is the block alone.
    EXPECT_NEAR(matte, opacity[p * 4], 1e-5f) << "pixel " << p;
    if (opacity[p * 4] == 1) {
      ++covered;
      EXPECT_NEAR(sum, 1.0f, 1e-5f) << "pixel " << p;
    } else if (opacity[p * 4] > 0) {
      ++edges;
    }
  }
  EXPECT_GT(covered, 50);
  EXPECT_GT(edges, 10) << "the filter must give fractional coverage on the block's outline";
  int stone = 0;
  const float stoneId = idOf(manifests["CryptoMaterial"]["stone"]);
  for (int p = 0; p < kSize * kSize; ++p) stone += layers["CryptoMaterial00"][p * 4] == stoneId;
  EXPECT_GE(stone, covered) << "the block's material ranks first where the block covers the pixel";
}

TEST_F(CompositingRun, DeepSamplesAreSortedAndFlattenToTheColor) {
  Imf::Header header;
  const Layer color = readLayers(*folder_ / "beauty.exr", {"color"}, &header)["color"];
  Imf::DeepScanLineInputFile file((*folder_ / "deep.exr").c_str());
  for (const char* channel : {"R", "G", "B", "A", "Z", "ZBack"})
    EXPECT_NE(file.header().channels().findChannel(channel), nullptr) << channel;
  std::vector<unsigned int> counts(kSize * kSize);
  Imf::DeepFrameBuffer slices;
  slices.insertSampleCountSlice(Imf::Slice(Imf::UINT, reinterpret_cast<char*>(counts.data()), sizeof(unsigned),
                                           sizeof(unsigned) * kSize));
  file.setFrameBuffer(slices);
  file.readPixelSampleCounts(0, kSize - 1);
  const char* names[] = {"R", "G", "B", "A", "Z", "ZBack"};
  std::vector<float> storage[6];
  std::vector<float*> pointers[6];
  size_t total = 0;
  for (unsigned c : counts) total += c;
  for (int c = 0; c < 6; ++c) {
    storage[c].resize(total);
    size_t at = 0;
    for (unsigned count : counts) {
      pointers[c].push_back(storage[c].data() + at);
      at += count;
    }
    slices.insert(names[c], Imf::DeepSlice(Imf::FLOAT, reinterpret_cast<char*>(pointers[c].data()), sizeof(float*),
                                           sizeof(float*) * kSize, sizeof(float)));
  }
  file.setFrameBuffer(slices);
  file.readPixelSampleCounts(0, kSize - 1);
  file.readPixels(0, kSize - 1);
  int layered = 0;
  for (int p = 0; p < kSize * kSize; ++p) {
    ASSERT_GT(counts[p], 0u) << "pixel " << p;
    float flat[4] = {0, 0, 0, 0};
    for (unsigned s = 0; s < counts[p]; ++s) {
      const float* z = pointers[4][p];
      if (s > 0) {
        EXPECT_LE(z[s - 1], z[s]) << "pixel " << p << " sorted by depth";
      }
      EXPECT_GE(pointers[5][p][s], z[s]);
      const float through = 1 - flat[3];
      for (int c = 0; c < 4; ++c) flat[c] += through * pointers[c][p][s];
    }
    layered += counts[p] > 1;
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(flat[c], color[p * 4 + c], 2e-4f + 1e-4f * color[p * 4 + c]) << "pixel " << p;
    EXPECT_NEAR(flat[3], 1.0f, 1e-4f);
  }
  EXPECT_GT(layered, 10) << "outline pixels hold more than one surface";
}

TEST_F(CompositingRun, ShadowCatcherShowsTheSkyAndItsShadow) {
  Imf::Header header;
  auto layers = readLayers(*folder_ / "beauty.exr", {"color", "shadow", "matte", "opacity"}, &header);
  auto at = [&](const char* layer, float x, float z, int c = 0) {
    // World (x, z) on the ground to its pixel: the camera looks down with -z up in the image.
    const int column = int((x + kHalfView) / (2 * kHalfView) * kSize), row = int((z + kHalfView) / (2 * kHalfView) * kSize);
    return layers[layer][(row * kSize + column) * 4 + c];
  };
  struct Case {
    const char* where;
    float x, z;
    float shadowLow, shadowHigh;
  };
  const Case cases[] = {
      {"far corner", -4.5f, -4.5f, 0.85f, 1.0f},
      {"beside the block", 1.3f, 0.0f, 0.3f, 0.75f},
      {"beside the block, other side", 0.0f, -1.3f, 0.3f, 0.75f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.where);
    EXPECT_EQ(at("matte", c.x, c.z), 1.0f) << "the catcher covers the ground";
    EXPECT_EQ(at("opacity", c.x, c.z), 0.0f) << "the catcher is not a visible surface";
    // Three pixels along the block's side, against the noise of one light sample per camera sample.
    const float step = 2 * kHalfView / kSize;
    const bool alongX = std::fabs(c.z) > std::fabs(c.x);
    float shadow = 0;
    for (int i = -1; i <= 1; ++i) shadow += at("shadow", c.x + (alongX ? i * step : 0), c.z + (alongX ? 0 : i * step)) / 3;
    EXPECT_GE(shadow, c.shadowLow);
    EXPECT_LE(shadow, c.shadowHigh);
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(at("color", c.x, c.z, ch), shadow, 0.2f) << "the sky of 1, in the shadow";
  }
  EXPECT_EQ(at("shadow", 0, 0), 1.0f) << "no catcher under the block's top: unshadowed";
  EXPECT_EQ(at("matte", 0, 0), 0.0f);
}

}  // namespace
