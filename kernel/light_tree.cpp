#include "kernel/light_tree.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zvr::kernel {
namespace {

// Within a node's bounding sphere distance says little: the squared distance is held above this
// share of the sphere's squared radius.
constexpr float kMinDistanceShare = 1.0f;
// Splits by cost stop at this depth, so that the median splits below it keep every trail within
// its 64 bits for up to 2^24 emitters.
constexpr uint32_t kMaxCostDepth = 40;

float safeSqrt(float v) { return std::sqrt(std::max(0.0f, v)); }

// cos and sin of (a - b), clamped at 0 where b exceeds a.
float cosSubClamped(float sinA, float cosA, float sinB, float cosB) { return cosA > cosB ? 1 : cosA * cosB + sinA * sinB; }
float sinSubClamped(float sinA, float cosA, float sinB, float cosB) { return cosA > cosB ? 0 : sinA * cosB - cosA * sinB; }

// `v` turned about the unit axis `k` by the angle whose sine and cosine are given (Rodrigues).
Vec3 rotate(Vec3 v, Vec3 k, float sinA, float cosA) { return v * cosA + cross(k, v) * sinA + k * (dot(k, v) * (1 - cosA)); }

// The smallest cone of directions holding two cones (axis, cos of half angle).
void coneUnion(Vec3 a, float cosA, Vec3 b, float cosB, Vec3& axis, float& cosOut) {
  const float thetaA = std::acos(std::clamp(cosA, -1.0f, 1.0f)), thetaB = std::acos(std::clamp(cosB, -1.0f, 1.0f));
  const float thetaD = std::acos(std::clamp(dot(a, b), -1.0f, 1.0f));
  if (std::min(thetaD + thetaB, kPi) <= thetaA) {
    axis = a, cosOut = cosA;
    return;
  }
  if (std::min(thetaD + thetaA, kPi) <= thetaB) {
    axis = b, cosOut = cosB;
    return;
  }
  const float thetaO = (thetaA + thetaD + thetaB) / 2;
  const Vec3 k = cross(a, b);
  if (thetaO >= kPi || dot(k, k) <= 0) {
    axis = a, cosOut = -1;
    return;
  }
  const float thetaR = thetaO - thetaA;
  axis = normalize(rotate(a, normalize(k), std::sin(thetaR), std::cos(thetaR)));
  cosOut = std::cos(thetaO);
}

// The cost pbrt-v4 gives a group of emitters: power times the solid angle its light can reach
// times its surface area (Conty Estevez and Kulla's orientation heuristic).
float orientationCost(const LightBounds& b, float stretch) {
  if (!(b.power > 0)) return 0;
  const float cosO = std::clamp(b.cosSpread, -1.0f, 1.0f), thetaO = std::acos(cosO);
  const float thetaE = std::acos(std::clamp(b.cosEmission, -1.0f, 1.0f));
  const float thetaW = std::min(thetaO + thetaE, kPi), sinO = safeSqrt(1 - cosO * cosO);
  const float solidAngle = 2 * kPi * (1 - cosO) +
                           kPi / 2 * (2 * thetaW * sinO - std::cos(thetaO - 2 * thetaW) - 2 * thetaO * sinO + cosO);
  const Vec3 d = b.upper - b.lower;
  const float area = 2 * (d.x * d.y + d.y * d.z + d.z * d.x);
  // Lamps at a single point have no area and cost nothing: any split of them will do.
  return b.power * solidAngle * stretch * std::max(area, 0.0f);
}

}  // namespace

LightBounds unionOf(const LightBounds& a, const LightBounds& b) {
  if (!(a.power > 0)) return b;
  if (!(b.power > 0)) return a;
  LightBounds u;
  for (int i = 0; i < 3; ++i) {
    u.lower[i] = std::min(a.lower[i], b.lower[i]);
    u.upper[i] = std::max(a.upper[i], b.upper[i]);
  }
  u.power = a.power + b.power;
  coneUnion(a.axis, a.cosSpread, b.axis, b.cosSpread, u.axis, u.cosSpread);
  u.cosEmission = std::min(a.cosEmission, b.cosEmission);
  u.twoSided = a.twoSided || b.twoSided;
  return u;
}

// A bound of the light the node's emitters can send to `p`, up to a factor common to all nodes;
// 0 where they can send none.
float LightTree::Node::importance(Vec3 p) const {
  if (!(power > 0)) return 0;
  // Measured from the centre, held above half the box's diagonal: the distance to the box itself
  // would score a group astronomically from any point inside it.
  const Vec3 toP = p - center;
  const float dist2 = dot(toP, toP), d2 = std::max(dist2, minDist2);
  // Lights shining every way (points) lose nothing to orientation.
  if (cosSpread <= -1) return power / d2;
  float cosW = dist2 > 0 ? dot(axis, toP) / std::sqrt(dist2) : 1.0f;
  if (twoSided) cosW = std::fabs(cosW);
  const float sinW = safeSqrt(1 - cosW * cosW);
  // The directions from the box towards p that the box itself spans, as seen from p.
  const float cosB = dist2 < radius2 ? -1.0f : safeSqrt(1 - radius2 / dist2);
  const float sinB = safeSqrt(1 - cosB * cosB);
  const float cosX = cosSubClamped(sinW, cosW, sinSpread, cosSpread), sinX = sinSubClamped(sinW, cosW, sinSpread, cosSpread);
  const float cosP = cosSubClamped(sinX, cosX, sinB, cosB);
  if (cosP <= cosEmission) return 0;
  return power * cosP / d2;
}

void LightTree::build(const std::vector<LightBounds>& lights) {
  nodes_.clear();
  trails_.assign(lights.size(), 0);
  if (lights.empty() || lights.size() > (size_t(1) << 24)) return;
  std::vector<uint32_t> order(lights.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  nodes_.reserve(2 * lights.size());
  LightBounds all;
  buildRange(order, 0, order.size(), lights, 0, 0, all);
}

// Splits where the orientation heuristic over twelve buckets per axis is least, so that emitters
// far apart or facing away from each other end up in different groups; past a depth where a
// trail's bits run short, and where the centres coincide, by count at the median instead.
uint32_t LightTree::buildRange(std::vector<uint32_t>& order, size_t begin, size_t end, const std::vector<LightBounds>& lights,
                               uint64_t trail, uint32_t depth, LightBounds& bounds) {
  const uint32_t index = uint32_t(nodes_.size());
  nodes_.emplace_back();
  auto finish = [&](const LightBounds& b) {
    Node& n = nodes_[index];
    n.lower = b.lower;
    n.upper = b.upper;
    n.center = (b.lower + b.upper) * 0.5f;
    n.radius2 = dot(b.upper - n.center, b.upper - n.center);
    n.minDist2 = std::max(kMinDistanceShare * n.radius2, 1e-12f);
    n.axis = b.axis;
    n.cosSpread = std::clamp(b.cosSpread, -1.0f, 1.0f);
    n.sinSpread = safeSqrt(1 - n.cosSpread * n.cosSpread);
    n.cosEmission = b.cosEmission;
    n.power = b.power;
    n.twoSided = b.twoSided;
    bounds = b;
  };
  if (end - begin == 1) {
    const uint32_t light = order[begin];
    finish(lights[light]);
    nodes_[index].leaf = true;
    nodes_[index].first = light;
    trails_[light] = trail;
    return index;
  }
  auto centre = [&](uint32_t light, int axis) { return (lights[light].lower[axis] + lights[light].upper[axis]) * 0.5f; };
  Vec3 lo(1e30f), hi(-1e30f), boxLo(1e30f), boxHi(-1e30f);
  for (size_t i = begin; i < end; ++i) {
    const LightBounds& b = lights[order[i]];
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], centre(order[i], k));
      hi[k] = std::max(hi[k], centre(order[i], k));
      boxLo[k] = std::min(boxLo[k], b.lower[k]);
      boxHi[k] = std::max(boxHi[k], b.upper[k]);
    }
  }
  constexpr int kBuckets = 12;
  auto bucketOf = [&](uint32_t light, int axis) {
    const float t = (centre(light, axis) - lo[axis]) / (hi[axis] - lo[axis]);
    return std::clamp(int(t * kBuckets), 0, kBuckets - 1);
  };
  int bestAxis = -1, bestSplit = 0;
  float bestCost = std::numeric_limits<float>::infinity();
  const Vec3 box = boxHi - boxLo;
  const float longest = std::max({box.x, box.y, box.z});
  for (int axis = 0; axis < 3 && depth < kMaxCostDepth; ++axis) {
    if (!(hi[axis] > lo[axis])) continue;
    LightBounds bucket[kBuckets];
    for (size_t i = begin; i < end; ++i) {
      const uint32_t light = order[i];
      LightBounds& b = bucket[bucketOf(light, axis)];
      b = unionOf(b, lights[light]);
    }
    // Long thin groups split across their length: splits along a short side cost more.
    const float stretch = box[axis] > 0 ? longest / box[axis] : 1;
    LightBounds below[kBuckets];
    below[0] = bucket[0];
    for (int k = 1; k < kBuckets; ++k) below[k] = unionOf(below[k - 1], bucket[k]);
    LightBounds above;
    for (int k = kBuckets - 1; k > 0; --k) {
      above = unionOf(above, bucket[k]);
      const float cost = orientationCost(below[k - 1], stretch) + orientationCost(above, stretch);
      if (cost < bestCost && below[k - 1].power > 0 && above.power > 0) {
        bestCost = cost;
        bestAxis = axis;
        bestSplit = k;
      }
    }
  }
  size_t mid = begin;
  if (bestAxis >= 0) {
    mid = size_t(std::partition(order.begin() + long(begin), order.begin() + long(end),
                                [&](uint32_t light) { return bucketOf(light, bestAxis) < bestSplit; }) -
                 order.begin());
  }
  if (mid == begin || mid == end) {
    const Vec3 extent = hi - lo;
    const int axis = extent.x >= extent.y && extent.x >= extent.z ? 0 : extent.y >= extent.z ? 1 : 2;
    mid = begin + (end - begin) / 2;
    std::nth_element(order.begin() + long(begin), order.begin() + long(mid), order.begin() + long(end), [&](uint32_t a, uint32_t b) {
      const float ca = centre(a, axis), cb = centre(b, axis);
      return ca < cb || (ca == cb && a < b);
    });
  }
  LightBounds firstBounds, secondBounds;
  buildRange(order, begin, mid, lights, trail, depth + 1, firstBounds);
  const uint32_t second = buildRange(order, mid, end, lights, trail | (uint64_t(1) << depth), depth + 1, secondBounds);
  finish(unionOf(firstBounds, secondBounds));
  nodes_[index].first = second;
  return index;
}

// Each child that can light p keeps at least this share, so that no bound, however loose, starves
// a subtree of samples: with shares computed exactly, one below 3e-8 of its sibling's came up never.
constexpr double kMinShare = 1.0 / 1024;

double LightTree::firstShare(uint32_t n, Vec3 p) const {
  const double a = nodes_[n + 1].importance(p), b = nodes_[nodes_[n].first].importance(p);
  const double sum = a + b;
  if (!(sum > 0) || !std::isfinite(sum)) return -1;
  if (a <= 0) return 0;
  if (b <= 0) return 1;
  return std::clamp(a / sum, kMinShare, 1 - kMinShare);
}

// The walk in double precision: each level's remapping of u loses the bits its choice used.
bool LightTree::sample(Vec3 p, float uLight, uint32_t& light, float& pmf) const {
  if (nodes_.empty()) return false;
  uint32_t n = 0;
  double u = uLight, probability = 1;
  while (!nodes_[n].leaf) {
    const double share = firstShare(n, p);
    if (share < 0) return false;
    if (u < share) {
      probability *= share;
      u = u / share;
      n = n + 1;
    } else {
      probability *= 1 - share;
      u = (u - share) / (1 - share);
      n = nodes_[n].first;
    }
    u = std::min(u, 0x1.fffffffffffffp-1);
  }
  light = nodes_[n].first;
  pmf = float(probability);
  return pmf > 0;
}

float LightTree::pmf(Vec3 p, uint32_t light) const {
  if (light >= trails_.size() || nodes_.empty()) return 0;
  double probability = 1;
  uint32_t n = 0;
  for (uint32_t d = 0; !nodes_[n].leaf; ++d) {
    const double share = firstShare(n, p);
    if (share < 0) return 0;
    if (trails_[light] >> d & 1) {
      probability *= 1 - share;
      n = nodes_[n].first;
    } else {
      probability *= share;
      n = n + 1;
    }
  }
  return nodes_[n].first == light ? float(probability) : 0;
}

}  // namespace zvr::kernel
