// Where each piece of light goes beyond the beauty: the light path expression outputs (lpe0..5)
// and the light group outputs (light.group0..15). Set up once per render call from the bound
// outputs; paths carry one automaton state per expression and credit light at the emitter.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/plugin_api.h"
#include "kernel/lpe_automaton.h"
#include "kernel/vector_math.h"

namespace zvr::kernel {

constexpr int kLpeOutputs = 6;
constexpr int kLightGroups = 16;

// The emitter at the end of a path: its event type (light, object or background) and group.
struct EmitterEvent {
  uint8_t type = kEventLight;
  int32_t group = -1;  // 0..15, -1 untagged, or kGroupPerEnvironment (lights.h)
};

// Automaton states of one path, after its camera and scattering events so far.
struct LightPathState {
  uint16_t state[kLpeOutputs] = {};
};

// Light credited to the outputs by one sample.
struct LightPathTotals {
  Vec3 lpe[kLpeOutputs];
  Vec3 group[kLightGroups];
};

class LightPaths {
 public:
  // Compiles the expression of every bound lpe output; false with `error` naming the output.
  bool setUp(const std::vector<AovTarget>& targets, std::string* error);
  bool wanted() const { return lpeCount_ > 0 || groups_; }

  void start(LightPathState& s) const;
  void scatter(LightPathState& s, uint8_t type, uint8_t scattering) const;
  // Light arriving from `emitter` after the events of `s`.
  void credit(const LightPathState& s, const EmitterEvent& emitter, Vec3 value, LightPathTotals& out) const;
  void creditGroup(int32_t group, Vec3 value, LightPathTotals& out) const;

 private:
  std::shared_ptr<const LpeAutomaton> automata_[kLpeOutputs];
  int slots_[kLpeOutputs] = {};  // output index (lpe0..5) of each compiled automaton
  int lpeCount_ = 0;
  bool groups_ = false;
};

// The output id of light group `group`, and the group of an output id (-1 for other ids).
uint32_t lightGroupAov(int group);
int lightGroupOf(uint32_t aov);
bool isLpeAov(uint32_t aov);

}  // namespace zvr::kernel
