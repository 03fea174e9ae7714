// Where a scene without a camera gets one, and whether it needs a light of its own.
#pragma once

#include <array>
#include <vector>

#include "loadstore/scene_description.h"
#include "loadstore/transform_math.h"

namespace zvr::loadstore {

struct Bounds {
  std::array<float, 3> lower{0.f, 0.f, 0.f}, upper{0.f, 0.f, 0.f};
  bool empty = true;
};

struct Framing {
  std::array<float, 3> eye, target, up;
  float fovY, nearPlane, farPlane;
};

std::vector<Matrix4> worldMatrices(const SceneDescription& scene);  // one per node
Bounds sceneBounds(const SceneDescription& scene, const std::vector<Matrix4>& world);
// Perspective 45 degrees, looking at the centre from +z, a little from above, the bounding
// sphere just inside the view.
Framing frameBounds(const Bounds& bounds);
bool sceneHasLightOrEmission(const SceneDescription& scene);

}  // namespace zvr::loadstore
