// Directional albedo of a white GGX reflector, the quantity multiple-scattering compensation needs:
// E(mu, alpha) is the energy single scattering keeps for light arriving at cosine mu, and its
// cosine-weighted average says how much a rough surface loses overall.
#pragma once

namespace zvr::kernel {

// E(mu, alpha) for a Fresnel of one, interpolated from a table computed at build time.
float ggxDirectionalAlbedo(float cosTheta, float alpha);
// 2 * integral of E(mu, alpha) mu dmu over [0, 1].
float ggxAverageAlbedo(float alpha);

}  // namespace zvr::kernel
