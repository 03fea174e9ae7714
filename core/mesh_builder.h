// Copies and checks the vertex streams of a ZvrMeshDesc.
#pragma once

#include <memory>

#include "engine/ZvrCore.h"
#include "core/plugin_api.h"

namespace zvr::core {

// Throws Failure naming the stream and the element that is wrong.
std::shared_ptr<const zvr::MeshData> buildMesh(const ZvrMeshDesc& desc);

}  // namespace zvr::core
