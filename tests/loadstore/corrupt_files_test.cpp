// Every class of broken input is refused with the file and the problem named, never with a crash.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "loadstore/load_error.h"
#include "loadstore/scene_file.h"
#include "loadstore/xml_writer.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::loadstore {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using Json = nlohmann::json;
using testing::kScenes;

void writeBytes(const std::string& path, const Bytes& b) {
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
}

void putU32(Bytes* b, size_t at, uint32_t v) { std::memcpy(b->data() + at, &v, 4); }

// The text of the LoadError that `action` throws.
std::string failureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const LoadError& e) {
    return e.what();
  }
  return "(no failure)";
}

std::string textOfFailure(const std::string& path) {
  return failureOf([&] { readSceneFile(path); });
}

// Rewrites the JSON of a glTF; a binary one keeps its binary chunk, with the lengths made right.
std::function<void(Bytes*)> editJson(std::function<void(nlohmann::json&)> edit) {
  return [edit](Bytes* b) {
    const bool binary = std::memcmp(b->data(), "glTF", 4) == 0;
    uint32_t jsonLength = uint32_t(b->size());
    if (binary) std::memcpy(&jsonLength, b->data() + 12, 4);
    const size_t start = binary ? 20 : 0;
    nlohmann::json j = nlohmann::json::parse(b->begin() + start, b->begin() + start + jsonLength);
    edit(j);
    std::string text = j.dump();
    if (!binary) return b->assign(text.begin(), text.end());
    text.resize((text.size() + 3) / 4 * 4, ' ');
    Bytes out(b->begin(), b->begin() + 20);
    out.insert(out.end(), text.begin(), text.end());
    out.insert(out.end(), b->begin() + 20 + jsonLength, b->end());
    putU32(&out, 8, uint32_t(out.size()));
    putU32(&out, 12, uint32_t(text.size()));
    *b = std::move(out);
  };
}

// Changes `width` bytes at `at` of the Cameras scene's buffer file.
std::function<void(const std::string&)> editBin(size_t at, uint32_t value, size_t width) {
  return [=](const std::string& folder) {
    Bytes bin = testing::fileBytes(folder + "/simpleSquare.bin");
    std::memcpy(bin.data() + at, &value, width);
    writeBytes(folder + "/simpleSquare.bin", bin);
  };
}

std::function<void(const std::string&)> removeFile(const std::string& name) {
  return [name](const std::string& folder) { fs::remove(folder + "/" + name); };
}

TEST(CorruptFiles, EachFailsWithTheFileAndTheProblemNamed) {
  // The file below the shared scenes, copied with its folder; what is done to its bytes, or else to
  // the copied folder; words that must appear in the failure text. The case's label is its words.
  struct Corruption {
    const char* source;
    std::function<void(Bytes*)> mutate;
    std::function<void(const std::string&)> prepare;
    const char* words;
  };
  const char *box = "Box/Box.glb", *cameras = "Cameras/Cameras.gltf", *textured = "BoxTextured/BoxTextured.glb";
  const Corruption cases[] = {
      {box, [](Bytes* b) { (*b)[3] = 'X'; }, nullptr, "Box.glb: is neither glTF"},
      {box, [](Bytes* b) { putU32(b, 4, 1); }, nullptr, "binary glTF version 1, not 2"},
      {box, [](Bytes* b) { b->resize(b->size() - 100); }, nullptr, "but holds 1564"},
      {box, [](Bytes* b) { putU32(b, 8, 0xFFFFFFFFu); }, nullptr, "declares a length of 4294967295 bytes"},
      {box, [](Bytes* b) { putU32(b, 12, 0xFFFFFF00u); }, nullptr, "chunk 0 declares"},
      {box, [](Bytes* b) { b->resize(12); }, nullptr, "Box.glb"},
      {box, [](Bytes* b) { b->clear(); }, nullptr, "Box.glb: is empty"},
      {box, [](Bytes* b) { b->assign(64, 0x5A); }, nullptr, "is neither glTF"},
      {box, nullptr, removeFile("Box.glb"), "Box.glb: does not exist or cannot be reached"},
      {cameras, [](Bytes* b) { b->resize(b->size() / 2); }, nullptr, "Cameras.gltf: "},
      {cameras, editJson([](Json& j) { j["accessors"][1]["count"] = 400; }), nullptr,
       "accessor 1 reads past the end of buffer view 1"},
      {cameras, editJson([](Json& j) { j["bufferViews"][1]["byteLength"] = 4800; }), nullptr,
       "reads past the end of buffer 0"},
      {cameras, editJson([](Json& j) { j["meshes"][0]["primitives"][0]["attributes"]["POSITION"] = 7; }), nullptr,
       "accessor 7 does not exist"},
      {cameras, editJson([](Json& j) { j["accessors"][0]["componentType"] = 5126; }), nullptr, "non-integer"},
      {cameras, editJson([](Json& j) { j["buffers"][0]["byteLength"] = 4294967295u; }), nullptr, "Cameras.gltf: "},
      {cameras, editJson([](Json& j) { j["accessors"][1].erase("bufferView"), j["accessors"][1]["count"] = 1u << 30; }),
       nullptr, "declares 1073741824 elements without data"},
      {cameras,
       editJson([](Json& j) { j["extensionsUsed"] = j["extensionsRequired"] = {"KHR_draco_mesh_compression"}; }), nullptr,
       "requires the extension KHR_draco_mesh_compression, which is not supported"},
      {cameras, editJson([](Json& j) { j["nodes"][0]["children"] = {0}; }), nullptr, "cycle"},
      {cameras, editJson([](Json& j) { j["nodes"][0]["extras"]["shadowCatcher"] = 1; }), nullptr,
       "node 0: extras \"shadowCatcher\" is not true or false"},
      {cameras, nullptr, removeFile("simpleSquare.bin"), "simpleSquare.bin"},
      {cameras, nullptr, editBin(0, 9, 2), "mesh 0 primitive 0 has index 9 past its vertex count 4"},
      {cameras, nullptr, editBin(12, 0x7FC00000u, 4), "position that is not a finite number"},
      {"LightsPunctualLamp/LightsPunctualLamp.gltf",
       editJson([](Json& j) { j["extensions"]["KHR_lights_punctual"]["lights"][0]["extras"]["lightGroup"] = 16; }), nullptr,
       "light 0 has a \"lightGroup\" in its extras that is not a whole number from 0 to 15"},
      {"TextureTransformTest/TextureTransformTest.gltf", nullptr, removeFile("UV.png"), "(UV.png) could not be read"},
      {textured, editJson([](Json& j) { j["bufferViews"][3]["byteOffset"] = 2147483648u; }), nullptr,
       "image 0 reads buffer view 3 past the end of buffer 0"},
      {textured, editJson([](Json& j) { j["bufferViews"][3]["byteLength"] = 100000; }), nullptr,
       "image 0 reads buffer view 3 past the end of buffer 0"},
  };
  for (const Corruption& c : cases) {
    SCOPED_TRACE(std::to_string(&c - cases) + ": " + c.words);
    const fs::path source = testing::kScenes + c.source;
    const std::string folder = testing::scratchDir() + "/corrupt_files/" + std::to_string(&c - cases);
    fs::remove_all(folder);
    fs::create_directories(folder);
    fs::copy(source.parent_path(), folder, fs::copy_options::recursive);
    for (const auto& f : fs::directory_iterator(folder)) fs::permissions(f.path(), fs::perms::owner_write, fs::perm_options::add);
    const std::string target = folder + "/" + source.filename().string();
    Bytes bytes = testing::fileBytes(target);
    if (c.mutate) c.mutate(&bytes);
    writeBytes(target, bytes);
    if (c.prepare) c.prepare(folder);
    const std::string text = textOfFailure(target);
    EXPECT_NE(text.find(c.words), std::string::npos) << "failure text: " << text;
  }
}

TEST(CorruptFiles, BrokenXmlDocumentsFailAndAnUnwritableTargetIsNamed) {
  const std::string good = writeSceneXml(readSceneFile(testing::kScenes + "Box/Box.glb"));
  const auto replaced = [&good](const std::string& from, const std::string& to) {
    std::string s = good;
    const size_t at = s.find(from);
    if (at != std::string::npos) s.replace(at, from.size(), to);
    return s;
  };
  const std::pair<std::string, const char*> cases[] = {
      {good.substr(0, good.size() / 2), "not well-formed XML"},
      {replaced("parent=\"-1\"", "parent=\"5\""), "which names nothing"},
      {replaced("vertices=\"24\"", "vertices=\"4000000000\""), "declares more vertices"},
      {replaced("<indices>", "<indices>*"), "not base64"},
      {replaced("metallic=\"", "metallic=\"x"), "\"metallic\" that is not"},
      {replaced(" scale=\"", " catcher=\"shadow shade\" scale=\""), "known words are shadow and reflection"},
  };
  const std::string path = testing::scratchDir() + "/broken.xml";
  for (const auto& [text, words] : cases) {
    SCOPED_TRACE(words);
    ASSERT_NE(text, good) << "the mutation did not apply";
    writeBytes(path, Bytes(text.begin(), text.end()));
    const std::string failure = textOfFailure(path);
    EXPECT_EQ(failure.rfind("broken.xml: ", 0), 0u) << failure;
    EXPECT_NE(failure.find(words), std::string::npos) << failure;
  }
  std::string otherRoot = replaced("<zvrscene", "<scene");  // a well-formed document of another kind
  otherRoot.replace(otherRoot.rfind("</zvrscene>"), 11, "</scene>");
  writeBytes(path, Bytes(otherRoot.begin(), otherRoot.end()));
  EXPECT_NE(textOfFailure(path).find("no <zvrscene> root"), std::string::npos) << textOfFailure(path);
  const std::string unwritable = failureOf([] { saveSceneXml(SceneDescription(), "/nonexistent-folder/out.xml"); });
  EXPECT_NE(unwritable.find("out.xml: cannot be created"), std::string::npos) << unwritable;
}

// Random byte changes anywhere in real files: every outcome is a description or a LoadError,
// never a crash, a hang or another exception (the sanitizer build checks the memory accesses).
TEST(CorruptFiles, RandomByteChangesNeverCrash) {
  uint64_t state = 0x9E3779B97F4A7C15ull;  // fixed: a failure must reproduce
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  };
  const std::string path = testing::scratchDir() + "/mutated.glb";
  for (const char* source : {"Box/Box.glb", "BoxAnimated/BoxAnimated.glb", "BoxTextured/BoxTextured.glb"}) {
    const Bytes original = testing::fileBytes(testing::kScenes + source);
    int failures = 0;
    for (int round = 0; round < 100; ++round) {
      Bytes b = original;
      const int changes = 1 + int(next() % 4);
      for (int c = 0; c < changes; ++c) b[next() % b.size()] = uint8_t(next());
      writeBytes(path, b);
      try {
        readSceneFile(path);
      } catch (const LoadError& e) {
        ++failures;
        EXPECT_EQ(std::string(e.what()).rfind("mutated.glb: ", 0), 0u) << e.what();
      }
    }
    EXPECT_GT(failures, 0) << source << ": no change was ever noticed";
  }
}

}  // namespace
}  // namespace zvr::loadstore
