#include "core/deep_exr.h"

#include <Imath/half.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDeepFrameBuffer.h>
#include <OpenEXR/ImfDeepScanLineOutputFile.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfPartType.h>

#include <algorithm>
#include <vector>

#include "core/atomic_file.h"
#include "core/failure.h"
#include "core/framebuffer.h"

namespace zvr::core {
namespace {

template <class Value>
struct DeepChannels {
  std::vector<Value> values[4];           // R, G, B, A of every sample, pixel by pixel
  std::vector<float> depth, depthBack;
  std::vector<Value*> pointers[4];        // per pixel: its first sample in `values`
  std::vector<float*> depthPointers, depthBackPointers;
};

template <class Value>
void writeDeep(const FrameBuffer& fb, const std::vector<std::vector<FrameBuffer::DeepSample>>& lists, uint64_t total,
               Imf::PixelType type, const std::string& path) {
  const int width = int(fb.width()), height = int(fb.height());
  const size_t pixels = lists.size();
  std::vector<unsigned int> counts(pixels, 0);
  DeepChannels<Value> channels;
  for (auto& v : channels.values) v.reserve(total);
  channels.depth.reserve(total);
  channels.depthBack.reserve(total);
  std::vector<size_t> first(pixels, 0);
  for (size_t p = 0; p < pixels; ++p) {
    float weight = 0;
    for (const auto& sample : lists[p]) weight += sample.rgba[3];
    first[p] = channels.depth.size();
    if (!(weight > 0)) continue;  // nothing seen in this pixel
    // The samples of a pixel share its area side by side. Compositing them front to back with
    // "over" lets each one through only what the nearer ones left, so each is divided by that
    // remainder: then the flattened pixel is the plain sum of the shares, the flat picture.
    double remaining = 1;
    for (const auto& sample : lists[p]) {
      const double share = sample.rgba[3] / weight;
      const double scale = remaining > 1e-6 ? 1 / remaining : 1;
      for (int c = 0; c < 4; ++c) channels.values[c].push_back(Value(float(sample.rgba[c] / weight * scale)));
      channels.depth.push_back(sample.depth);
      channels.depthBack.push_back(std::max(sample.depth, sample.depthBack));
      remaining -= share;
    }
    counts[p] = unsigned(lists[p].size());
  }
  // Pointers are taken only now that the arrays no longer grow.
  for (int c = 0; c < 4; ++c) {
    channels.pointers[c].resize(pixels);
    for (size_t p = 0; p < pixels; ++p) channels.pointers[c][p] = channels.values[c].data() + first[p];
  }
  channels.depthPointers.resize(pixels);
  channels.depthBackPointers.resize(pixels);
  for (size_t p = 0; p < pixels; ++p) {
    channels.depthPointers[p] = channels.depth.data() + first[p];
    channels.depthBackPointers[p] = channels.depthBack.data() + first[p];
  }

  Imf::Header header(width, height);
  header.setType(Imf::DEEPSCANLINE);
  header.compression() = Imf::ZIPS_COMPRESSION;
  static const char* const kNames[4] = {"R", "G", "B", "A"};
  for (const char* name : kNames) header.channels().insert(name, Imf::Channel(type));
  header.channels().insert("Z", Imf::Channel(Imf::FLOAT));
  header.channels().insert("ZBack", Imf::Channel(Imf::FLOAT));
  Imf::DeepFrameBuffer slices;
  slices.insertSampleCountSlice(Imf::Slice(Imf::UINT, reinterpret_cast<char*>(counts.data()), sizeof(unsigned int),
                                           sizeof(unsigned int) * width));
  for (int c = 0; c < 4; ++c)
    slices.insert(kNames[c], Imf::DeepSlice(type, reinterpret_cast<char*>(channels.pointers[c].data()), sizeof(Value*),
                                            sizeof(Value*) * width, sizeof(Value)));
  slices.insert("Z", Imf::DeepSlice(Imf::FLOAT, reinterpret_cast<char*>(channels.depthPointers.data()), sizeof(float*),
                                    sizeof(float*) * width, sizeof(float)));
  slices.insert("ZBack", Imf::DeepSlice(Imf::FLOAT, reinterpret_cast<char*>(channels.depthBackPointers.data()),
                                        sizeof(float*), sizeof(float*) * width, sizeof(float)));
  writeAtomically(path, [&](const std::string& temporary) {
    Imf::DeepScanLineOutputFile file(temporary.c_str(), header);
    file.setFrameBuffer(slices);
    file.writePixels(height);
  });
}

}  // namespace

void saveDeepExr(const FrameBuffer& frameBuffer, const std::string& path, bool float32) {
  uint64_t total = 0;
  const auto lists = frameBuffer.readDeep(&total);
  if (total == 0)
    fail(ZVR_ERROR_UNSUPPORTED, path + ": the deep framebuffer holds no depth samples; the active plug-in does not "
                                       "deliver them for this AOV");
  if (float32)
    writeDeep<float>(frameBuffer, lists, total, Imf::FLOAT, path);
  else
    writeDeep<Imath::half>(frameBuffer, lists, total, Imf::HALF, path);
}

}  // namespace zvr::core
