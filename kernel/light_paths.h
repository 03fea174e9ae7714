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

// Which object an event happens at, for custom labels (its name): a shape's index in the snapshot,
// or the number of shapes plus a light's index.
using LabelKey = uint32_t;
constexpr LabelKey kNoLabel = ~0u;

// The emitter at the end of a path: its event type (light, object or background) and group.
struct EmitterEvent {
  uint8_t type = kEventLight;
  int32_t group = -1;  // 0..15, -1 untagged, or kGroupPerEnvironment (lights.h)
  LabelKey key = kNoLabel;
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
  // Compiles the expression of every bound lpe output and matches its labels against the names
  // of the snapshot's shapes and lights; false with `error` naming the output.
  bool setUp(const std::vector<AovTarget>& targets, const SceneSnapshot& scene, std::string* error);
  bool wanted() const { return lpeCount_ > 0 || groups_; }

  void start(LightPathState& s) const;
  void scatter(LightPathState& s, uint8_t type, uint8_t scattering, LabelKey key) const;
  // Light arriving from `emitter` after the events of `s`.
  void credit(const LightPathState& s, const EmitterEvent& emitter, Vec3 value, LightPathTotals& out) const;
  void creditGroup(int32_t group, Vec3 value, LightPathTotals& out) const;

 private:
  std::shared_ptr<const LpeAutomaton> automata_[kLpeOutputs];
  int slots_[kLpeOutputs] = {};  // output index (lpe0..5) of each compiled automaton
  // Per automaton, the label of each LabelKey; empty when the expression names no label.
  std::vector<uint8_t> labels_[kLpeOutputs];
  uint32_t label(int automaton, LabelKey key) const {
    const std::vector<uint8_t>& l = labels_[automaton];
    return key < l.size() ? l[key] : 0;
  }
  int lpeCount_ = 0;
  bool groups_ = false;
};

// The output id of light group `group`, and the group of an output id (-1 for other ids).
uint32_t lightGroupAov(int group);
int lightGroupOf(uint32_t aov);
bool isLpeAov(uint32_t aov);

}  // namespace zvr::kernel
