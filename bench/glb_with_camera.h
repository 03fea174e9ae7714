// A copy of a binary glTF with a perspective camera added, so that renderers which read the file's
// camera see a camera-less scene through the same lens.
#pragma once

#include <string>

namespace zvr::bench {

// The camera stands at `position` looking down -z (glTF's camera convention), with vertical field
// of view `yfov` radians and a square aspect. False with `error`.
bool writeGlbWithCamera(const std::string& source, const std::string& target, const float position[3], float yfov,
                        std::string* error);

}  // namespace zvr::bench
