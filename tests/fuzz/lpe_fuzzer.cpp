// Light path expressions: any text either compiles to an automaton whose steps stay among its
// states, or is refused with a message that names a place inside the text or just past its end.
// Links: zvr_lpe
// Seeds: tests/fuzz/seeds/lpe/*
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "kernel/lpe_parser.h"

using namespace zvr::kernel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const LpeCompileResult result = compileLightPathExpression(text);
  if (!result.automaton) {
    if (result.error.rfind("lpe: ", 0) != 0) std::abort();
    if (size <= kMaxLpeLength && (result.position < 1 || result.position > size + 1)) std::abort();
    return 0;
  }
  // Walk the automaton with the input's own bytes as events.
  const LpeAutomaton& automaton = *result.automaton;
  uint16_t state = automaton.start();
  for (size_t i = 0; i + 2 < size; i += 3) {
    state = automaton.step(state, data[i] % kEventTypes, data[i + 1] % kScatterings, data[i + 2]);
    if (state >= automaton.stateCount()) std::abort();
    (void)automaton.accepts(state);
  }
  return 0;
}
