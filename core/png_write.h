// 8-bit PNG files written with libpng directly: the common picture of a run needs no image
// library beyond the one the core links anyway.
#pragma once

#include <string>

namespace zvr::core {

// `pixels` holds width x height x channels bytes (channels 3 or 4, rows top to bottom).
// `linearData` tags the file as holding unencoded values (gamma 1), otherwise as sRGB.
// False with `error` naming what went wrong.
bool writePng(const std::string& path, int width, int height, int channels, const unsigned char* pixels, bool linearData,
              std::string* error);

}  // namespace zvr::core
