// Rays into Embree's 16-lane packet layout, with the mask of lanes to trace.
#pragma once

#include <embree3/rtcore.h>

#include "kernel/camera.h"
#include "kernel/vector_isa.h"

namespace zvr::kernel {

// Fills `packet` and `valid` (-1: trace, 0: not) from 16 rays; false when no lane is to be traced.
// A lane is traced when `active` and its ray is traceable. Lanes left out still get finite data,
// as Embree may read them, and an empty interval: Embree's emulated packets (without AVX-512) walk
// masked lanes whose interval is open at about the cost of tracing them. An empty interval also
// reads as blocked to occlusion queries. Every instruction set fills the same bits.
bool packRays(const Ray* rays, const bool* active, int* valid, RTCRay16& packet, VectorIsa isa = bestVectorIsa());

}  // namespace zvr::kernel
