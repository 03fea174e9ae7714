#include "kernel/cryptomatte_film.h"

#include <algorithm>
#include <cstring>

#include "kernel/aov.h"
#include "kernel/cryptomatte_hash.h"

namespace zvr::kernel {

void CryptomatteFilm::begin(const std::vector<AovTarget>& targets, const SceneSnapshot& scene, uint32_t width,
                            uint32_t height) {
  targets_.clear();
  bool cleared = false;
  for (const AovTarget& t : targets) {
    if (!t.target || !isCryptomatteAov(t.aov)) continue;
    const bool material = t.aov < kAovCryptoObject0;
    targets_.push_back({material ? 1u : 0u, t.aov - (material ? kAovCryptoMaterial0 : kAovCryptoObject0), t.target});
    cleared = cleared || t.target->iterations() == 0;
  }
  if (targets_.empty()) {
    pixels_.clear();
    return;
  }
  if (cleared || width != width_ || height != height_) {
    pixels_.assign(size_t(width) * height, Pixel{});
    width_ = width;
    height_ = height;
  }
  for (auto& ids : shapeIds_) ids.clear();
  for (const ShapeData& shape : scene.shapes) {
    shapeIds_[0].push_back(shape.name.empty() ? 0 : cryptomatteIdBits(shape.name));
    shapeIds_[1].push_back(shape.materialName.empty() ? 0 : cryptomatteIdBits(shape.materialName));
  }
}

void CryptomatteFilm::addSample(uint32_t x, uint32_t y, float w, uint32_t shape) {
  Pixel& pixel = pixels_[size_t(y) * width_ + x];
  pixel.total += w;
  if (shape == kNoShape || shape >= shapeIds_[0].size()) return;
  for (int kind = 0; kind < 2; ++kind) {
    const uint32_t id = shapeIds_[kind][shape];
    if (id == 0) continue;
    std::vector<Entry>& entries = pixel.ids[kind];
    auto same = std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.id == id; });
    if (same != entries.end()) same->weight += w;
    else entries.push_back({id, w});
  }
}

void CryptomatteFilm::commit(uint32_t iterations) {
  if (targets_.empty()) return;
  const size_t count = pixels_.size();
  std::vector<std::vector<float>> layers[2];
  for (auto& kind : layers) kind.assign(kCryptoRankLayers, {});
  for (const Target& t : targets_) layers[t.kind][t.rank].assign(count * 4, 0.0f);
  std::vector<Entry> ranked;
  for (size_t p = 0; p < count; ++p) {
    const Pixel& pixel = pixels_[p];
    if (pixel.total == 0) continue;
    for (int kind = 0; kind < 2; ++kind) {
      ranked = pixel.ids[kind];
      // Ties keep a fixed order (by id), so a pixel does not swap ranks from one commit to the next.
      std::sort(ranked.begin(), ranked.end(),
                [](const Entry& a, const Entry& b) { return a.weight != b.weight ? a.weight > b.weight : a.id < b.id; });
      for (size_t r = 0; r < ranked.size() && r < 2 * kCryptoRankLayers; ++r) {
        std::vector<float>& layer = layers[kind][r / 2];
        if (layer.empty()) continue;
        float id;
        std::memcpy(&id, &ranked[r].id, sizeof id);
        layer[p * 4 + (r % 2) * 2] = id;
        layer[p * 4 + (r % 2) * 2 + 1] = ranked[r].weight / pixel.total;
      }
    }
  }
  for (const Target& t : targets_) t.target->replaceWithFinalValues(layers[t.kind][t.rank].data(), iterations);
}

}  // namespace zvr::kernel
