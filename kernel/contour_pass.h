// The contour integrator's extra pass over one iteration: camera samples of its own (jittered as
// the antialiasing key says) find object, material, normal and UV changes, and the lines are drawn
// over the iteration's path-traced colour, black or in the debug colour of their feature.
#pragma once

#include <cstdint>

#include "kernel/camera.h"
#include "kernel/contour_lines.h"
#include "kernel/film.h"
#include "kernel/scene.h"

namespace zvr::kernel {

// Traces one camera sample per pixel of `width` x `height` for iteration `sampleIndex`.
std::vector<ContourSample> traceContourSamples(const Scene& scene, const Camera& camera, const RenderParams& params,
                                               const ContourStyle& style, uint32_t width, uint32_t height,
                                               uint64_t sampleIndex);

// Draws the iteration's contour lines into the film's colour. Call it inside the render's arena.
void drawContourPass(const Scene& scene, const Camera& camera, const RenderParams& params, uint64_t sampleIndex,
                     Film& film);

}  // namespace zvr::kernel
