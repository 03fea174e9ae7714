#include "render/png_writer.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <stb/stb_image_write.h>

namespace zvrs {

bool writePngRgb8(const char* path, uint32_t width, uint32_t height, const uint8_t* rgb) {
  return stbi_write_png(path, static_cast<int>(width), static_cast<int>(height), 3, rgb,
                        static_cast<int>(3 * width)) != 0;
}

}  // namespace zvrs
