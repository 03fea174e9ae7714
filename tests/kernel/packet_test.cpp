// Packet queries and lockstep batches: a packet answers each lane as the single query does, rays
// aimed at the edges and corners of a closed mesh never slip through it, and a lane's sample does
// not depend on the lanes beside it, and bounces shaded on the vector unit equal the scalar ones.
#include <cstring>
#include <random>
#include <tuple>

#include "kernel/camera.h"
#include "kernel/lights.h"
#include "kernel/path_integrator.h"
#include "kernel/ray_packet.h"
#include "kernel/scene.h"
#include "tests/kernel/test_support.h"

namespace zvr::test {
namespace {

using namespace kernel;

// A unit cube around the origin whose twelve triangles share their eight corners.
std::shared_ptr<MeshData> makeCube() {
  auto m = std::make_shared<MeshData>();
  for (int i = 0; i < 8; ++i) {
    m->positions.push_back(i & 1 ? 1.0f : -1.0f);
    m->positions.push_back(i & 2 ? 1.0f : -1.0f);
    m->positions.push_back(i & 4 ? 1.0f : -1.0f);
  }
  m->indices = {0, 2, 1, 1, 2, 3, 4, 5, 6, 5, 7, 6, 0, 1, 4, 1, 5, 4,
                2, 6, 3, 3, 6, 7, 0, 4, 2, 2, 4, 6, 1, 3, 5, 3, 7, 5};
  return m;
}

// The answers of one packet of up to sixteen rays. Idle lanes (past the rays given, or off in
// `active`) must keep what they start with: found and blocked, at distance -7.
struct Packet {
  SurfaceHit hits[kPacketSize];
  bool found[kPacketSize], blocked[kPacketSize];
};
Packet tracePacket(const Scene& scene, const Ray* rays, size_t count, const bool* active = nullptr,
                   bool coherent = false) {
  Ray lanes[kPacketSize];
  bool on[kPacketSize];
  Packet p;
  for (size_t k = 0; k < kPacketSize; ++k) {
    if (k < count) lanes[k] = rays[k];
    on[k] = k < count && (!active || active[k]);
    p.found[k] = p.blocked[k] = true;
    p.hits[k].t = -7;
  }
  scene.intersect16(lanes, on, p.hits, p.found, coherent);
  scene.occluded16(lanes, on, p.blocked);
  return p;
}

TEST_F(KernelTest, EachLaneMatchesTheSingleQueryAndIdleLanesAreLeftAlone) {
  ASSERT_TRUE(build(sceneOf({shape(1, makeSphere(1, 24, 12), nullptr), shape(2, makeQuad(3, -1.5f), nullptr)})));
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> u(-1, 1);
  for (int round = 0; round < 20; ++round) {
    Ray rays[kPacketSize];
    bool active[kPacketSize];
    for (int k = 0; k < kPacketSize; ++k) {
      rays[k].origin = Vec3(u(rng), u(rng), u(rng)) * 3.0f;
      rays[k].direction = normalize(Vec3(u(rng), u(rng), u(rng)));
      rays[k].tMax = round % 2 ? 1.0f : 1e30f;  // short rays miss more often
      active[k] = (k + round) % 5 != 0;
    }
    const Packet p = tracePacket(*scene_, rays, kPacketSize, active, round == 0);
    for (int k = 0; k < kPacketSize; ++k) {
      SCOPED_TRACE("round " + std::to_string(round) + " lane " + std::to_string(k));
      if (!active[k]) {
        EXPECT_TRUE(p.found[k] && p.blocked[k]) << "an idle lane's answers were overwritten";
        EXPECT_EQ(p.hits[k].t, -7);
        continue;
      }
      SurfaceHit single;
      bool hit = scene_->intersect(rays[k], single);
      ASSERT_EQ(p.found[k], hit);
      EXPECT_EQ(p.blocked[k], scene_->occluded(rays[k]));
      if (!hit) continue;
      EXPECT_NEAR(p.hits[k].t, single.t, 1e-5f);
      EXPECT_EQ(p.hits[k].shape, single.shape);
      EXPECT_EQ(p.hits[k].prim, single.prim);
      EXPECT_NEAR(p.hits[k].ns.y, single.ns.y, 1e-5f);
      EXPECT_NEAR(p.hits[k].p.x, single.p.x, 1e-5f);
    }
  }
}

// Embree stops the process on a ray it cannot trace; such a lane must miss and count as blocked
// instead, and leave its neighbours' answers alone.
TEST_F(KernelTest, UntraceableRaysMissWithoutDisturbingTheirNeighbours) {
  ASSERT_TRUE(build(sceneOf({shape(1, makeCube(), nullptr)})));
  auto ray = [](Vec3 origin, Vec3 direction, float tMin = 0, float tMax = 1e30f) {
    return Ray{origin, direction, tMin, tMax};
  };
  // Label, ray, whether it can be traced.
  const std::tuple<const char*, Ray, bool> lanes[] = {
      {"inside", ray(Vec3(0), Vec3(1, 0, 0)), true},
      {"nan_direction", ray(Vec3(0), Vec3(NAN, 0, 1)), false},
      {"inf_origin", ray(Vec3(INFINITY, 0, 0), Vec3(-1, 0, 0)), false},
      {"origin_past_range", ray(Vec3(0, 0, 3e20f), Vec3(0, 0, -1)), false},
      {"empty_interval", ray(Vec3(0), Vec3(0, 1, 0), 5, 2), false},
      {"nan_interval", ray(Vec3(0), Vec3(0, 1, 0), NAN), false},
      {"outside", ray(Vec3(0, 0, 5), Vec3(0, 0, -1)), true},
  };
  const int n = int(std::size(lanes));
  Ray rays[n];
  for (int k = 0; k < n; ++k) rays[k] = std::get<Ray>(lanes[k]);
  const Packet p = tracePacket(*scene_, rays, n);
  for (int k = 0; k < n; ++k) {
    const auto& [name, laneRay, traceable] = lanes[k];
    SCOPED_TRACE(name);
    EXPECT_EQ(isTraceable(laneRay), traceable);
    EXPECT_EQ(p.found[k], traceable) << "a traceable lane here hits the cube";
    EXPECT_TRUE(p.blocked[k]) << "the cube blocks every traceable lane; the rest count as blocked";
    SurfaceHit single;
    EXPECT_EQ(scene_->intersect(laneRay, single), traceable);
    EXPECT_TRUE(scene_->occluded(laneRay));
  }
  EXPECT_NEAR(p.hits[0].t, 1, 1e-5f);
  EXPECT_NEAR(p.hits[n - 1].t, 4, 1e-5f);
}

// The vector packing transposes sixteen rays in registers: every field of every lane must land
// where the scalar packing puts it, including lanes left out for being idle or untraceable.
TEST(RayPacketTest, VectorPackingMatchesScalarBitForBit) {
  if (bestVectorIsa() != VectorIsa::Avx512) GTEST_SKIP() << "no AVX-512 on this processor";
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> coordinate(-50, 50);
  const Ray untraceable[] = {{Vec3(NAN, 0, 0), Vec3(0, 0, 1)}, {Vec3(0), Vec3(0, INFINITY, 0)},
                             {Vec3(0, 0, 3e20f), Vec3(0, 0, -1)}, {Vec3(0), Vec3(1, 0, 0), -1, 2},
                             {Vec3(0), Vec3(1, 0, 0), 5, 2}};
  for (int round = 0; round < 64; ++round) {
    SCOPED_TRACE(round);
    Ray rays[kPacketSize];
    bool active[kPacketSize];
    for (int k = 0; k < kPacketSize; ++k) {
      rays[k] = {Vec3(coordinate(rng), coordinate(rng), coordinate(rng)),
                 Vec3(coordinate(rng), coordinate(rng), coordinate(rng)), coordinate(rng) + 50, 1e30f};
      active[k] = round == 0 || rng() % 4 != 0;  // round 0: all lanes; round 1: none
      if (round == 1) active[k] = false;
      if (rng() % 5 == 0) rays[k] = untraceable[rng() % std::size(untraceable)];
    }
    alignas(64) RTCRay16 scalar, wide;
    alignas(64) int scalarValid[kPacketSize], wideValid[kPacketSize];
    std::memset(&wide, 0x5a, sizeof wide);  // the vector packing must write every field it owns
    std::memset(wideValid, 0x5a, sizeof wideValid);
    EXPECT_EQ(packRays(rays, active, wideValid, wide, VectorIsa::Avx512),
              packRays(rays, active, scalarValid, scalar, VectorIsa::Baseline));
    EXPECT_EQ(std::memcmp(wideValid, scalarValid, sizeof scalarValid), 0);
    const size_t fields = offsetof(RTCRay16, id);  // origin, tnear, direction, time, tfar, mask
    EXPECT_EQ(std::memcmp(&wide, &scalar, fields), 0);
    EXPECT_EQ(std::memcmp(wide.flags, scalar.flags, sizeof scalar.flags), 0);
  }
}

// From inside a closed mesh every ray must hit it, including those aimed exactly at a corner or
// along an edge where two triangles meet: a leak there lets light through walls.
TEST_F(KernelTest, RaysAtEdgesAndCornersOfAClosedMeshDoNotLeak) {
  const SceneSnapshot snap =
      sceneOf({shape(1, makeCube(), nullptr), shape(2, makeSphere(1, 7, 5), nullptr, translation(5, 0, 0))});
  ASSERT_TRUE(build(snap));
  const Vec3 centers[] = {Vec3(0), Vec3(5, 0, 0)};
  std::vector<Ray> rays;
  for (int m = 0; m < 2; ++m) {
    const std::vector<float>& p = snap.shapes[m].mesh->positions;
    const std::vector<uint32_t>& indices = snap.shapes[m].mesh->indices;
    auto vertex = [&](uint32_t i) { return Vec3(p[3 * i], p[3 * i + 1], p[3 * i + 2]) + centers[m]; };
    for (size_t tri = 0; tri < indices.size(); tri += 3)
      for (int e = 0; e < 3; ++e) {
        Vec3 a = vertex(indices[tri + e]), b = vertex(indices[tri + (e + 1) % 3]);
        for (Vec3 aim : {a, (a + b) * 0.5f, a * 0.25f + b * 0.75f})
          for (Vec3 o : {Vec3(0), Vec3(0.1f, -0.2f, 0.05f), Vec3(-0.31f, 0.17f, 0.4f)})
            rays.push_back(Ray{o + centers[m], normalize(aim - o - centers[m]), 0, 1e30f});
      }
  }
  ASSERT_GT(rays.size(), 1000u);
  size_t leaksSingle = 0, leaksPacket = 0, unblocked = 0;
  for (size_t first = 0; first < rays.size(); first += kPacketSize) {
    const size_t count = std::min<size_t>(kPacketSize, rays.size() - first);
    const Packet p = tracePacket(*scene_, &rays[first], count);
    for (size_t k = 0; k < count; ++k) {
      SurfaceHit hit;
      leaksSingle += !scene_->intersect(rays[first + k], hit);
      leaksPacket += !p.found[k];
      unblocked += !p.blocked[k];
    }
  }
  EXPECT_EQ(leaksSingle, 0u);
  EXPECT_EQ(leaksPacket, 0u);
  EXPECT_EQ(unblocked, 0u);
}

// A lane's sample is the same traced alone or among fifteen others at different pixels, down to
// the last bit, so the grouping of pixels can never show in a picture.
TEST_F(KernelTest, BatchLanesDoNotDependOnTheirNeighbours) {
  const SceneSnapshot snap = sceneOf({shape(1, makeQuad(2), diffuseMaterial(0.7f, 0.7f, 0.7f)),
                                      shape(2, makeSphere(0.5f, 16, 8), material(1, 0.3f), translation(0, 0.5f, 0))},
                                     {environmentLight(0.5f), pointLight(0.5f, 2, 0.5f, 3)},
                                     cameraAt(0, 1.5f, 3, 0, 0.3f, 0, 0.9f));
  ASSERT_TRUE(build(snap));
  Camera camera(snap.camera, 32, 32);
  RenderParams params;
  IntegratorSettings settings;
  settings.wantAo = true;
  PathIntegrator integrator(*scene_, lights_, camera, params, settings);

  FilmPoint film[kPacketSize];
  std::vector<Sampler> samplers;
  for (int k = 0; k < kPacketSize; ++k) {
    film[k] = {float(k * 2) + 0.3f, float(k) + 14.7f};  // a diagonal across the floor and the sphere
    samplers.emplace_back(hashCombine(11, uint32_t(k)), 5);
  }
  std::vector<Sampler> copies = samplers;
  SampleResult together[kPacketSize];
  integrator.traceBatch(film, samplers.data(), together, kPacketSize);
  uint32_t rays = 0;
  for (int k = 0; k < kPacketSize; ++k) {
    SampleResult alone;
    integrator.traceBatch(&film[k], &copies[k], &alone, 1);
    SCOPED_TRACE("lane " + std::to_string(k));
    for (int c = 0; c < 3; ++c) EXPECT_EQ(alone.color[c], together[k].color[c]);
    EXPECT_EQ(alone.ao, together[k].ao);
    EXPECT_EQ(alone.rays, together[k].rays);
    EXPECT_EQ(alone.depth, together[k].depth);
    EXPECT_EQ(samplers[k].get1D(), copies[k].get1D()) << "the lane used another number of sample dimensions";
    rays += together[k].rays;
  }
  EXPECT_GT(rays, 3u * kPacketSize) << "camera, shadow and AO rays at least";
}

// Every light kind a bounce can sample, between a floor and a ceiling that keep paths going to the
// roulette (a glossy ceiling over a Lambert floor): a rectangle seen from near (left to the scalar
// code) and from afar (by area on the vector unit), an emissive sphere, a point light and the sky.
// Lambert and glossy surfaces (a coloured metal, a plastic, a tinted half metal of another index)
// take the vector stages; the mirror and a plastic with a negative specular colour keep scalar
// lanes in the same rounds. The coarse spheres have shading normals far from their faces: frames
// turn to wo's side, and some bounces end before their roulette. The floor's occlusion texture has
// levels, so a wrong cone after a bounce shows. Every instruction set must give the scalar path's
// samples to the bit, and leave each sampler where the scalar path leaves it.
TEST_F(KernelTest, VectorBouncesEqualTheScalarPath) {
  auto floor = diffuseMaterial(0.7f, 0.6f, 0.5f);
  std::vector<float> occlusion(64);
  for (size_t i = 0; i < occlusion.size(); ++i) occlusion[i] = 0.3f + 0.6f * float((i * 37) % 64) / 64;
  floor->occlusionTexture.image = image(8, 8, 1, occlusion, ColorSpace::Linear, 31);  // beta apart from lightBeta
  auto metal = material(1, 0.3f), plastic = material(0, 0.5f), halfMetal = material(0.5f, 0.7f), mirror = material(1, 0),
       coarseMetal = material(1, 0.6f), negativeTint = material(0, 0.4f);
  metal->baseColor[0] = 0.9f, metal->baseColor[1] = 0.6f, metal->baseColor[2] = 0.2f;
  plastic->baseColor[0] = 0.1f, plastic->baseColor[1] = 0.3f, plastic->baseColor[2] = 0.8f;
  auto ceiling = material(1, 0.6f);  // paths between it and the floor reach the glossy bounce limit
  for (int c = 0; c < 3; ++c) ceiling->baseColor[c] = 0.8f;
  halfMetal->ior = 1.8f;
  halfMetal->specularColor[0] = 0.4f;
  // Dark under a negative specular colour, the lobes' weights sum below zero seen near head-on,
  // where Bsdf takes no light; the glossy stage must leave such a material to it.
  for (int c = 0; c < 3; ++c) negativeTint->baseColor[c] = 0.02f, negativeTint->specularColor[c] = -1;
  const SceneSnapshot snap = sceneOf({shape(1, makeQuad(3), floor),
                                      shape(2, makeQuad(3), ceiling, facingDown(2)),
                                      shape(3, makeQuad(0.5f), emitter(8), facingDown(1.9f)),
                                      shape(4, makeSphere(0.4f, 4, 2), diffuseMaterial(0.2f, 0.8f, 0.3f), translation(-0.8f, 0.4f, 0)),
                                      shape(5, makeSphere(0.4f, 16, 8), metal, translation(0.8f, 0.4f, 0)),
                                      shape(6, makeSphere(0.1f, 8, 4), emitter(4), translation(0, 0.3f, 0.8f)),
                                      shape(7, makeSphere(0.3f, 16, 8), plastic, translation(0, 0.3f, -0.6f)),
                                      shape(8, makeSphere(0.3f, 16, 8), halfMetal, translation(-0.9f, 0.3f, -0.9f)),
                                      shape(9, makeSphere(0.3f, 16, 8), mirror, translation(0.9f, 0.3f, -0.9f)),
                                      shape(10, makeSphere(0.25f, 4, 2), coarseMetal, translation(-0.4f, 0.25f, 0.5f)),
                                      shape(11, makeSphere(0.2f, 16, 8), negativeTint, translation(0.4f, 0.2f, 0.6f))},
                                     {pointLight(1, 1.5f, 1, 1), environmentLight(0.5f)}, cameraAt(0, 1.5f, 2.5f, 0, 0.3f, 0, 1.2f));
  ASSERT_TRUE(build(snap));
  ASSERT_TRUE(scene_->allOpaque()) << "the vector stages take opaque scenes only";
  Camera camera(snap.camera, 32, 32);
  RenderParams params;
  params.maxDepthDiffuse = 5;
  params.maxDepthGlossy = 1;
  auto trace = [&](IntegratorSettings settings, uint32_t batch, SampleResult* out, Sampler* samplers) {
    PathIntegrator integrator(*scene_, lights_, camera, params, settings);
    FilmPoint film[kPacketSize];
    for (int k = 0; k < kPacketSize; ++k) {
      film[k] = {float((k * 7 + batch * 5) % 32) + 0.5f, float((k * 3 + batch * 11) % 32) + 0.5f};
      samplers[k] = Sampler(hashCombine(batch, uint32_t(k)), batch);
    }
    integrator.traceBatch(film, samplers, out, kPacketSize);
  };
  auto bits = [](const Vec3& v) {
    uint32_t b[3];
    std::memcpy(b, &v, sizeof b);
    return std::make_tuple(b[0], b[1], b[2]);
  };
  IntegratorSettings scalar;
  scalar.vectorBounces = false;
  for (VectorIsa isa : {VectorIsa::Baseline, VectorIsa::Avx2, VectorIsa::Avx512}) {
    IntegratorSettings vector;
    vector.isa = std::min(isa, bestVectorIsa());
    for (uint32_t batch = 0; batch < 16; ++batch) {
      // Caustics reduction roughens the reflectors after a diffuse bounce, the mirror among them.
      scalar.causticsReduction = vector.causticsReduction = batch % 2 ? 0.5f : 1.0f;
      std::vector<Sampler> expectedSamplers(kPacketSize, Sampler(0, 0)), samplers(kPacketSize, Sampler(0, 0));
      SampleResult expected[kPacketSize], got[kPacketSize];
      trace(scalar, batch, expected, expectedSamplers.data());
      trace(vector, batch, got, samplers.data());
      for (int k = 0; k < kPacketSize; ++k) {
        SCOPED_TRACE(std::string(vectorIsaName(vector.isa)) + ", batch " + std::to_string(batch) + ", lane " + std::to_string(k));
        EXPECT_EQ(bits(got[k].emission), bits(expected[k].emission));
        EXPECT_EQ(bits(got[k].background), bits(expected[k].background));
        for (int lobe = 0; lobe < kLobeCategories; ++lobe) {
          EXPECT_EQ(bits(got[k].direct[lobe]), bits(expected[k].direct[lobe]));
          EXPECT_EQ(bits(got[k].indirect[lobe]), bits(expected[k].indirect[lobe]));
        }
        EXPECT_EQ(got[k].rays, expected[k].rays);
        EXPECT_EQ(samplers[k].get1D(), expectedSamplers[k].get1D()) << "the lane used another number of sample dimensions";
      }
    }
  }
}

}  // namespace
}  // namespace zvr::test
