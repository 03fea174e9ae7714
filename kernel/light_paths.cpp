#include "kernel/light_paths.h"

#include "kernel/lpe_parser.h"

namespace zvr::kernel {

constexpr uint32_t kFirstLpeAov = 32;

uint32_t lightGroupAov(int group) { return group < 4 ? 23 + uint32_t(group) : 80 + uint32_t(group - 4); }

int lightGroupOf(uint32_t aov) {
  if (aov >= 23 && aov <= 26) return int(aov - 23);
  if (aov >= 80 && aov <= 91) return int(aov - 80 + 4);
  return -1;
}

bool isLpeAov(uint32_t aov) { return aov >= kFirstLpeAov && aov < kFirstLpeAov + kLpeOutputs; }

bool LightPaths::setUp(const std::vector<AovTarget>& targets, const SceneSnapshot& scene, std::string* error) {
  lpeCount_ = 0;
  groups_ = false;
  for (const AovTarget& t : targets) {
    if (lightGroupOf(t.aov) >= 0) groups_ = true;
    if (!isLpeAov(t.aov) || !t.target) continue;
    const std::string name = "lpe" + std::to_string(t.aov - kFirstLpeAov);
    const std::string text = t.target->lightPathExpression();
    if (text.empty()) {
      if (error) *error = "the " + name + " framebuffer has no light path expression";
      return false;
    }
    LpeCompileResult compiled = compileLightPathExpression(text);
    if (!compiled.automaton) {
      if (error) *error = name + ": " + compiled.error;
      return false;
    }
    const std::vector<std::string>& names = compiled.automaton->labels();
    std::vector<uint8_t>& labels = labels_[lpeCount_];
    labels.clear();
    if (!names.empty()) {
      auto labelOf = [&](const std::string& name) {
        for (size_t i = 0; i < names.size(); ++i)
          if (names[i] == name) return uint8_t(i + 1);
        return uint8_t(0);
      };
      for (const ShapeData& s : scene.shapes) labels.push_back(labelOf(s.name));
      for (const LightData& l : scene.lights) labels.push_back(labelOf(l.name));
    }
    automata_[lpeCount_] = std::move(compiled.automaton);
    slots_[lpeCount_] = int(t.aov - kFirstLpeAov);
    ++lpeCount_;
  }
  return true;
}

void LightPaths::start(LightPathState& s) const {
  for (int i = 0; i < lpeCount_; ++i) {
    const LpeAutomaton& a = *automata_[i];
    s.state[i] = a.step(a.start(), kEventCamera, kScatterNone, 0);
  }
}

void LightPaths::scatter(LightPathState& s, uint8_t type, uint8_t scattering, LabelKey key) const {
  for (int i = 0; i < lpeCount_; ++i) s.state[i] = automata_[i]->step(s.state[i], type, scattering, label(i, key));
}

void LightPaths::credit(const LightPathState& s, const EmitterEvent& emitter, Vec3 value, LightPathTotals& out) const {
  for (int i = 0; i < lpeCount_; ++i) {
    const LpeAutomaton& a = *automata_[i];
    if (a.accepts(a.step(s.state[i], emitter.type, kScatterNone, label(i, emitter.key)))) out.lpe[slots_[i]] += value;
  }
  creditGroup(emitter.group, value, out);
}

void LightPaths::creditGroup(int32_t group, Vec3 value, LightPathTotals& out) const {
  if (groups_ && group >= 0 && group < kLightGroups) out.group[group] += value;
}

}  // namespace zvr::kernel
