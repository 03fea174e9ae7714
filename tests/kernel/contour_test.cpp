// Contour lines: which neighbour differences make lines, where they go, how wide they are, and
// the Quillon integrator that draws them over the path-traced colour.
#include <cmath>
#include <functional>
#include <tuple>

#include "kernel/aov.h"
#include "kernel/contour_lines.h"
#include "plugins/quillon/quillon_plugin.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

// A 12 x 8 buffer whose right half differs from the left as `change` says; both halves at the
// same depth, so the left pixel of each pair (column 5) carries the line.
std::vector<ContourSample> splitBuffer(const std::function<void(ContourSample&)>& change) {
  ContourSample left;
  left.hit = true;
  left.objectId = left.materialId = 1;
  left.normal = Vec3(0, 0, 1);
  left.depth = 1;
  ContourSample right = left;
  change(right);
  std::vector<ContourSample> s(12 * 8);
  for (size_t i = 0; i < s.size(); ++i) s[i] = i % 12 < 6 ? left : right;
  return s;
}

TEST(ContourLines, EachFeatureDrawsItsLineOnlyWhenItsSwitchIsOn) {
  const float a60 = 60 * kPi / 180, a30 = 30 * kPi / 180;
  // Label, how the right half differs, the feature whose line it draws (-1: below the threshold, no line).
  const std::tuple<const char*, std::function<void(ContourSample&)>, int> cases[] = {
      {"object id", [](ContourSample& s) { s.objectId = 2; }, kContourObject},
      {"background", [](ContourSample& s) { s = ContourSample{}; }, kContourObject},
      {"material id", [](ContourSample& s) { s.materialId = 5; }, kContourMaterial},
      {"normal 60 degrees", [&](ContourSample& s) { s.normal = Vec3(std::sin(a60), 0, std::cos(a60)); }, kContourNormal},
      {"normal 30 degrees", [&](ContourSample& s) { s.normal = Vec3(std::sin(a30), 0, std::cos(a30)); }, -1},
      {"uv jump 2", [](ContourSample& s) { s.uv[0] = 2; }, kContourUv},
      {"uv jump 0.5", [](ContourSample& s) { s.uv[1] = 0.5f; }, -1},
  };
  for (const auto& [name, change, feature] : cases) {
    SCOPED_TRACE(name);
    const std::vector<ContourSample> buffer = splitBuffer(change);
    ContourStyle style;
    style.antialiased = false;
    std::vector<ContourCoverage> lines = drawContours(buffer, 12, 8, style);
    for (size_t i = 0; i < lines.size(); ++i) {
      const bool onLine = feature >= 0 && i % 12 == 5;
      ASSERT_EQ(lines[i].amount, onLine ? 1.0f : 0.0f) << "pixel " << i;
      if (onLine) {
        ASSERT_EQ(lines[i].feature, feature);
      }
    }
    if (feature < 0) continue;
    style.enabled[feature] = false;
    lines = drawContours(buffer, 12, 8, style);
    for (const ContourCoverage& l : lines) ASSERT_EQ(l.amount, 0.0f);
  }
  for (int f = 0; f < kContourFeatures; ++f)
    for (int g = f + 1; g < kContourFeatures; ++g)
      EXPECT_GT(length(contourDebugColor(f) - contourDebugColor(g)), 0.5f) << f << " and " << g;
}

// A rectangle [x0, x1] x [-0.5, 0.5] in the xz-plane facing +y.
std::shared_ptr<MeshData> rectangle(float x0, float x1) {
  auto m = makeQuad(0.5f);
  for (size_t v = 0; v < 4; ++v) m->positions[3 * v] = m->positions[3 * v] < 0 ? x0 : x1;
  return m;
}

// Two rectangles of one object, red on the left and blue on the right, touching at x = 0, seen
// from above by an orthographic camera: in the 64 x 32 picture they fill columns 8 to 55 and
// rows 8 to 23, the left one up to column 31.
SceneSnapshot twoRectangles() {
  auto red = diffuseMaterial(0.8f, 0.2f, 0.2f), blue = diffuseMaterial(0.2f, 0.2f, 0.8f);
  red->materialId = 1;
  blue->materialId = 2;
  SceneSnapshot scene = sceneOf({shape(1, rectangle(-1.5f, 0), red), shape(2, rectangle(0, 1.5f), blue)},
                                {environmentLight(1)}, orthoDown(5, 2));
  for (auto& s : scene.shapes) s.objectId = 7;
  return scene;
}

constexpr uint32_t kW = 64, kH = 32;

std::vector<float> renderColor(const char* integrator, const RenderParams& params) {
  quillon::QuillonPlugin plugin;
  std::string error;
  EXPECT_TRUE(plugin.setIntegrator(true, integrator, &error)) << error;
  RenderOutput out = renderWith(plugin, twoRectangles(), params, kW, kH, 2, {kAovColor});
  EXPECT_EQ(out.status, 0) << out.error;
  return out.image();
}

TEST(QuillonContour, LinesFollowSilhouettesAndTheMaterialBoundaryOverThePathTracedColour) {
  // Label and the switches: object id, material id, normal, uv, debug colours.
  const std::tuple<const char*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t> cases[] = {
      {"all features", 1, 1, 1, 1, 0}, {"object id only", 1, 0, 0, 0, 0}, {"material id only", 0, 1, 0, 0, 0},
      {"no feature", 0, 0, 0, 0, 0},   {"debug colours", 1, 1, 1, 1, 1},
  };
  RenderParams params;
  params.contourAntialiasing = -1;  // whole pixels at their centres: every line pixel is exactly covered
  const std::vector<float> plain = renderColor("pathtracer", params);
  for (const auto& [name, objectId, materialId, normal, uv, debug] : cases) {
    SCOPED_TRACE(name);
    params.contourObjectId = objectId;
    params.contourMaterialId = materialId;
    params.contourNormal = normal;
    params.contourUv = uv;
    params.contourDebug = debug;
    const std::vector<float> lined = renderColor("gpucontour", params);
    for (uint32_t y = 0; y < kH; ++y)
      for (uint32_t x = 0; x < kW; ++x) {
        const bool inside = x >= 8 && x < 56 && y >= 8 && y < 24;
        const bool outline = inside && (x == 8 || x == 55 || y == 8 || y == 23);
        int feature = -1;
        if (outline && objectId) feature = kContourObject;
        else if (inside && x == 31 && materialId) feature = kContourMaterial;
        const size_t i = (size_t(y) * kW + x) * 4;
        const Vec3 want = feature < 0 ? Vec3(plain[i], plain[i + 1], plain[i + 2])
                                      : (debug ? contourDebugColor(feature) : Vec3(0));
        for (int k = 0; k < 3; ++k) ASSERT_EQ(lined[i + k], want[k]) << "pixel " << x << ", " << y << " channel " << k;
      }
  }
}

TEST(QuillonContour, LineWidthIsInPixels) {
  // Across the material boundary (row 16) the line covers its width, in whole pixels without
  // antialiasing (widths round to odd counts there).
  // Antialiasing, line width, pixels covered.
  const std::tuple<float, float, float> cases[] = {{1, 1, 1}, {1, 2, 2}, {1, 3, 3}, {-1, 1, 1}, {-1, 3, 3}};
  RenderParams params;
  params.contourObjectId = 0;
  const std::vector<float> plain = renderColor("pathtracer", params);
  for (const auto& [antialiasing, width, expected] : cases) {
    SCOPED_TRACE(::testing::Message() << "antialiasing " << antialiasing << ", width " << width);
    params.contourAntialiasing = antialiasing;
    params.contourLineWidthMaterialId = width;
    const std::vector<float> lined = renderColor("gpucontour", params);
    double covered = 0;
    for (uint32_t x = 0; x < kW; ++x) {
      const size_t i = (size_t(16) * kW + x) * 4;
      covered += 1 - lined[i] / plain[i];
    }
    EXPECT_NEAR(covered, expected, 0.02);
  }
}

}  // namespace
}  // namespace zvr::test
