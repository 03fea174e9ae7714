#include "tests/kernel/test_support.h"

#include <cmath>

#include "kernel/vector_math.h"
#include "plugins/velder/velder_plugin.h"

namespace zvr::test {

void TestTarget::accumulate(const float* rgba, bool average) {
  std::lock_guard<std::mutex> lock(mutex_);
  const float n = float(++iterations_);
  for (size_t i = 0; i < data_.size(); ++i) data_[i] += average ? (rgba[i] - data_[i]) / n : rgba[i];
  ++(average ? averages : adds);
}

std::vector<float> TestTarget::normalized() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<float> out(data_);
  if (averages > 0) return out;
  for (size_t i = 0; i < out.size(); i += 4) {
    float w = out[i + 3];
    for (int k = 0; k < 3; ++k) out[i + k] = w != 0 ? out[i + k] / w : 0;
    out[i + 3] = 1;
  }
  return out;
}

std::shared_ptr<MeshData> makeSphere(float radius, int segments, int rings) {
  auto m = std::make_shared<MeshData>();
  const float pi = 3.14159265358979f;
  for (int r = 0; r <= rings; ++r) {
    float theta = pi * r / rings;
    for (int s = 0; s <= segments; ++s) {
      float phi = 2 * pi * s / segments;
      float nx = std::sin(theta) * std::cos(phi), ny = std::cos(theta), nz = -std::sin(theta) * std::sin(phi);
      m->positions.insert(m->positions.end(), {radius * nx, radius * ny, radius * nz});
      m->normals.insert(m->normals.end(), {nx, ny, nz});
      m->texcoords0.insert(m->texcoords0.end(), {float(s) / segments, float(r) / rings});
    }
  }
  for (int r = 0; r < rings; ++r)
    for (int s = 0; s < segments; ++s) {
      uint32_t a = r * (segments + 1) + s, b = a + segments + 1;
      // Counter-clockwise seen from outside.
      m->indices.insert(m->indices.end(), {a, b, a + 1, a + 1, b, b + 1});
    }
  return m;
}

std::shared_ptr<MeshData> makeQuad(float h, float y) {
  auto m = std::make_shared<MeshData>();
  m->positions = {-h, y, h, h, y, h, h, y, -h, -h, y, -h};
  m->normals = {0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0};
  m->texcoords0 = {0, 1, 1, 1, 1, 0, 0, 0};
  m->indices = {0, 1, 2, 0, 2, 3};
  return m;
}

Matrix4 lookAt(float ex, float ey, float ez, float tx, float ty, float tz) {
  using kernel::Vec3;
  const Vec3 back = kernel::normalize(Vec3(ex - tx, ey - ty, ez - tz));
  const Vec3 up = std::fabs(back.y) > 0.999f ? Vec3(0, 0, -1) : Vec3(0, 1, 0);
  const Vec3 right = kernel::normalize(kernel::cross(up, back));
  const Vec3 rows[4] = {right, kernel::cross(back, right), back, Vec3(ex, ey, ez)};
  Matrix4 m;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 3; ++j) m.m[4 * i + j] = rows[i][j];
  return m;
}

SceneSnapshot mixedScene(bool diffuseOnly) {
  auto plastic = diffuseOnly ? diffuseMaterial(0.8f, 0.5f, 0.3f) : material(0, 0.3f);
  auto glass = diffuseOnly ? diffuseMaterial(0.3f, 0.6f, 0.8f) : material(0, 0, 1);
  plastic->materialId = 11;
  SceneSnapshot scene = sceneOf({shape(1, makeSphere(0.5f, 24, 12), plastic, translation(-0.6f, 0.5f, 0)),
                                 shape(2, makeSphere(0.4f, 24, 12), glass, translation(0.6f, 0.4f, 0)),
                                 shape(3, makeQuad(3), diffuseMaterial(0.6f, 0.6f, 0.6f)),
                                 shape(4, makeSphere(0.2f, 12, 6), emitter(3), translation(0.2f, 1.4f, 0.6f))},
                                {environmentLight(0.4f), pointLight(1, 3, 2, 4)},
                                cameraAt(0, 1.2f, 3.5f, 0, 0.4f, 0, 0.9f));
  for (uint32_t i = 0; i < 3; ++i) scene.shapes[i].objectId = 7 + i;
  scene.shapes[0].meshId = 70;
  scene.shapes[0].groupId = 700;
  scene.shapes[2].name = "floor";
  scene.shapes[3].lightGroup = 5;
  scene.lights[0].group = 0;
  scene.lights[1].group = 12;
  scene.lights[1].name = "key";
  return scene;
}

RenderOutput renderWith(RenderPlugin& plugin, const SceneSnapshot& scene, const RenderParams& params, uint32_t width,
                        uint32_t height, uint32_t iterations, const std::vector<uint32_t>& aovs, uint64_t firstSample,
                        const std::vector<std::string>& expressions) {
  RenderOutput out;
  RenderRequest request;
  request.scene = &scene;
  request.params = &params;
  request.iterations = iterations;
  request.firstSampleIndex = firstSample;
  request.width = width;
  request.height = height;
  request.host = &out.host;
  for (uint32_t aov : aovs) {
    out.targets.push_back(std::make_unique<TestTarget>(width, height));
    if (out.targets.size() <= expressions.size()) out.targets.back()->expression = expressions[out.targets.size() - 1];
    request.targets.push_back({aov, out.targets.back().get()});
  }
  out.status = plugin.render(request, &out.error);
  return out;
}

std::vector<std::vector<float>> render(const SceneSnapshot& scene, const RenderParams& params, uint32_t width,
                                       uint32_t height, uint32_t iterations, const std::vector<uint32_t>& aovs,
                                       RenderPlugin* plugin) {
  velder::VelderPlugin velder;
  RenderOutput out = renderWith(plugin ? *plugin : velder, scene, params, width, height, iterations, aovs);
  EXPECT_EQ(out.status, 0) << out.error;
  std::vector<std::vector<float>> images;
  for (size_t i = 0; i < aovs.size(); ++i) images.push_back(out.image(i));
  return images;
}

void expectSum(const RenderOutput& out, const std::vector<size_t>& parts, size_t whole, const char* what) {
  auto expected = out.image(whole);
  std::vector<std::vector<float>> images;
  for (size_t p : parts) images.push_back(out.image(p));
  std::vector<double> totals(parts.size(), 0.0);
  for (size_t i = 0; i < expected.size(); i += 4)
    for (int k = 0; k < 3; ++k) {
      float sum = 0;
      for (size_t p = 0; p < parts.size(); ++p) {
        sum += images[p][i + k];
        totals[p] += images[p][i + k];
      }
      ASSERT_NEAR(sum, expected[i + k], 1e-4f * std::max(1.0f, expected[i + k])) << what << ", pixel " << i / 4;
    }
  // A part that stays black would make the sum prove nothing.
  for (size_t p = 0; p < parts.size(); ++p) EXPECT_GT(totals[p], 0.0) << what << ": part " << p << " stayed black";
}

}  // namespace zvr::test
