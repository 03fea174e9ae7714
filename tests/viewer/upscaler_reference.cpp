#include "tests/viewer/upscaler_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

// The same bits read as the other type, as the shaders' asuint and asfloat do.
template <typename To, typename From>
To sameBits(From value) {
  To result;
  std::memcpy(&result, &value, sizeof result);
  return result;
}

float lowRcp(float a) { return sameBits<float>(0x7ef07ebbu - sameBits<uint32_t>(a)); }
float lowRsq(float a) { return sameBits<float>(0x5f347d74u - (sameBits<uint32_t>(a) >> 1)); }
float mediumRcp(float a) {
  const float b = sameBits<float>(0x7ef19fffu - sameBits<uint32_t>(a));
  return b * (-b * a + 2.0f);
}
float saturate(float a) { return std::min(std::max(a, 0.0f), 1.0f); }
float luma(const float* c) { return c[2] * 0.5f + (c[0] * 0.5f + c[1]); }

const float* clampedTexel(const Picture& p, int x, int y) {
  return p.at(std::clamp(x, 0, p.width - 1), std::clamp(y, 0, p.height - 1));
}

struct Vec2 {
  float x, y;
};

// Direction and length through the plus of five lumas (above, left, centre, right, below).
void accumulateEdge(Vec2& dir, float& len, float w, float lA, float lB, float lC, float lD, float lE) {
  const float lenX = saturate(std::fabs(lD - lB) * lowRcp(std::max(std::fabs(lD - lC), std::fabs(lC - lB))));
  dir.x += (lD - lB) * w;
  len += lenX * lenX * w;
  const float lenY = saturate(std::fabs(lE - lA) * lowRcp(std::max(std::fabs(lE - lC), std::fabs(lC - lA))));
  dir.y += (lE - lA) * w;
  len += lenY * lenY * w;
}

void tovuPixel(const Picture& in, float scaleX, float scaleY, float biasX, float biasY, int x, int y, float* out) {
  const float ppX0 = static_cast<float>(x) * scaleX + biasX;
  const float ppY0 = static_cast<float>(y) * scaleY + biasY;
  const int fx = static_cast<int>(std::floor(ppX0));
  const int fy = static_cast<int>(std::floor(ppY0));
  const Vec2 pp{ppX0 - std::floor(ppX0), ppY0 - std::floor(ppY0)};

  // The twelve taps around f, in the order the kernel adds them.
  struct Tap {
    int dx, dy;
  };
  static constexpr Tap kTaps[12] = {{0, -1}, {1, -1}, {-1, 1}, {0, 1}, {0, 0}, {-1, 0},
                                    {1, 1},  {2, 1},  {2, 0},  {1, 0}, {1, 2}, {0, 2}};
  enum { B, C, I, J, F, E, K, L, H, G, O, N };
  const float* c[12];
  float l[12];
  for (int t = 0; t < 12; ++t) {
    c[t] = clampedTexel(in, fx + kTaps[t].dx, fy + kTaps[t].dy);
    l[t] = luma(c[t]);
  }

  Vec2 dir{0.0f, 0.0f};
  float len = 0.0f;
  accumulateEdge(dir, len, (1.0f - pp.x) * (1.0f - pp.y), l[B], l[E], l[F], l[G], l[J]);
  accumulateEdge(dir, len, pp.x * (1.0f - pp.y), l[C], l[F], l[G], l[H], l[K]);
  accumulateEdge(dir, len, (1.0f - pp.x) * pp.y, l[F], l[I], l[J], l[K], l[N]);
  accumulateEdge(dir, len, pp.x * pp.y, l[G], l[J], l[K], l[L], l[O]);

  float dirR = dir.x * dir.x + dir.y * dir.y;
  const bool zero = dirR < 1.0f / 32768.0f;
  dirR = zero ? 1.0f : lowRsq(dirR);
  if (zero) dir.x = 1.0f;
  dir.x *= dirR;
  dir.y *= dirR;

  len *= 0.5f;
  len *= len;
  const float stretch = (dir.x * dir.x + dir.y * dir.y) * lowRcp(std::max(std::fabs(dir.x), std::fabs(dir.y)));
  const Vec2 len2{1.0f + (stretch - 1.0f) * len, 1.0f - 0.5f * len};
  const float lob = 0.5f + ((1.0f / 4.0f - 0.04f) - 0.5f) * len;
  const float clp = lowRcp(lob);

  float sum[3] = {0.0f, 0.0f, 0.0f};
  float weightSum = 0.0f;
  for (int t = 0; t < 12; ++t) {
    const Vec2 off{static_cast<float>(kTaps[t].dx) - pp.x, static_cast<float>(kTaps[t].dy) - pp.y};
    const Vec2 v{(off.x * dir.x + off.y * dir.y) * len2.x, (off.x * -dir.y + off.y * dir.x) * len2.y};
    const float d2 = std::min(v.x * v.x + v.y * v.y, clp);
    float wB = (2.0f / 5.0f) * d2 - 1.0f;
    float wA = lob * d2 - 1.0f;
    wB *= wB;
    wA *= wA;
    wB = (25.0f / 16.0f) * wB - (25.0f / 16.0f - 1.0f);
    const float w = wB * wA;
    for (int ch = 0; ch < 3; ++ch) sum[ch] += c[t][ch] * w;
    weightSum += w;
  }
  const float rcpW = 1.0f / weightSum;
  for (int ch = 0; ch < 3; ++ch) {
    const float lo = std::min({c[F][ch], c[G][ch], c[J][ch], c[K][ch]});
    const float hi = std::max({c[F][ch], c[G][ch], c[J][ch], c[K][ch]});
    out[ch] = std::min(hi, std::max(lo, sum[ch] * rcpW));
  }
  out[3] = 1.0f;
}

void naltPixel(const Picture& in, float sharpness, int x, int y, float* out) {
  const float* b = clampedTexel(in, x, y - 1);
  const float* d = clampedTexel(in, x - 1, y);
  const float* e = clampedTexel(in, x, y);
  const float* f = clampedTexel(in, x + 1, y);
  const float* h = clampedTexel(in, x, y + 1);

  // A black cross makes hitMin 0 times infinity; max and min then keep the number, as the
  // shader's do on this driver, hence fmax and fmin throughout.
  float lobe = -INFINITY;
  for (int ch = 0; ch < 3; ++ch) {
    const float mn4 = std::min({b[ch], d[ch], f[ch], h[ch]});
    const float mx4 = std::max({b[ch], d[ch], f[ch], h[ch]});
    const float hitMin = mn4 * (1.0f / (4.0f * mx4));
    const float hitMax = (1.0f - mx4) * (1.0f / (4.0f * mn4 - 4.0f));
    lobe = std::fmax(lobe, std::fmax(-hitMin, hitMax));
  }
  lobe = std::fmax(-(0.25f - 1.0f / 16.0f), std::fmin(lobe, 0.0f)) * sharpness;
  const float rcpL = mediumRcp(4.0f * lobe + 1.0f);
  for (int ch = 0; ch < 3; ++ch) out[ch] = (lobe * b[ch] + lobe * d[ch] + lobe * h[ch] + lobe * f[ch] + e[ch]) * rcpL;
  out[3] = 1.0f;
}

}  // namespace

Picture referenceTovu(const Picture& input, int outputWidth, int outputHeight) {
  const float w = static_cast<float>(input.width), h = static_cast<float>(input.height);
  const float scaleX = w * (1.0f / static_cast<float>(outputWidth));
  const float scaleY = h * (1.0f / static_cast<float>(outputHeight));
  const float biasX = 0.5f * w * (1.0f / static_cast<float>(outputWidth)) - 0.5f;
  const float biasY = 0.5f * h * (1.0f / static_cast<float>(outputHeight)) - 0.5f;
  Picture output(outputWidth, outputHeight);
  for (int y = 0; y < outputHeight; ++y)
    for (int x = 0; x < outputWidth; ++x) tovuPixel(input, scaleX, scaleY, biasX, biasY, x, y, output.at(x, y));
  return output;
}

Picture referenceNalt(const Picture& input, float sharpness) {
  Picture output(input.width, input.height);
  for (int y = 0; y < input.height; ++y)
    for (int x = 0; x < input.width; ++x) naltPixel(input, sharpness, x, y, output.at(x, y));
  return output;
}
