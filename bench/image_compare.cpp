#include "bench/image_compare.h"

#include <OpenImageIO/imageio.h>

#include <cmath>

namespace zvr::bench {

bool readRgb(const std::string& path, uint32_t size, Image& out, std::string* error) {
  auto in = OIIO::ImageInput::open(path);
  if (!in) {
    *error = "cannot open " + path + ": " + OIIO::geterror();
    return false;
  }
  const auto& spec = in->spec();
  if (uint32_t(spec.width) != size || uint32_t(spec.height) != size || spec.nchannels < 3) {
    *error = path + ": expected " + std::to_string(size) + "x" + std::to_string(size) + " RGB(A), found " +
             std::to_string(spec.width) + "x" + std::to_string(spec.height) + " with " + std::to_string(spec.nchannels) +
             " channels";
    return false;
  }
  std::vector<float> data(size_t(spec.width) * spec.height * spec.nchannels);
  if (!in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, data.data())) {
    *error = path + ": " + in->geterror();
    return false;
  }
  out.assign(size_t(size) * size * 4, 1.0f);
  for (size_t i = 0; i < size_t(size) * size; ++i)
    for (int c = 0; c < 3; ++c) out[4 * i + c] = data[i * spec.nchannels + c];
  return true;
}

double rmse(const Image& a, const Image& b) {
  double s = 0;
  for (size_t i = 0; i < a.size(); i += 4)
    for (int c = 0; c < 3; ++c) s += (a[i + c] - b[i + c]) * double(a[i + c] - b[i + c]);
  return std::sqrt(s / double(a.size() / 4 * 3));
}

Image blockAverage(const Image& a, uint32_t size, uint32_t block) {
  uint32_t n = size / block;
  Image out(size_t(n) * n * 4, 0.0f);
  for (uint32_t y = 0; y < n * block; ++y)
    for (uint32_t x = 0; x < n * block; ++x)
      for (int c = 0; c < 4; ++c)
        out[((y / block) * n + x / block) * 4 + c] += a[(size_t(y) * size + x) * 4 + c] / float(block * block);
  return out;
}

Image normalize(const std::vector<float>& sums) {
  Image out(sums.size());
  for (size_t i = 0; i < sums.size(); i += 4) {
    float w = sums[i + 3];
    for (int c = 0; c < 3; ++c) out[i + c] = w != 0 ? sums[i + c] / w : 0;
    out[i + 3] = 1;
  }
  return out;
}

}  // namespace zvr::bench
