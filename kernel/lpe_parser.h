// Light path expressions as compositors write them, from text to a deterministic automaton:
//   C (or E) camera; R T V reflection, transmission, volume; L any emitter, O emissive object, B background;
//   D G S diffuse, glossy, singular scattering; 'label' a quoted custom label;
//   <type scattering label> one event (positions left out match anything); . any event;
//   [...] any of, [^...] none of; grouping (...); repetition * + ?; alternatives |.
// A pure function: nothing is kept between calls.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "kernel/lpe_automaton.h"

namespace zvr::kernel {

struct LpeCompileResult {
  std::shared_ptr<const LpeAutomaton> automaton;  // null on error
  // "lpe: unexpected ')' at 3 in \"C)\"": what was found, its 1-based position (one past the
  // last character for the end of the text) and the whole text.
  std::string error;
  size_t position = 0;  // 0 when compiled
};

constexpr size_t kMaxLpeLength = 1024;

LpeCompileResult compileLightPathExpression(std::string_view text);

}  // namespace zvr::kernel
