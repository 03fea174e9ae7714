// Ids for the plug-in contract's data records (meshes, images, materials).
#pragma once

#include <cstdint>

namespace zvr::core {

// Unique for the life of the process, so a render snapshot can tell shared records apart.
uint64_t nextDataId();

}  // namespace zvr::core
