// A library layered on the render library, as the load/store library is: its calls into the core
// belong to its own API call and must not show in the trace a second time.
#include "engine/ZvrCore.h"

extern "C" __attribute__((visibility("default"))) ZvrStatus zvrTestLayerSetIterations(ZvrContext context, uint32_t count) {
  return zvrContextSetParameterByKey1u(context, ZVR_CONTEXT_ITERATIONS, count);
}
