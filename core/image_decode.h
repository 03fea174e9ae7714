// Turns image files, encoded bytes and raw pixel arrays into ImageData.
#pragma once

#include <memory>
#include <string>

#include "engine/ZvrCore.h"
#include "core/plugin_api.h"

namespace zvr::core {

std::shared_ptr<const zvr::ImageData> imageFromPixels(const ZvrImageDesc& desc, const void* data);
std::shared_ptr<const zvr::ImageData> imageFromFile(const std::string& path, uint32_t colorSpace);
std::shared_ptr<const zvr::ImageData> imageFromMemory(const void* bytes, size_t size, uint32_t colorSpace);
// The description an ImageData answers to ZVR_IMAGE_DESC (pixels are held as floats).
ZvrImageDesc describeImage(const zvr::ImageData& image);

}  // namespace zvr::core
