// The hierarchy and the animation records captured from a real import.
#include <gtest/gtest.h>

#include <algorithm>

#include "animation/keyframe_evaluation.h"
#include "animation/transform_capture.h"
#include "engine/ZvrLoadStore.h"
#include "tests/support/scoped_context.h"

using namespace zvrs;

namespace {

// BoxAnimated holds a chain child -> parent -> grandparent -> root, the inner box hanging on the
// child, a rotation channel on the child and a translation channel on the grandparent.
TEST(TransformCapture, ChainChannelsAndPosingOnce) {
  const ScopedContext context;
  ZvrObject materials = nullptr, scene = nullptr;
  ASSERT_EQ(context.status(), 0);
  ASSERT_EQ(zvrContextCreateMaterialSystem(context, 0, &materials), 0);
  const std::string path = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/BoxAnimated/BoxAnimated.glb";
  ASSERT_EQ(zvrsImport(path.c_str(), context, materials, &scene, 0, nullptr), 0);
  AnimationState state;
  int child = -1;
  for (int run = 0; run < 2; ++run) {  // a second capture starts from clean tables
    captureImportedObjects(state);
    child = -1;
    const std::vector<TransformGroup>& groups = state.transformGroups;
    ASSERT_EQ(groups.size(), 4u) << "run " << run;
    EXPECT_EQ(std::make_tuple(state.groupIndexByName.size(), state.shapeGroups.size(), state.objectAppliedTransforms.size()),
              std::make_tuple(4u, 2u, 0u));
    for (int i = 0; i < 2 && child < 0; ++i)
      if (groups[i].parentIndex == i + 1 && groups[i + 1].parentIndex == i + 2 && groups[i + 2].parentIndex == -1) child = i;
    ASSERT_GE(child, 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(state.groupIndexByName.at(groups[child + i].name), child + i);
    EXPECT_EQ(std::count_if(state.shapeGroups.begin(), state.shapeGroups.end(), [&](const auto& s) { return s.second == child; }), 1);
  }
  captureAnimations(state);
  ASSERT_EQ(state.animationChannels.size(), 2u);
  for (const AnimationChannel& channel : state.animationChannels) {
    const bool rotation = channel.record.kind == ZVRS_ANIMATION_ROTATION;
    EXPECT_TRUE(rotation || channel.record.kind == ZVRS_ANIMATION_TRANSLATION);
    EXPECT_EQ(channel.groupIndex, rotation ? child : child + 2);
    EXPECT_EQ(channel.values.size(), channel.times.size() * (rotation ? 4 : 3));
  }
  EXPECT_NEAR(state.animationEndTime, 3.70833f, 1e-4f);
  // Posing twice at the same time sends nothing the second time.
  evaluateAnimation(state, 1.875f, 0);
  EXPECT_TRUE(state.transformsChanged);
  const auto applied = state.objectAppliedTransforms;
  state.transformsChanged = false;
  evaluateAnimation(state, 1.875f, 0);
  EXPECT_FALSE(state.transformsChanged);
  EXPECT_EQ(state.objectAppliedTransforms, applied);
  zvrsReleaseImportedData();
  zvrsDeleteListImportedObjects(context);
}

}  // namespace
