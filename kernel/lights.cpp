#include "kernel/lights.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace zvr::kernel {
namespace {

constexpr float kInfiniteDistance = 1e30f;
constexpr uint32_t kMaxTableWidth = 2048;

float srgbDecode(float v) { return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f); }

// Lat-long convention: u = 0 at azimuth -pi, centre of the image along -z; v = 0 at +y.
void directionToLatLong(Vec3 l, float& u, float& v) {
  u = 0.5f + std::atan2(l.x, -l.z) / (2 * kPi);
  v = std::acos(std::min(1.0f, std::max(-1.0f, l.y))) / kPi;
}
Vec3 latLongToDirection(float u, float v) {
  float phi = (u - 0.5f) * 2 * kPi, theta = v * kPi;
  return {std::sin(theta) * std::sin(phi), std::cos(theta), -std::sin(theta) * std::cos(phi)};
}

// Sampling by solid angle pays where a triangle looks large (noise near emitters falls) and costs
// more than it saves where it looks small: a centroid estimate of the angle chooses, cheaply.
constexpr float kSphericalEstimate = 0.05f;
// Solid angles outside this range are sampled by area: below it the spherical construction loses
// precision, above it the triangle nearly surrounds the point.
constexpr float kMinSphericalSolidAngle = 3e-4f;
constexpr float kMaxSphericalSolidAngle = 6.22f;
// From this many local emitters on they are chosen through the hierarchy. With a few, the alias
// table's single read costs less than a walk; with one (the Cornell box) the walk has no choice.
constexpr size_t kHierarchyMinEmitters = 8;

// Solid angle of triangle (a, b, c) seen from the origin (Van Oosterom and Strackee).
float solidAngleFromOrigin(Vec3 a, Vec3 b, Vec3 c) {
  a = normalize(a);
  b = normalize(b);
  c = normalize(c);
  float denominator = 1 + dot(a, b) + dot(b, c) + dot(c, a);
  return std::fabs(2 * std::atan2(dot(a, cross(b, c)), denominator));
}

Vec3 orthogonalPart(Vec3 v, Vec3 unit) { return normalize(v - unit * dot(v, unit)); }

// A direction from the origin to triangle (v0, v1, v2) uniform in solid angle (Arvo 1995), as the
// barycentrics (b1, b2) of the point it meets. `solidAngle` is the triangle's, which stands in for
// the sum of its angles, so the vertex angle alpha is needed only through its sine and cosine: no
// inverse trigonometry per sample. False when the triangle is too thin to sample so.
bool sampleSphericalTriangle(Vec3 v0, Vec3 v1, Vec3 v2, float solidAngle, float u1, float u2, float& b1, float& b2) {
  Vec3 a = normalize(v0), b = normalize(v1), c = normalize(v2);
  Vec3 nab = cross(a, b), nac = cross(a, c);
  if (dot(nab, nab) <= 0 || dot(nac, nac) <= 0) return false;
  float cosAlpha = std::clamp(dot(normalize(nab), normalize(nac)), -1.0f, 1.0f);
  float sinAlpha = std::sqrt(std::max(0.0f, 1 - cosAlpha * cosAlpha));
  // The sub-triangle of area u1 * A, then a point along its far arc.
  float sinArea, cosArea;
  sinCos2Pi(u1 * solidAngle / (2 * kPi), sinArea, cosArea);
  float s = sinArea * cosAlpha - cosArea * sinAlpha, t = cosArea * cosAlpha + sinArea * sinAlpha;
  float u = t - cosAlpha, v = s + sinAlpha * dot(a, b);
  float denominator = (v * s + u * t) * sinAlpha;
  if (!(std::fabs(denominator) > 0)) return false;
  float cosBp = std::clamp(((v * t - u * s) * cosAlpha - v) / denominator, -1.0f, 1.0f);
  Vec3 cp = a * cosBp + orthogonalPart(c, a) * std::sqrt(std::max(0.0f, 1 - cosBp * cosBp));
  float cosTheta = 1 - u2 * (1 - dot(cp, b));
  Vec3 w = b * cosTheta + orthogonalPart(cp, b) * std::sqrt(std::max(0.0f, 1 - cosTheta * cosTheta));
  // Where w meets the triangle's plane (Moller and Trumbore, from the origin).
  Vec3 e1 = v1 - v0, e2 = v2 - v0, s1 = cross(w, e2);
  float divisor = dot(s1, e1);
  if (!(std::fabs(divisor) > 0)) return false;
  Vec3 o = -v0;
  b1 = std::clamp(dot(o, s1) / divisor, 0.0f, 1.0f);
  b2 = std::clamp(dot(w, cross(o, e1)) / divisor, 0.0f, 1.0f);
  float sum = b1 + b2;
  if (sum > 1) {
    b1 /= sum;
    b2 /= sum;
  }
  return isFinite(Vec3(b1, b2, 0));
}

// Direction and distance from `ref` to a point `p` of an emitter, and the cosine there; false when
// `p` is `ref` itself, or shows `ref` its back (single-sided) or its edge.
bool towardsEmitterPoint(Vec3 ref, Vec3 p, Vec3 normal, bool doubleSided, LightSample& out, float& dist2, float& cosL) {
  Vec3 d = p - ref;
  dist2 = dot(d, d);
  if (!(dist2 > 0) || !std::isfinite(dist2)) return false;
  out.distance = std::sqrt(dist2);
  out.wi = d / out.distance;
  float facing = -dot(normal, out.wi);
  if (!doubleSided && facing <= 0) return false;
  cosL = std::fabs(facing);
  return cosL > 1e-7f;
}

}  // namespace

// Corners closer than this share of the longest edge are one corner; edges whose cosine is below
// it are square, and the far corner must lie within it of each edge's length along that edge.
constexpr float kRectangleTolerance = 1e-4f;

bool LightSet::pairAsRectangle(const Triangle& a, const Triangle& b, EmissiveRectangle& out) {
  if (a.doubleSided != b.doubleSided || a.group != b.group || dot(a.normal, b.normal) < 1 - kRectangleTolerance) return false;
  const Vec3 va[3] = {a.p0, a.p0 + a.e1, a.p0 + a.e2}, vb[3] = {b.p0, b.p0 + b.e1, b.p0 + b.e2};
  const float scale = std::max({length(a.e1), length(a.e2), length(a.e1 - a.e2)});
  const float tolerance = kRectangleTolerance * scale;
  auto same = [&](Vec3 p, Vec3 q) { return length(p - q) <= tolerance; };
  // The pair must share exactly one edge, the diagonal: each keeps one corner of its own.
  int ownA = -1, ownB = -1, sharedA = 0, sharedB = 0;
  for (int i = 0; i < 3; ++i) {
    bool inB = same(va[i], vb[0]) || same(va[i], vb[1]) || same(va[i], vb[2]);
    bool inA = same(vb[i], va[0]) || same(vb[i], va[1]) || same(vb[i], va[2]);
    if (inB) ++sharedA;
    else ownA = i;
    if (inA) ++sharedB;
    else ownB = i;
  }
  if (sharedA != 2 || sharedB != 2 || !(scale > 0)) return false;
  const Vec3 corner = va[ownA], ex = va[(ownA + 1) % 3] - corner, ey = va[(ownA + 2) % 3] - corner;
  const float lx = length(ex), ly = length(ey);
  if (std::fabs(dot(ex, ey)) > kRectangleTolerance * lx * ly) return false;
  // The far corner is measured along each edge on its own scale, so a thin quad whose far corner
  // strays by a share of its short side is no rectangle.
  const Vec3 far = vb[ownB] - corner;
  if (std::fabs(dot(far, ex) / (lx * lx) - 1) > kRectangleTolerance || std::fabs(dot(far, ey) / (ly * ly) - 1) > kRectangleTolerance)
    return false;
  const Vec3 x = ex / lx, y = ey / ly;
  const Vec3 center = corner + (x * lx + y * ly) * 0.5f;
  out = {a.shape, corner, x, y, a.normal, lx, ly, lx * ly, center, a.emission, a.doubleSided, a.group};
  return true;
}

SphericalRectangle LightSet::sphericalView(const EmissiveRectangle& r, Vec3 ref) {
  // As for triangles: by solid angle only where the rectangle looks large enough to pay.
  if (!looksLarge(r.area, r.normal, r.center - ref, kSphericalRectangleEstimate))
    return {};
  SphericalRectangle view(r.corner, r.x, r.y, r.width, r.height, ref);
  float solidAngle = view.solidAngle();
  return solidAngle >= kMinSphericalSolidAngle && solidAngle <= kMaxSphericalSolidAngle ? view : SphericalRectangle();
}

bool LightSet::sampleRectangle(const EmissiveRectangle& r, float pmf, Vec3 ref, float u1, float u2, LightSample& out) const {
  const SphericalRectangle view = sphericalView(r, ref);
  const float solidAngle = view.solidAngle();
  Vec3 p = solidAngle > 0 ? view.sample(u1, u2) : r.corner + r.x * (u1 * r.width) + r.y * (u2 * r.height);
  float dist2 = 0, cosL = 0;
  if (!towardsEmitterPoint(ref, p, r.normal, r.doubleSided, out, dist2, cosL)) return false;
  out.radiance = r.emission;
  out.emitterType = kEventObject;
  out.group = r.group;
  out.labelKey = r.shape;
  out.pdf = solidAngle > 0 ? pmf / solidAngle : pmf * dist2 / (r.area * cosL);
  return true;
}

// A textured emitter that its probes find black keeps this share of its untextured power.
constexpr float kTexturedPowerFloor = 1e-3f;

void LightSet::build(const SceneSnapshot& snapshot, const Scene& scene) {
  entries_.clear();
  punctual_.clear();
  environments_.clear();
  triangles_.clear();
  rectangles_.clear();
  environmentEntry_.clear();
  firstPrimEntry_.assign(scene.shapes().size(), -1);
  primEntry_.clear();
  sceneRadius_ = std::max(1e-3f, scene.diagonal() / 2);
  std::vector<float> power;
  float r2 = sceneRadius_ * sceneRadius_;
  for (size_t light = 0; light < snapshot.lights.size(); ++light) {
    const LightData& l = snapshot.lights[light];
    const uint32_t labelKey = uint32_t(snapshot.shapes.size() + light);
    Vec3 radiance(l.radiance[0], l.radiance[1], l.radiance[2]);
    if (!isFinite(radiance) || maxComponent(radiance) <= 0) continue;
    Vec3 travel = normalize(transformVector(l.transform, Vec3(0, 0, -1)));
    if (l.type == LightType::Environment) {
      Environment env;
      env.radiance = radiance;
      env.group = l.group;
      env.labelKey = labelKey;
      for (int i = 0; i < 3; ++i)
        env.rows[i] = normalize(Vec3(l.transform.m[4 * i], l.transform.m[4 * i + 1], l.transform.m[4 * i + 2]));
      float average = 1;
      const ImageData* img = l.image.get();
      if (img && img->width > 0 && img->height > 0 && img->channels > 0 &&
          img->pixels.size() >= size_t(img->width) * img->height * img->channels) {
        env.image = l.image;
        env.width = img->width;
        env.height = img->height;
        // The sampling table averages blocks of texels beyond 2048 columns: the density stays
        // exact for what it samples, and a large image sets up in a fraction of the time.
        uint32_t block = (img->width + kMaxTableWidth - 1) / kMaxTableWidth;
        uint32_t tableWidth = (img->width + block - 1) / block, tableHeight = (img->height + block - 1) / block;
        std::vector<Distribution1D> rows(tableHeight);
        std::vector<double> rowSums(tableHeight, 0.0);
        tbb::parallel_for(tbb::blocked_range<uint32_t>(0, tableHeight), [&](const tbb::blocked_range<uint32_t>& range) {
          std::vector<float> texels(img->width);
          for (uint32_t ty = range.begin(); ty < range.end(); ++ty) {
            float sinTheta = std::sin(kPi * (ty + 0.5f) / tableHeight);
            std::vector<float> weights(tableWidth, 0.0f);
            uint32_t y1 = std::min(img->height, (ty + 1) * block);
            for (uint32_t y = ty * block; y < y1; ++y) {
              texelLuminance(env, size_t(y) * img->width, img->width, texels.data());
              for (uint32_t tx = 0, x = 0; tx < tableWidth; ++tx) {
                float w = 0;
                for (uint32_t x1 = std::min(img->width, x + block); x < x1; ++x) w += texels[x];
                weights[tx] += w;
              }
            }
            double sum = 0;
            for (float& w : weights) {
              w *= sinTheta;
              sum += w;
            }
            rowSums[ty] = sum;
            rows[ty] = Distribution1D(std::move(weights));
          }
        });
        // Rows are added in order, so the total does not depend on the threads.
        double sum = 0;
        for (double s : rowSums) sum += s;
        average = float(sum / (double(env.width) * env.height) * kPi / 2);
        env.distribution = Distribution2D(std::move(rows), tableWidth);
        if (average <= 0) continue;
      }
      environmentEntry_.push_back(entries_.size());
      entries_.push_back({Kind::Environment, uint32_t(environments_.size())});
      power.push_back(4 * kPi * kPi * r2 * luminance(radiance) * average);
      environments_.push_back(std::move(env));
      continue;
    }
    Punctual p;
    p.group = l.group;
    p.labelKey = labelKey;
    p.position = transformPoint(l.transform, Vec3(0, 0, 0));
    p.direction = travel;
    p.radiance = radiance;
    if (l.type == LightType::Point) {
      p.kind = Kind::Point;
      power.push_back(4 * kPi * luminance(radiance));
    } else if (l.type == LightType::Spot) {
      p.kind = Kind::Spot;
      float outer = std::min(std::max(l.outerCone, 0.0f), kPi / 2);
      float inner = std::min(std::max(l.innerCone, 0.0f), outer);
      p.cosOuter = std::cos(outer);
      p.cosInner = std::cos(inner);
      power.push_back(2 * kPi * (1 - 0.5f * (p.cosInner + p.cosOuter)) * luminance(radiance));
    } else if (l.type == LightType::Directional) {
      p.kind = Kind::Directional;
      power.push_back(4 * kPi * r2 * luminance(radiance));
    } else {
      continue;
    }
    entries_.push_back({p.kind, uint32_t(punctual_.size())});
    punctual_.push_back(p);
  }
  const auto& shapes = scene.shapes();
  for (uint32_t s = 0; s < shapes.size(); ++s) {
    const ShapeRecord& rec = shapes[s];
    if (!rec.attached || !rec.material || !rec.material->emissive) continue;
    const MaterialData& m = *rec.material->data;
    Vec3 emission = Vec3(m.emissive[0], m.emissive[1], m.emissive[2]) * (m.emissiveStrength * rec.emissionScale);
    float lum = luminance(emission);
    bool textured = rec.material->textures[kTexEmissive] != nullptr;
    firstPrimEntry_[s] = int64_t(primEntry_.size());
    std::vector<Triangle> tris(rec.triangleCount);
    for (uint32_t t = 0; t < rec.triangleCount; ++t) {
      Triangle& tri = tris[t];
      tri = {s, t, {}, {}, {}, {}, 0, emission, textured, m.doubleSided, rec.lightGroup};
      const uint32_t* idx = &rec.mesh->indices[3 * t];
      tri.p0 = rec.positions[idx[0]];
      tri.e1 = rec.positions[idx[1]] - tri.p0;
      tri.e2 = rec.positions[idx[2]] - tri.p0;
      Vec3 p;
      scene.trianglePoint(s, t, 1.0f / 3, 1.0f / 3, p, tri.normal, tri.area);
    }
    const size_t firstTriangle = triangles_.size(), firstPower = power.size();
    for (uint32_t t = 0; t < rec.triangleCount; ++t) {
      EmissiveRectangle rect;
      // Quads are written as consecutive triangle pairs; a texture varies over them, so only
      // constant emission pairs up.
      if (!textured && t + 1 < rec.triangleCount && pairAsRectangle(tris[t], tris[t + 1], rect)) {
        primEntry_.push_back(uint32_t(entries_.size()));
        primEntry_.push_back(uint32_t(entries_.size()));
        entries_.push_back({Kind::Rectangle, uint32_t(rectangles_.size())});
        rectangles_.push_back(rect);
        power.push_back(2 * kPi * rect.area * lum);
        ++t;
        continue;
      }
      primEntry_.push_back(uint32_t(entries_.size()));
      entries_.push_back({Kind::Triangle, uint32_t(triangles_.size())});
      triangles_.push_back(tris[t]);
      power.push_back(2 * kPi * tris[t].area * lum);
    }
    if (textured && lum > 0) {
      tbb::parallel_for(tbb::blocked_range<size_t>(0, rec.triangleCount), [&](const tbb::blocked_range<size_t>& range) {
        for (size_t i = range.begin(); i < range.end(); ++i)
          power[firstPower + i] *= std::max(kTexturedPowerFloor, texturedEmission(scene, triangles_[firstTriangle + i]) / lum);
      });
    }
  }
  selection_ = AliasTable(power);
  buildHierarchy(power);
  environmentGroup_ = environments_.empty() ? -1 : environments_[0].group;
  for (const Environment& env : environments_)
    if (env.group != environments_[0].group) environmentGroup_ = kGroupPerEnvironment;
}

Vec3 LightSet::environmentTexel(const Environment& env, size_t i) {
  const ImageData& img = *env.image;
  const float* p = &img.pixels[i * img.channels];
  Vec3 c = img.channels >= 3 ? Vec3(p[0], p[1], p[2]) : Vec3(p[0]);
  if (img.colorSpace == ColorSpace::SRGB) c = Vec3(srgbDecode(c.x), srgbDecode(c.y), srgbDecode(c.z));
  if (!isFinite(c)) return Vec3(0);
  return Vec3(std::max(0.0f, c.x), std::max(0.0f, c.y), std::max(0.0f, c.z));
}

// Linear images with three or four channels take a branch-free loop of fixed stride, which the
// compiler vectorises: this is most of the set-up time of a large sky.
template <uint32_t kChannels>
static void linearLuminance(const float* p, uint32_t count, float* out) {
  for (uint32_t i = 0; i < count; ++i) {
    const float r = p[kChannels * i], g = p[kChannels * i + 1], b = p[kChannels * i + 2];
    const float l = 0.2126f * std::max(0.0f, r) + 0.7152f * std::max(0.0f, g) + 0.0722f * std::max(0.0f, b);
    // A texel with a value that is not finite is black, as environmentTexel reads it.
    out[i] = std::isfinite(r) && std::isfinite(g) && std::isfinite(b) ? l : 0.0f;
  }
}

void LightSet::texelLuminance(const Environment& env, size_t first, uint32_t count, float* out) {
  const ImageData& img = *env.image;
  if (img.colorSpace == ColorSpace::Linear && img.channels == 3) return linearLuminance<3>(&img.pixels[first * 3], count, out);
  if (img.colorSpace == ColorSpace::Linear && img.channels == 4) return linearLuminance<4>(&img.pixels[first * 4], count, out);
  for (uint32_t i = 0; i < count; ++i) out[i] = luminance(environmentTexel(env, first + i));
}

Vec3 LightSet::environmentRadiance(const Environment& env, Vec3 dir) const {
  if (!env.image) return env.radiance;
  Vec3 l(dot(dir, env.rows[0]), dot(dir, env.rows[1]), dot(dir, env.rows[2]));
  float u, v;
  directionToLatLong(normalize(l), u, v);
  uint32_t x = std::min(env.width - 1, uint32_t(std::max(0.0f, u) * env.width));
  uint32_t y = std::min(env.height - 1, uint32_t(std::max(0.0f, v) * env.height));
  return env.radiance * environmentTexel(env, size_t(y) * env.width + x);
}

float LightSet::environmentDirectionPdf(const Environment& env, Vec3 dir, Vec3 upper) const {
  if (!env.image) return isZero(upper) ? 1 / (4 * kPi) : std::max(0.0f, dot(dir, upper)) * kInvPi;
  Vec3 l = normalize(Vec3(dot(dir, env.rows[0]), dot(dir, env.rows[1]), dot(dir, env.rows[2])));
  float u, v;
  directionToLatLong(l, u, v);
  float sinTheta = std::sqrt(std::max(0.0f, 1 - l.y * l.y));
  if (sinTheta <= 1e-6f) return 0;
  return env.distribution.density(u, v) / (2 * kPi * kPi * sinTheta);
}

Vec3 LightSet::environment(Vec3 dir) const {
  Vec3 sum(0);
  for (const auto& env : environments_) sum += environmentRadiance(env, dir);
  return sum;
}

float LightSet::environmentPdf(Vec3 dir, Vec3 upper) const {
  float pdf = 0;
  for (size_t i = 0; i < environments_.size(); ++i)
    pdf += choicePmf(environmentEntry_[i], Vec3(0), Vec3(0)) * environmentDirectionPdf(environments_[i], dir, upper);
  return pdf;
}

// Average luminance a textured emitter shows over its triangle, for choosing it: most of a
// mesh whose emissive texture lights a few panels is black, and sampling it by area alone wasted
// light samples there. Four points read the mip level as wide as the triangle; they can miss a
// lit corner, and the preview lights by light samples alone, so the caller keeps a floor.
float LightSet::texturedEmission(const Scene& scene, const Triangle& t) {
  constexpr float kPoints[4][2] = {{1.0f / 3, 1.0f / 3}, {1.0f / 6, 1.0f / 6}, {2.0f / 3, 1.0f / 6}, {1.0f / 6, 2.0f / 3}};
  float sum = 0;
  for (const auto& b : kPoints) {
    SurfaceHit hit;
    scene.fillSurface(t.shape, t.prim, b[0], b[1], hit);
    hit.footprint = std::sqrt(t.area);
    sum += luminance(surfaceEmission(scene, hit));
  }
  return std::isfinite(sum) ? std::max(0.0f, sum / 4) : 0.0f;
}

// The same choice for sampling and for the MIS density, so the two always agree.
float LightSet::sphericalSolidAngle(const Triangle& t, Vec3 ref) {
  if (!looksLarge(t.area, t.normal, t.p0 + (t.e1 + t.e2) * (1.0f / 3) - ref, kSphericalEstimate)) return 0;
  float solidAngle = solidAngleFromOrigin(t.p0 - ref, t.p0 + t.e1 - ref, t.p0 + t.e2 - ref);
  return solidAngle >= kMinSphericalSolidAngle && solidAngle <= kMaxSphericalSolidAngle ? solidAngle : 0;
}

float LightSet::trianglePdf(const Scene& scene, uint32_t shape, uint32_t prim, Vec3 ref, Vec3 lightPoint, Vec3 lightNormal,
                            Vec3 side) const {
  if (shape >= firstPrimEntry_.size() || firstPrimEntry_[shape] < 0 || prim >= scene.shapes()[shape].triangleCount) return 0;
  const uint32_t entry = primEntry_[size_t(firstPrimEntry_[shape]) + prim];
  float area = 0;
  if (entries_[entry].kind == Kind::Rectangle) {
    const EmissiveRectangle& r = rectangles_[entries_[entry].index];
    if (float solidAngle = sphericalView(r, ref).solidAngle(); solidAngle > 0) return choicePmf(entry, ref, side) / solidAngle;
    area = r.area;
  } else {
    const Triangle& t = triangles_[entries_[entry].index];
    if (float solidAngle = sphericalSolidAngle(t, ref); solidAngle > 0) return choicePmf(entry, ref, side) / solidAngle;
    area = t.area;
  }
  Vec3 d = lightPoint - ref;
  float dist2 = dot(d, d);
  float cosL = std::fabs(dot(lightNormal, normalize(d)));
  if (area <= 0 || cosL <= 0) return 0;
  return choicePmf(entry, ref, side) * dist2 / (area * cosL);
}

LightSet::Choice LightSet::choose(float uLight, Vec3 ref, Vec3 side) const {
  Choice c;
  const Entry* e = chooseEntry(ref, side, uLight, c.pmf);
  if (e && c.pmf > 0) c.entry = int32_t(e - entries_.data());
  return c;
}

const EmissiveRectangle* LightSet::rectangleOf(Choice choice) const {
  if (choice.entry < 0) return nullptr;
  const Entry& e = entries_[size_t(choice.entry)];
  return e.kind == Kind::Rectangle ? &rectangles_[e.index] : nullptr;
}

bool LightSet::sample(const Vec3& ref, float uLight, float u1, float u2, const Scene& scene, LightSample& out,
                      Vec3 upper, Vec3 side) const {
  return sample(choose(uLight, ref, side), ref, u1, u2, scene, out, upper);
}

bool LightSet::sample(Choice choice, const Vec3& ref, float u1, float u2, const Scene& scene, LightSample& out,
                      Vec3 upper) const {
  if (choice.entry < 0 || !(choice.pmf > 0)) return false;
  const Entry& e = entries_[size_t(choice.entry)];
  const float pmf = choice.pmf;
  out.delta = false;
  out.infinite = false;
  out.emitterType = kEventLight;
  switch (e.kind) {
    case Kind::Point:
    case Kind::Spot: {
      const Punctual& p = punctual_[e.index];
      Vec3 d = p.position - ref;
      float dist2 = dot(d, d);
      if (dist2 <= 0) return false;
      out.distance = std::sqrt(dist2);
      out.wi = d / out.distance;
      float falloff = 1;
      if (e.kind == Kind::Spot) {
        float c = dot(-out.wi, p.direction);
        if (c <= p.cosOuter) return false;
        if (c < p.cosInner) {
          float x = (c - p.cosOuter) / std::max(1e-6f, p.cosInner - p.cosOuter);
          falloff = x * x * (3 - 2 * x);
        }
      }
      out.radiance = p.radiance * (falloff / dist2);
      out.group = p.group;
      out.labelKey = p.labelKey;
      out.pdf = pmf;
      out.delta = true;
      return true;
    }
    case Kind::Directional: {
      const Punctual& p = punctual_[e.index];
      out.wi = -p.direction;
      out.distance = kInfiniteDistance;
      out.radiance = p.radiance;
      out.group = p.group;
      out.labelKey = p.labelKey;
      out.pdf = pmf;
      out.delta = true;
      out.infinite = true;
      return true;
    }
    case Kind::Environment: {
      const Environment& env = environments_[e.index];
      Vec3 world;
      if (!env.image && !isZero(upper)) {
        Vec3 local = squareToCosineHemisphere(u1, u2);
        if (!(local.z > 0)) return false;
        world = Frame(upper).toWorld(local);
      } else if (!env.image) {
        world = squareToUniformSphere(u1, u2);
      } else {
        float u, v, pdfUv;
        env.distribution.sample(u1, u2, u, v, pdfUv);
        Vec3 l = latLongToDirection(u, v);
        float sinTheta = std::sqrt(std::max(0.0f, 1 - l.y * l.y));
        if (sinTheta <= 1e-6f || pdfUv <= 0) return false;
        world = normalize(env.rows[0] * l.x + env.rows[1] * l.y + env.rows[2] * l.z);
      }
      out.wi = world;
      out.distance = kInfiniteDistance;
      out.infinite = true;
      // Other environments add along the same direction; MIS uses the summed density.
      out.radiance = environment(world);
      out.emitterType = kEventBackground;
      out.group = environmentGroup_;
      out.labelKey = environmentLabelKey();
      out.pdf = environmentPdf(world, upper);
      return out.pdf > 0;
    }
    case Kind::Triangle: {
      const Triangle& t = triangles_[e.index];
      if (t.area <= 0) return false;
      // Uniform in solid angle where the triangle looks large, so points near an emitter are not
      // lit by samples bunched on its near edge; by area where it looks small.
      const Vec3 v0 = t.p0 - ref, v1 = v0 + t.e1, v2 = v0 + t.e2;
      const float solidAngle = sphericalSolidAngle(t, ref);
      const bool spherical = solidAngle > 0;
      float b1, b2;
      if (!spherical) squareToTriangle(u1, u2, b1, b2);
      else if (!sampleSphericalTriangle(v0, v1, v2, solidAngle, u1, u2, b1, b2)) return false;
      Vec3 p = t.p0 + t.e1 * b1 + t.e2 * b2;
      float dist2 = 0, cosL = 0;
      if (!towardsEmitterPoint(ref, p, t.normal, t.doubleSided, out, dist2, cosL)) return false;
      if (t.textured) {
        SurfaceHit hit;
        scene.fillSurface(t.shape, t.prim, b1, b2, hit);
        hit.footprint = 0;
        out.radiance = surfaceEmission(scene, hit);
      } else {
        out.radiance = t.emission;
      }
      out.emitterType = kEventObject;
      out.group = t.group;
      out.labelKey = t.shape;
      out.pdf = spherical ? pmf / solidAngle : pmf * dist2 / (t.area * cosL);
      return true;
    }
    case Kind::Rectangle:
      return sampleRectangle(rectangles_[e.index], pmf, ref, u1, u2, out);
  }
  return false;
}

LightBounds LightSet::boundsOf(const Entry& e, float power) const {
  LightBounds b;
  b.power = std::isfinite(power) && power > 0 ? power : 0;
  auto enclose = [&](std::initializer_list<Vec3> points) {
    b.lower = Vec3(1e30f);
    b.upper = Vec3(-1e30f);
    for (Vec3 q : points)
      for (int k = 0; k < 3; ++k) {
        b.lower[k] = std::min(b.lower[k], q[k]);
        b.upper[k] = std::max(b.upper[k], q[k]);
      }
  };
  if (e.kind == Kind::Triangle) {
    const Triangle& t = triangles_[e.index];
    enclose({t.p0, t.p0 + t.e1, t.p0 + t.e2});
    b.axis = t.normal;
    b.spread = 0;
    b.twoSided = t.doubleSided;
  } else if (e.kind == Kind::Rectangle) {
    const EmissiveRectangle& r = rectangles_[e.index];
    const Vec3 x = r.x * r.width, y = r.y * r.height;
    enclose({r.corner, r.corner + x, r.corner + y, r.corner + x + y});
    b.axis = r.normal;
    b.spread = 0;
    b.twoSided = r.doubleSided;
  } else {
    const Punctual& light = punctual_[e.index];
    enclose({light.position});
    if (e.kind == Kind::Spot && b.power > 0) {
      // Scored as a point lamp of its intensity inside its cone, and zero outside; the cone is
      // widened by a hair, so that rounding never cuts off light at its edge.
      b.power = 4 * kPi * luminance(light.radiance);
      b.axis = light.direction;
      b.spread = std::acos(std::clamp(light.cosInner, -1.0f, 1.0f));
      b.cosEmission = std::cos(std::min(kPi, std::acos(light.cosOuter) - std::acos(light.cosInner) + 1e-3f));
    }
  }
  // An emitter whose bounds are not finite would make those of every group holding it useless.
  bool finite = std::isfinite(b.power);
  for (int k = 0; k < 3; ++k) finite = finite && std::isfinite(b.lower[k]) && std::isfinite(b.upper[k]);
  if (!finite) b.power = 0;
  return b;
}

bool LightSet::inHierarchy(const Entry& e) const {
  return e.kind == Kind::Point || e.kind == Kind::Spot || e.kind == Kind::Rectangle ||
         (e.kind == Kind::Triangle && !triangles_[e.index].textured);
}

void LightSet::buildHierarchy(const std::vector<float>& power) {
  hierarchy_.build({});
  localShare_ = 1;
  choiceSlot_.assign(entries_.size(), 0);
  leafEntry_.clear();
  powerEntry_.clear();
  std::vector<LightBounds> local;
  std::vector<float> otherPower;
  double localPower = 0, total = 0;
  inTree_.assign(entries_.size(), false);
  for (size_t i = 0; i < entries_.size(); ++i) {
    const float w = std::isfinite(power[i]) && power[i] > 0 ? power[i] : 0;
    // Emitters that cannot shine, or whose bounds are not finite, stay out of the tree, whose
    // groups they would spoil; the power table never chooses them either.
    const LightBounds bounds = inHierarchy(entries_[i]) ? boundsOf(entries_[i], w) : LightBounds();
    if (!(bounds.power > 0)) {
      choiceSlot_[i] = uint32_t(powerEntry_.size());
      powerEntry_.push_back(uint32_t(i));
      otherPower.push_back(inHierarchy(entries_[i]) ? 0.0f : w);
      total += otherPower.back();
    } else {
      inTree_[i] = true;
      choiceSlot_[i] = uint32_t(leafEntry_.size());
      leafEntry_.push_back(uint32_t(i));
      local.push_back(bounds);
      localPower += w;
      total += w;
    }
  }
  if (local.size() < kHierarchyMinEmitters || !(localPower > 0)) return;
  hierarchy_.build(local);
  powerSelection_ = AliasTable(otherPower);
  // Each set that has power keeps a share a float can tell from 0 and 1, or its lights, a sky or
  // the sun included, would never be chosen.
  localShare_ = std::clamp(float(localPower / total), 0x1p-24f, localPower < total ? 1 - 0x1p-24f : 1.0f);
}

const LightSet::Entry* LightSet::chooseEntry(Vec3 ref, Vec3 side, float uLight, float& pmf) const {
  pmf = 0;
  if (hierarchy_.empty()) {
    if (empty() || selection_.total() <= 0) return nullptr;
    return &entries_[selection_.sample(uLight, &pmf)];
  }
  if (uLight < localShare_) {
    uint32_t leaf = 0;
    float treePmf = 0;
    if (!hierarchy_.sample(ref, side, std::min(uLight / localShare_, 0x1.fffffep-1f), leaf, treePmf)) return nullptr;
    pmf = localShare_ * treePmf;
    return &entries_[leafEntry_[leaf]];
  }
  if (powerSelection_.total() <= 0) return nullptr;
  const size_t i = powerSelection_.sample(std::min((uLight - localShare_) / (1 - localShare_), 0x1.fffffep-1f), &pmf);
  pmf *= 1 - localShare_;
  return &entries_[powerEntry_[i]];
}

// Outside the hierarchy the choice does not depend on the point.
float LightSet::choicePmf(size_t entry, Vec3 ref, Vec3 side) const {
  if (hierarchy_.empty()) return selection_.pmf(entry);
  if (!inTree_[entry]) return (1 - localShare_) * powerSelection_.pmf(choiceSlot_[entry]);
  return localShare_ * hierarchy_.pmf(ref, side, choiceSlot_[entry]);
}

}  // namespace zvr::kernel
