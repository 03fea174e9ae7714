// Catcher flags from glTF node extras reach the shapes, and an XML export carries them back in.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/loadstore/api_fixture.h"
#include "tests/loadstore/scene_catalog.h"

namespace zvr::testing {
namespace {

// One triangle under a node with the given extras.
std::string triangleScene(const std::string& extras) {
  return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
    "nodes":[{"name":"floor","mesh":0,"extras":)" + extras + R"(}],
    "meshes":[{"primitives":[{"attributes":{"POSITION":0}}]}],
    "buffers":[{"byteLength":36,"uri":"data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}],
    "bufferViews":[{"buffer":0,"byteLength":36}],
    "accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3","min":[0,0,0],"max":[1,1,0]}]})";
}

using CatcherImport = LoadStoreApi;

TEST_F(CatcherImport, NodeExtrasBecomeShapeFlagsAndSurviveTheXmlDocument) {
  struct Case {
    const char* extras;
    uint32_t flags;
    const char* failure;  // null: imports
  };
  const Case cases[] = {
      {R"({"shadowCatcher":true})", ZVR_CATCHER_SHADOW, nullptr},
      {R"({"reflectionCatcher":true,"note":"kept"})", ZVR_CATCHER_REFLECTION, nullptr},
      {R"({"shadowCatcher":true,"reflectionCatcher":true})", ZVR_CATCHER_SHADOW | ZVR_CATCHER_REFLECTION, nullptr},
      {R"({"shadowCatcher":false})", 0, nullptr},
      {R"({"shadowCatcher":1})", 0, "node 0: extras \"shadowCatcher\" is not true or false"},
  };
  const std::string gltf = scratchDir() + "/catcher.gltf", xml = scratchDir() + "/catcher.xml";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.extras);
    std::ofstream(gltf) << triangleScene(c.extras);
    if (c.failure) {
      EXPECT_NE(zvrsImport(gltf.c_str(), context, materialSystem, &scene, 0, nullptr), 0);
      EXPECT_NE(lastError().find(c.failure), std::string::npos) << lastError();
      continue;
    }
    ASSERT_EQ(zvrsExportToXML(gltf.c_str(), xml.c_str()), 0) << lastError();
    for (const std::string& file : {gltf, xml}) {
      SCOPED_TRACE(file);
      ASSERT_EQ(zvrsImport(file.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
      const auto shapes = imported<zvrsListImportedShapes>();
      ASSERT_EQ(shapes.size(), 1u);
      uint32_t flags = 99;
      ASSERT_EQ(zvrShapeGetInfo(shapes[0], ZVR_SHAPE_CATCHER, sizeof flags, &flags, nullptr), 0);
      EXPECT_EQ(flags, c.flags);
      ASSERT_EQ(zvrObjectDelete(scene), 0);
      scene = nullptr;
      ASSERT_EQ(zvrsDeleteListImportedObjects(nullptr), 0);
    }
  }
  // The library's own operation refuses bits it does not know.
  std::ofstream(gltf) << triangleScene("{}");
  ASSERT_EQ(zvrsImport(gltf.c_str(), context, materialSystem, &scene, 0, nullptr), 0) << lastError();
  const ZvrObject shape = imported<zvrsListImportedShapes>()[0];
  EXPECT_EQ(zvrShapeSetCatcher(shape, 4), ZVR_ERROR_INVALID_ARGUMENT);
  EXPECT_NE(lastError().find("catcher flags 4"), std::string::npos) << lastError();
}

}  // namespace
}  // namespace zvr::testing
