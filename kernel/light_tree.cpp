#include "kernel/light_tree.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zvr::kernel {
namespace {

// Groups of more emitters than this are split without regard to orientation.
constexpr size_t kOrientedSplitMaxLights = 256;
// Splits by cost stop at this depth, so that the median splits below it keep every trail within
// its 64 bits for up to 2^24 emitters.
constexpr uint32_t kMaxCostDepth = 40;

float safeSqrt(float v) { return std::sqrt(std::max(0.0f, v)); }

// cos and sin of (a - b), clamped at 0 where b exceeds a.
double cosSubClamped(double sinA, double cosA, double sinB, double cosB) { return cosA > cosB ? 1 : cosA * cosB + sinA * sinB; }
double sinSubClamped(double sinA, double cosA, double sinB, double cosB) { return cosA > cosB ? 0 : sinA * cosB - cosA * sinB; }

// `v` turned about the unit axis `k` by the angle whose sine and cosine are given (Rodrigues).
Vec3 rotate(Vec3 v, Vec3 k, float sinA, float cosA) { return v * cosA + cross(k, v) * sinA + k * (dot(k, v) * (1 - cosA)); }

// Cone half angles are kept in radians while groups are merged, where cosines of small angles
// would round to 1; a node's cone is widened by this margin once it is stored as a cosine.
constexpr float kConeMargin = 1e-4f;

// The smallest cone of directions holding two cones (axis, half angle).
void coneUnion(Vec3 a, float thetaA, Vec3 b, float thetaB, Vec3& axis, float& thetaOut) {
  // atan2 keeps the small angles between nearly parallel normals that acos would round to 0.
  const float thetaD = std::atan2(length(cross(a, b)), dot(a, b));
  if (std::min(thetaD + thetaB, kPi) <= thetaA) {
    axis = a, thetaOut = thetaA;
    return;
  }
  if (std::min(thetaD + thetaA, kPi) <= thetaB) {
    axis = b, thetaOut = thetaB;
    return;
  }
  const float thetaO = (thetaA + thetaD + thetaB) / 2;
  const Vec3 k = cross(a, b);
  if (thetaO >= kPi || dot(k, k) <= 0) {
    axis = a, thetaOut = kPi;
    return;
  }
  const float thetaR = thetaO - thetaA;
  axis = normalize(rotate(a, normalize(k), std::sin(thetaR), std::cos(thetaR)));
  thetaOut = thetaO;
}

// The cost pbrt-v4 gives a group of emitters: power times the solid angle its light can reach
// times its surface area (Conty Estevez and Kulla's orientation heuristic).
float orientationCost(const LightBounds& b, float stretch) {
  if (!(b.power > 0)) return 0;
  const float thetaO = std::clamp(b.spread, 0.0f, kPi), cosO = std::cos(thetaO);
  const float thetaE = std::acos(std::clamp(b.cosEmission, -1.0f, 1.0f));
  const float thetaW = std::min(thetaO + thetaE, kPi), sinO = safeSqrt(1 - cosO * cosO);
  const float solidAngle = 2 * kPi * (1 - cosO) +
                           kPi / 2 * (2 * thetaW * sinO - std::cos(thetaO - 2 * thetaW) - 2 * thetaO * sinO + cosO);
  const Vec3 d = b.upper - b.lower;
  const float area = 2 * (d.x * d.y + d.y * d.z + d.z * d.x);
  // Lamps in a row have no area: their squared length measures them instead, or every split
  // would cost 0 and the first, which peels off one end, would win at every level.
  return b.power * solidAngle * stretch * (area > 0 ? area : dot(d, d));
}

// Widens `into` to hold `b` as well, in place, for the build's hot loops; with `cone` false the
// normals are taken to go every way, which spares the trigonometry of merging cones.
void grow(LightBounds& into, const LightBounds& b, bool cone) {
  if (!(b.power > 0)) return;
  if (!(into.power > 0)) {
    into = b;
    if (!cone) into.spread = kPi;
    return;
  }
  for (int i = 0; i < 3; ++i) {
    into.lower[i] = std::min(into.lower[i], b.lower[i]);
    into.upper[i] = std::max(into.upper[i], b.upper[i]);
  }
  // Held at the largest float: an infinite sum would leave every share undefined.
  into.power = std::min(into.power + b.power, std::numeric_limits<float>::max());
  if (cone) coneUnion(into.axis, into.spread, b.axis, b.spread, into.axis, into.spread);
  into.cosEmission = std::min(into.cosEmission, b.cosEmission);
  into.twoSided = into.twoSided || b.twoSided;
}

}  // namespace

LightBounds unionOf(const LightBounds& a, const LightBounds& b) {
  LightBounds u = a;
  grow(u, b, true);
  return u;
}

// A bound of the light the node's emitters can send to `p`, up to a factor common to all nodes;
// 0 where they can send none. A receiver that sees only the hemisphere around `up` (zero: it
// sees everywhere) weighs the node by the largest cosine its bounding sphere can have there.
// In double, so that neither far coordinates nor a point next to a lamp overflow.
double LightTree::Node::importance(Vec3 point, Vec3 up) const {
  if (!(power > 0)) return 0;
  // Measured from the centre and held above the bounding sphere's radius: the distance to the box
  // itself would score a group astronomically from any point inside it.
  const double toP[3] = {double(point.x) - center.x, double(point.y) - center.y, double(point.z) - center.z};
  const double dist2 = toP[0] * toP[0] + toP[1] * toP[1] + toP[2] * toP[2];
  const double d2 = std::max({dist2, double(radius2), 1e-12});
  const double dist = std::sqrt(dist2);
  // The directions from the box towards p that the box itself spans, as seen from p.
  const double cosB = dist2 <= radius2 ? -1.0 : std::sqrt(std::max(0.0, 1 - radius2 / dist2));
  const double sinB = std::sqrt(std::max(0.0, 1 - cosB * cosB));
  double facing = 1;
  if (!isZero(up) && cosB > -1) {
    const double cosI = -(toP[0] * up.x + toP[1] * up.y + toP[2] * up.z) / dist;
    facing = cosSubClamped(std::sqrt(std::max(0.0, 1 - cosI * cosI)), cosI, sinB, cosB);
    if (facing <= 0) return 0;
  }
  // Lights shining every way (points) lose nothing to orientation.
  if (cosSpread <= -1) return power * facing / d2;
  double cosW = dist > 0 ? (axis.x * toP[0] + axis.y * toP[1] + axis.z * toP[2]) / dist : 1.0;
  if (twoSided) cosW = std::fabs(cosW);
  const double sinW = std::sqrt(std::max(0.0, 1 - cosW * cosW));
  const double cosX = cosSubClamped(sinW, cosW, sinSpread, cosSpread), sinX = sinSubClamped(sinW, cosW, sinSpread, cosSpread);
  const double cosP = cosSubClamped(sinX, cosX, sinB, cosB);
  if (cosP <= cosEmission) return 0;
  return power * cosP * facing / d2;
}

void LightTree::build(const std::vector<LightBounds>& lights) {
  nodes_.clear();
  trails_.assign(lights.size(), 0);
  if (lights.empty() || lights.size() > (size_t(1) << 24)) return;
  // An emitter with bounds that are not finite gets no power, and the place of one that has: it is
  // never chosen, and leaves the others' groups as they would be without it.
  auto usable = [](const LightBounds& b) {
    bool finite = std::isfinite(b.power) && std::isfinite(b.spread) && std::isfinite(b.cosEmission);
    for (int k = 0; k < 3; ++k) finite = finite && std::isfinite(b.lower[k]) && std::isfinite(b.upper[k]) && std::isfinite(b.axis[k]);
    return finite && b.power > 0;
  };
  const auto shining = std::find_if(lights.begin(), lights.end(), usable);
  if (shining == lights.end()) return;
  std::vector<BuildItem> items(lights.size());
  for (uint32_t i = 0; i < items.size(); ++i) {
    LightBounds& b = items[i].bounds;
    b = lights[i];
    if (!usable(b)) {
      b = *shining;
      b.power = 0;
    }
    items[i].centre = (b.lower + b.upper) * 0.5f;
    items[i].light = i;
  }
  nodes_.reserve(2 * lights.size());
  LightBounds all;
  buildRange(items, 0, items.size(), 0, 0, all);
}

// Splits where the orientation heuristic over twelve buckets per axis is least, so that emitters
// far apart or facing away from each other end up in different groups; past a depth where a
// trail's bits run short, and where the centres coincide, by count at the median instead.
uint32_t LightTree::buildRange(std::vector<BuildItem>& items, size_t begin, size_t end, uint64_t trail, uint32_t depth,
                               LightBounds& bounds) {
  const uint32_t index = uint32_t(nodes_.size());
  nodes_.emplace_back();
  auto finish = [&](const LightBounds& b) {
    Node& n = nodes_[index];
    n.center = (b.lower + b.upper) * 0.5f;
    n.radius2 = dot(b.upper - n.center, b.upper - n.center);
    n.axis = b.axis;
    // Widened by a hair where it is kept as a cosine, which cannot tell small angles from 0.
    const float spread = std::clamp(b.spread, 0.0f, kPi);
    n.cosSpread = spread + kConeMargin >= kPi ? -1.0f : std::cos(spread + kConeMargin);
    n.sinSpread = spread + kConeMargin >= kPi ? 0.0f : std::sin(spread + kConeMargin);
    n.cosEmission = b.cosEmission;
    n.power = b.power;
    n.twoSided = b.twoSided;
    bounds = b;
  };
  if (end - begin == 1) {
    const uint32_t light = items[begin].light;
    finish(items[begin].bounds);
    nodes_[index].leaf = true;
    nodes_[index].childOrLight = light;
    trails_[light] = trail;
    return index;
  }
  Vec3 lo(1e30f), hi(-1e30f), boxLo(1e30f), boxHi(-1e30f);
  for (size_t i = begin; i < end; ++i) {
    const LightBounds& b = items[i].bounds;
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], items[i].centre[k]);
      hi[k] = std::max(hi[k], items[i].centre[k]);
      boxLo[k] = std::min(boxLo[k], b.lower[k]);
      boxHi[k] = std::max(boxHi[k], b.upper[k]);
    }
  }
  constexpr int kBuckets = 12;
  auto bucketOf = [&](const BuildItem& item, int axis) {
    const float t = (item.centre[axis] - lo[axis]) / (hi[axis] - lo[axis]);
    return std::clamp(int(t * kBuckets), 0, kBuckets - 1);
  };
  int bestAxis = -1, bestSplit = 0;
  float bestCost = std::numeric_limits<float>::infinity();
  const Vec3 box = boxHi - boxLo;
  const float longest = std::max({box.x, box.y, box.z});
  // Merging cones is what a build spends its time on: a group too large for orientation to decide
  // its split, such as a big emissive mesh, is split by boxes and power alone.
  const bool oriented = end - begin <= kOrientedSplitMaxLights;
  // Two emitters split only one way.
  for (int axis = 0; axis < 3 && depth < kMaxCostDepth && end - begin > 2; ++axis) {
    if (!(hi[axis] > lo[axis])) continue;
    LightBounds bucket[kBuckets];
    for (size_t i = begin; i < end; ++i) {
      grow(bucket[bucketOf(items[i], axis)], items[i].bounds, oriented);
    }
    // Long thin groups split across their length: splits along a short side cost more.
    const float stretch = box[axis] > 0 ? longest / box[axis] : 1;
    LightBounds below[kBuckets];
    below[0] = bucket[0];
    for (int k = 1; k < kBuckets; ++k) {
      below[k] = below[k - 1];
      grow(below[k], bucket[k], true);
    }
    LightBounds above;
    for (int k = kBuckets - 1; k > 0; --k) {
      // An empty bucket above the split makes it the same split as the next one up.
      if (!(bucket[k].power > 0)) continue;
      grow(above, bucket[k], true);
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
    mid = size_t(std::partition(items.begin() + long(begin), items.begin() + long(end),
                                [&](const BuildItem& item) { return bucketOf(item, bestAxis) < bestSplit; }) -
                 items.begin());
  }
  if (mid == begin || mid == end) {
    const Vec3 extent = hi - lo;
    const int axis = extent.x >= extent.y && extent.x >= extent.z ? 0 : extent.y >= extent.z ? 1 : 2;
    mid = begin + (end - begin) / 2;
    std::nth_element(items.begin() + long(begin), items.begin() + long(mid), items.begin() + long(end),
                     [&](const BuildItem& a, const BuildItem& b) {
                       return a.centre[axis] < b.centre[axis] || (a.centre[axis] == b.centre[axis] && a.light < b.light);
                     });
  }
  LightBounds firstBounds, secondBounds;
  buildRange(items, begin, mid, trail, depth + 1, firstBounds);
  const uint32_t second = buildRange(items, mid, end, trail | (uint64_t(1) << depth), depth + 1, secondBounds);
  finish(unionOf(firstBounds, secondBounds));
  nodes_[index].childOrLight = second;
  return index;
}

// Each child that can light p keeps at least this share, so that no bound, however loose, starves
// a subtree of samples: with shares computed exactly, one below 3e-8 of its sibling's came up never.
constexpr double kMinShare = 1.0 / 1024;

double LightTree::firstShare(uint32_t n, Vec3 p, Vec3 up) const {
  const double a = nodes_[n + 1].importance(p, up), b = nodes_[nodes_[n].childOrLight].importance(p, up);
  const double sum = a + b;
  if (!(sum > 0) || !std::isfinite(sum)) return -1;
  if (a <= 0) return 0;
  if (b <= 0) return 1;
  return std::clamp(a / sum, kMinShare, 1 - kMinShare);
}

// The walk in double precision: each level's remapping of u loses the bits its choice used.
bool LightTree::sample(Vec3 p, Vec3 up, float uLight, uint32_t& light, float& pmf) const {
  if (nodes_.empty()) return false;
  uint32_t n = 0;
  double u = uLight, probability = 1;
  while (!nodes_[n].leaf) {
    const double share = firstShare(n, p, up);
    if (share < 0) return false;
    if (u < share) {
      probability *= share;
      u = u / share;
      n = n + 1;
    } else {
      probability *= 1 - share;
      u = (u - share) / (1 - share);
      n = nodes_[n].childOrLight;
    }
    u = std::min(u, 0x1.fffffffffffffp-1);
  }
  light = nodes_[n].childOrLight;
  pmf = float(probability);
  return pmf > 0;
}

float LightTree::pmf(Vec3 p, Vec3 up, uint32_t light) const {
  if (light >= trails_.size() || nodes_.empty()) return 0;
  double probability = 1;
  uint32_t n = 0;
  for (uint32_t d = 0; !nodes_[n].leaf; ++d) {
    const double share = firstShare(n, p, up);
    if (share < 0) return 0;
    if (trails_[light] >> d & 1) {
      probability *= 1 - share;
      n = nodes_[n].childOrLight;
    } else {
      probability *= share;
      n = n + 1;
    }
  }
  return nodes_[n].childOrLight == light ? float(probability) : 0;
}

}  // namespace zvr::kernel
