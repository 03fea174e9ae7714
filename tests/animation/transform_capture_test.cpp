// The hierarchy and the animation records captured from a real import.
#include <gtest/gtest.h>

#include <string>

#include "engine/ZvrLoadStore.h"
#include "animation/keyframe_evaluation.h"
#include "animation/transform_capture.h"

using namespace zvrs;

namespace {

class ImportedScene : public ::testing::Test {
 protected:
  void SetUp() override {
    const int32_t plugin = zvrRegisterPlugin("Velder64.dll");
    ASSERT_GE(plugin, 0);
    ASSERT_EQ(zvrCreateContext(ZVR_API_VERSION, &plugin, 1, ZVR_CREATION_FLAGS_ENABLE_CPU, nullptr, nullptr, &context_),
              0);
    ASSERT_EQ(zvrContextCreateMaterialSystem(context_, 0, &materials_), 0);
    const std::string path = std::string(ZVR_SHARED_DIR) + "/scenes/gltf/BoxAnimated/BoxAnimated.glb";
    ASSERT_EQ(zvrsImport(path.c_str(), context_, materials_, &scene_, 0, nullptr), 0);
  }
  void TearDown() override {
    zvrsReleaseImportedData();
    zvrsDeleteListImportedObjects(context_);
    zvrObjectDelete(scene_);
    zvrObjectDelete(materials_);
    zvrObjectDelete(context_);
  }

  ZvrContext context_ = nullptr;
  ZvrMaterialSystem materials_ = nullptr;
  ZvrScene scene_ = nullptr;
  AnimationState state_;
};

// Index of the first group of a chain child -> parent -> grandparent -> root, or -1.
int chainStart(const std::vector<TransformGroup>& transformGroups) {
  const int count = static_cast<int>(transformGroups.size());
  for (int i = 0; i + 2 < count; ++i) {
    if (transformGroups[i].parentIndex == i + 1 && transformGroups[i + 1].parentIndex == i + 2 &&
        transformGroups[i + 2].parentIndex == -1)
      return i;
  }
  return -1;
}

TEST_F(ImportedScene, ChainLandsAsChildParentGrandparent) {
  for (int run = 0; run < 2; ++run) {  // a second capture starts from clean tables
    captureImportedObjects(state_);
    const std::vector<TransformGroup>& groups = state_.transformGroups;
    ASSERT_EQ(groups.size(), 4u) << "run " << run;
    ASSERT_EQ(state_.groupIndexByName.size(), 4u);
    EXPECT_EQ(state_.shapeGroups.size(), 2u);
    EXPECT_TRUE(state_.objectAppliedTransforms.empty());
    const int child = chainStart(groups);
    ASSERT_GE(child, 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(state_.groupIndexByName.at(groups[child + i].name), child + i);
    // The deepest member's shape hangs on the child.
    bool shapeOnChild = false;
    for (const auto& [shape, group] : state_.shapeGroups) shapeOnChild = shapeOnChild || group == child;
    EXPECT_TRUE(shapeOnChild);
  }
}

TEST_F(ImportedScene, AnimationRecordsNameTheirGroups) {
  captureImportedObjects(state_);
  captureAnimations(state_);
  const int child = chainStart(state_.transformGroups);
  ASSERT_GE(child, 0);
  ASSERT_EQ(state_.animationChannels.size(), 2u);
  for (const AnimationChannel& channel : state_.animationChannels) {
    if (channel.record.kind == ZVRS_ANIMATION_ROTATION) {
      EXPECT_EQ(channel.groupIndex, child);
      EXPECT_EQ(channel.componentCount, 4u);
      EXPECT_EQ(channel.values.size(), channel.times.size() * 4);
    } else {
      EXPECT_EQ(channel.record.kind, uint32_t(ZVRS_ANIMATION_TRANSLATION));
      EXPECT_EQ(channel.groupIndex, child + 2);
      EXPECT_EQ(channel.values.size(), channel.times.size() * 3);
    }
  }
  EXPECT_NEAR(state_.animationEndTime, 3.70833f, 1e-4f);

  // Posing twice at the same time sends nothing the second time.
  evaluateAnimation(state_, 1.875f, 0);
  EXPECT_TRUE(state_.transformsChanged);
  const auto applied = state_.objectAppliedTransforms;
  state_.transformsChanged = false;
  evaluateAnimation(state_, 1.875f, 0);
  EXPECT_FALSE(state_.transformsChanged);
  EXPECT_EQ(state_.objectAppliedTransforms, applied);
}

}  // namespace
