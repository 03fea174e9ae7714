// A hierarchy over a scene's local emitters that chooses one for a shading point in proportion to
// a bound of what it can give there (power, distance and orientation: Conty Estevez and Kulla
// 2018, as pbrt-v4 does it). With many emitters a choice by power alone mostly picks lights that
// are far away or turned away; the tree prefers those near and facing the point.
#pragma once

#include <cstdint>
#include <vector>

#include "kernel/vector_math.h"

namespace zvr::kernel {

// Where an emitter (or a group of them) is and where its light can go.
struct LightBounds {
  Vec3 lower, upper;      // box around the emitting points
  float power = 0;
  Vec3 axis{0, 0, 1};     // the normals lie within `spread` radians of axis
  float spread = kPi;     // pi: normals in every direction (a point light)
  float cosEmission = 0;  // light leaves within acos(cosEmission) of a normal (0: a hemisphere)
  bool twoSided = false;  // emits on both sides of its normals
};

class LightTree {
 public:
  // Emitter i of `lights` becomes leaf i; emitters of no power are never chosen.
  void build(const std::vector<LightBounds>& lights);
  bool empty() const { return nodes_.empty(); }
  // Chooses an emitter for point `p` with `u` in [0, 1); false when none can light p. A point that
  // takes light only from the hemisphere around `up` passes it; zero: from every direction.
  bool sample(Vec3 p, Vec3 up, float u, uint32_t& light, float& pmf) const;
  // The probability with which sample() chooses `light` for `p` and `up`.
  float pmf(Vec3 p, Vec3 up, uint32_t light) const;

 private:
  // A node's bounds in the form the importance reads them, with what it would otherwise compute
  // at every visit: a walk down evaluates two nodes per level.
  struct Node {
    Vec3 center;
    float radius2 = 0;  // of the sphere around the box
    Vec3 axis;
    float cosSpread = -1, sinSpread = 0, cosEmission = 0, power = 0;
    bool twoSided = false, leaf = false;
    uint32_t childOrLight = 0;  // the second child, or the emitter of a leaf; the first child follows its node
    double importance(Vec3 p, Vec3 up) const;
  };
  // An emitter as the build reorders it: its bounds travel with it, so that reading them never
  // jumps about a large scene's list.
  struct BuildItem {
    LightBounds bounds;
    Vec3 centre;
    uint32_t light;
  };
  // Builds the node of items[begin, end) and its subtree; `bounds` receives the node's bounds.
  uint32_t buildRange(std::vector<BuildItem>& items, size_t begin, size_t end, uint64_t trail, uint32_t depth,
                      LightBounds& bounds);
  // The share of `p`'s importance that goes to the first child of interior node `n`; negative when
  // neither child can light p.
  double firstShare(uint32_t n, Vec3 p, Vec3 up) const;

  std::vector<Node> nodes_;
  // Per emitter, its way down from the root: bit d set where it lies in the second child at depth d.
  std::vector<uint64_t> trails_;
};

// The bounds of two emitter groups together.
LightBounds unionOf(const LightBounds& a, const LightBounds& b);

}  // namespace zvr::kernel
