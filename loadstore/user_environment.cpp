#include "loadstore/user_environment.h"

#include <cmath>
#include <cstring>

#include "loadstore/load_error.h"
#include "loadstore/scene_file.h"

namespace zvr::loadstore {
namespace {

// The image kinds a lat-long sky comes in; an import decodes them by the same signatures.
const char* mimeForSignature(const std::vector<uint8_t>& b) {
  auto starts = [&](const char* magic, size_t len) { return b.size() >= len && std::memcmp(b.data(), magic, len) == 0; };
  if (starts("#?", 2)) return "image/vnd.radiance";
  if (starts("\x76\x2f\x31\x01", 4)) return "image/x-exr";
  if (starts("\x89PNG", 4)) return "image/png";
  if (starts("\xff\xd8\xff", 3)) return "image/jpeg";
  if (starts("II*\0", 4) || starts("MM\0*", 4)) return "image/tiff";
  return nullptr;
}

}  // namespace

void replaceEnvironment(SceneDescription& scene, const ZvrsEnvironment& env) {
  for (float c : env.color)
    if (!std::isfinite(c) || c < 0) throw LoadError("environment", "colour " + std::to_string(c) + " is not a finite value of 0 or more");
  if (!std::isfinite(env.intensity) || env.intensity < 0)
    throw LoadError("environment", "intensity " + std::to_string(env.intensity) + " is not a finite value of 0 or more");
  if (!std::isfinite(env.rotation)) throw LoadError("environment", "rotation is not finite");
  Environment& e = scene.environment;
  e.present = true;
  e.color = {env.color[0], env.color[1], env.color[2]};
  e.intensity = env.intensity;
  e.rotation = env.rotation;
  e.image = -1;
  if (!env.imagePath) return;
  Image image;
  image.encoded = readWholeFile(env.imagePath);
  const char* mime = mimeForSignature(image.encoded);
  if (!mime) throw LoadError(env.imagePath, "is not an image file of a kind the library reads (HDR, EXR, PNG, JPEG, TIFF)");
  image.mimeType = mime;
  image.name = LoadError::fileLabel(env.imagePath);
  e.image = int(scene.images.size());
  scene.images.push_back(std::move(image));
}

}  // namespace zvr::loadstore
