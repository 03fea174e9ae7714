// Directional albedo of a rough dielectric interface (reflection plus transmission, counted as
// energy), the quantity that makes rough glass lose nothing to single scattering once divided out.
#pragma once

namespace zvr::kernel {

// E(mu, alpha, eta) for light leaving at cosine mu on the side where eta = eta_other / eta_this
// (above one entering a denser medium, below one leaving it). Interpolated from tables computed
// at build time; indices beyond 3 use 3.
float roughDielectricAlbedo(float cosTheta, float alpha, float eta);

}  // namespace zvr::kernel
