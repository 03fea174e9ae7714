// Every emitter of a scene behind one interface: point, spot, directional, environment (constant or
// an importance-sampled lat-long image) and emissive triangles, chosen in proportion to power, or
// with many local emitters through a hierarchy that also weighs distance and orientation.
#pragma once

#include <vector>

#include "kernel/light_tree.h"
#include "kernel/lpe_automaton.h"
#include "kernel/sampling.h"
#include "kernel/material.h"
#include "kernel/scene.h"
#include "kernel/spherical_rectangle.h"

namespace zvr::kernel {

// The group of light from several environments whose groups differ: shared out by direction.
constexpr int32_t kGroupPerEnvironment = -2;

struct LightSample {
  Vec3 radiance;         // arriving radiance (delta lights: the irradiance-carrying value)
  Vec3 wi;               // towards the light
  float distance = 0;    // to the light point; infinite lights use a large value
  float pdf = 0;         // solid angle, including the light choice; delta lights: the choice alone
  bool delta = false;
  bool infinite = false;
  uint8_t emitterType = kEventLight;  // light, emissive object or background, for light paths
  int32_t group = -1;                 // light group; see environmentGroup() for environments
  uint32_t labelKey = ~0u;            // the emitter's LabelKey (light_paths.h)
};

// Two triangles of one emitter with constant emission that make a rectangle, sampled as one.
struct EmissiveRectangle {
  uint32_t shape;
  Vec3 corner, x, y, normal;  // x and y: orthogonal unit edges; normal as the triangles' own
  float width, height, area;
  Vec3 center;
  Vec3 emission;
  bool doubleSided;
  int32_t group;
};

// Where sampling a rectangle by solid angle starts to pay: from this estimate of the solid angle
// (area |cos| / distance^2) on. The construction costs more per sample than a triangle's, so this
// lies above the triangles' threshold (the Cornell box's light: 0.1 to 0.2 break even, 0.05 loses
// 12% of quality per second).
constexpr float kSphericalRectangleEstimate = 0.2f;

// Whether an emitter of `area` with its centre at `d` from the shading point looks large enough
// for sampling by solid angle: area |cos| / distance^2 >= threshold, compared squared and in double
// precision, with no division or square root (whose latency was most of a rectangle sample's).
// Branch-free, so that vector stages can take the same decision for many points at once.
inline bool looksLarge(float area, Vec3 normal, Vec3 d, float threshold) {
  const double dist2 = dot(d, d), projected = double(area) * std::fabs(dot(normal, d)), t = threshold;
  return (dist2 > 0) & (projected * projected >= t * t * (dist2 * dist2 * dist2));
}

class LightSet {
 public:
  void build(const SceneSnapshot& snapshot, const Scene& scene);
  bool empty() const { return selection_.size() == 0; }
  // With one light the choice is made without its random number.
  bool choosesLight() const { return selection_.size() > 1; }
  // `upper`, when not zero, is the unit normal of the one hemisphere whose light the caller can use
  // (the lit side of an opaque surface): a constant environment is then sampled by cosine there
  // instead of over the whole sphere, half of which such a surface never sees. `side`, when not
  // zero, is that hemisphere for a surface that only reflects, whatever its lobes: lights wholly
  // below it are then not chosen.
  bool sample(const Vec3& p, float uLight, float u1, float u2, const Scene& scene, LightSample& out,
              Vec3 upper = Vec3(0), Vec3 side = Vec3(0)) const;
  // sample() in two steps, for callers that look at the light between them: the light chosen with
  // `uLight` for `ref` and `side` (entry -1 when none can be), then a sample of it.
  struct Choice {
    int32_t entry = -1;
    float pmf = 0;  // the probability of that choice
  };
  Choice choose(float uLight, Vec3 ref, Vec3 side = Vec3(0)) const;
  bool sample(Choice choice, const Vec3& p, float u1, float u2, const Scene& scene, LightSample& out,
              Vec3 upper = Vec3(0)) const;
  // The chosen light when it is an emissive rectangle, else null. Vector stages sample it by area
  // with sample()'s arithmetic, and leave to sample() the points from which it looksLarge() by
  // kSphericalRectangleEstimate.
  const EmissiveRectangle* rectangleOf(Choice choice) const;
  // Radiance of the environment along a direction leaving the scene.
  Vec3 environment(Vec3 dir) const;
  // Solid-angle density with which sample() picks that environment direction, for the same `upper`.
  float environmentPdf(Vec3 dir, Vec3 upper = Vec3(0)) const;
  // Density with which sample() picks a point on an emissive triangle (alone, or as half of a
  // rectangle), as seen from `ref` by a sample() given `side`.
  float trianglePdf(const Scene& scene, uint32_t shape, uint32_t prim, Vec3 ref, Vec3 lightPoint, Vec3 lightNormal,
                    Vec3 side = Vec3(0)) const;
  bool hasEnvironment() const { return !environments_.empty(); }
  size_t environmentCount() const { return environments_.size(); }
  Vec3 environmentRadianceOf(size_t i, Vec3 dir) const { return environmentRadiance(environments_[i], dir); }
  int32_t environmentGroup(size_t i) const { return environments_[i].group; }
  // The LabelKey of what rays leaving the scene see: the one environment's, none with several.
  uint32_t environmentLabelKey() const { return environments_.size() == 1 ? environments_[0].labelKey : ~0u; }
  // The light group of everything seen along rays that leave the scene: the environments' common
  // group, -1 without environments, kGroupPerEnvironment when their groups differ.
  int32_t environmentGroup() const { return environmentGroup_; }

 private:
  enum class Kind { Point, Spot, Directional, Environment, Triangle, Rectangle };
  struct Entry {
    Kind kind;
    uint32_t index;  // into the kind's own list
  };
  struct Punctual {
    Kind kind;
    Vec3 position, direction, radiance;  // direction: where the light travels
    float cosInner = 1, cosOuter = 0;
    int32_t group = -1;
    uint32_t labelKey = ~0u;
  };
  struct Environment {
    Vec3 radiance;
    Vec3 rows[3];                        // world-to-light rotation rows
    Distribution2D distribution;
    uint32_t width = 0, height = 0;
    std::shared_ptr<const ImageData> image;  // null: a constant radiance
    int32_t group = -1;
    uint32_t labelKey = ~0u;
  };
  // Linear, finite, non-negative RGB of texel i.
  static Vec3 environmentTexel(const Environment& env, size_t i);
  // Luminance of `count` texels from texel `first` on into `out`, each as environmentTexel reads it.
  static void texelLuminance(const Environment& env, size_t first, uint32_t count, float* out);
  struct Triangle {
    uint32_t shape, prim;
    Vec3 p0, e1, e2, normal;
    float area;
    Vec3 emission;   // constant emission, used when the material has no emissive texture
    bool textured;
    bool doubleSided;  // otherwise it emits on the side its normal faces only
    int32_t group;
  };
  static bool pairAsRectangle(const Triangle& a, const Triangle& b, EmissiveRectangle& out);
  // The rectangle seen from `ref` when it is sampled by solid angle there, else a view of solid
  // angle 0 (sampled by area).
  static SphericalRectangle sphericalView(const EmissiveRectangle& r, Vec3 ref);
  bool sampleRectangle(const EmissiveRectangle& r, float pmf, Vec3 ref, float u1, float u2, LightSample& out) const;
  static float texturedEmission(const Scene& scene, const Triangle& t);
  // Where each local emitter can send its light, for the hierarchy.
  LightBounds boundsOf(const Entry& e, float power) const;
  bool inHierarchy(const Entry& e) const;
  void buildHierarchy(const std::vector<float>& power);
  // The entry chosen with `uLight` for a point at `ref` that sees the hemisphere around `side`
  // (zero: everywhere), and the probability of that choice; null when no light can be chosen there.
  const Entry* chooseEntry(Vec3 ref, Vec3 side, float uLight, float& pmf) const;
  float choicePmf(size_t entry, Vec3 ref, Vec3 side) const;
  // The triangle's solid angle seen from `ref` when it is sampled by solid angle there, else 0.
  static float sphericalSolidAngle(const Triangle& t, Vec3 ref);
  Vec3 environmentRadiance(const Environment& env, Vec3 dir) const;
  float environmentDirectionPdf(const Environment& env, Vec3 dir, Vec3 upper) const;

  std::vector<Entry> entries_;
  std::vector<Punctual> punctual_;
  std::vector<Environment> environments_;
  std::vector<Triangle> triangles_;
  std::vector<size_t> environmentEntry_;
  std::vector<EmissiveRectangle> rectangles_;
  std::vector<int64_t> firstPrimEntry_;  // per shape, into primEntry_; -1 when it does not emit
  std::vector<uint32_t> primEntry_;      // the entry of each emissive triangle
  AliasTable selection_;  // light choice in proportion to power, one table read per sample
  // With many local emitters (points, spots, emissive triangles of constant emission) those are
  // chosen through the hierarchy for each point, and the others by power alone, each set by its
  // share of the power. A textured emitter's triangles are left to the power table, which weighs
  // each by its texture: the helmet's 15 452 gained nothing from the walk, which cost a quarter of
  // its render time.
  LightTree hierarchy_;
  AliasTable powerSelection_;
  float localShare_ = 1;
  std::vector<uint32_t> choiceSlot_;  // per entry: its leaf in the hierarchy, or index among the others
  std::vector<bool> inTree_;
  std::vector<uint32_t> leafEntry_, powerEntry_;
  float sceneRadius_ = 1;
  int32_t environmentGroup_ = -1;
};

}  // namespace zvr::kernel
