// A compiled light path expression: a deterministic automaton over path events. A path steps it
// once per event (camera, each scattering, the emitter) and counts its light where it accepts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvr::kernel {

// Event types. kEventLight is a light proper (point, spot, directional); the letter L of an
// expression stands for any emitter: a light, an emissive object or the background.
enum LpeEventType : uint8_t {
  kEventCamera, kEventReflect, kEventTransmit, kEventVolume, kEventLight, kEventObject, kEventBackground, kEventTypes
};
// Scattering of an event; camera and emitter events have none.
enum LpeScattering : uint8_t { kScatterNone, kScatterDiffuse, kScatterGlossy, kScatterSingular, kScatterings };

// One set of events as the parser reads it: the union of product terms (types x scatterings x
// labels), complemented when `negated`. Labels are bits: bit 0 is "no label the expression names",
// bit i the expression's i-th quoted label.
struct LpeEventSet {
  struct Term {
    uint8_t types = 0;         // bit per LpeEventType
    uint8_t scatterings = 0;   // bit per LpeScattering
    uint64_t labels = 0;
  };
  std::vector<Term> terms;
  bool negated = false;
  bool contains(uint8_t type, uint8_t scattering, uint32_t label) const;
};

// A regular expression over events, as a tree; nodes refer to their children by index.
struct LpeNode {
  enum Kind : uint8_t { Event, Concat, Alternative, Star, Plus, Optional };
  Kind kind = Event;
  uint32_t left = 0, right = 0;  // children (Concat, Alternative: both; repetitions: left)
  LpeEventSet events;            // Event only
};

struct LpeExpression {
  std::vector<LpeNode> nodes;
  uint32_t root = 0;
  std::vector<std::string> labels;  // quoted labels in order of first use; label i + 1
};

class LpeAutomaton {
 public:
  static constexpr uint16_t kDead = 0;
  // Builds the automaton; false with `error` when it would need more than `maxStates` states.
  // The bound keeps a hostile expression from taking long to compile; real ones need a few dozen.
  bool build(const LpeExpression& expression, std::string* error, uint32_t maxStates = 1024);
  uint16_t start() const { return start_; }
  // `label`: 0 for an event whose label the expression does not name, else 1 + its index in labels().
  uint16_t step(uint16_t state, uint8_t type, uint8_t scattering, uint32_t label) const {
    uint32_t symbol = (uint32_t(type) * kScatterings + scattering) * labelCount_ + (label < labelCount_ ? label : 0);
    return table_[size_t(state) * classCount_ + symbolClass_[symbol]];
  }
  bool accepts(uint16_t state) const { return accepting_[state] != 0; }
  const std::vector<std::string>& labels() const { return labels_; }
  size_t stateCount() const { return accepting_.size(); }

 private:
  std::vector<uint16_t> symbolClass_;  // symbol to class of symbols no transition tells apart
  std::vector<uint16_t> table_;        // state x class to state
  std::vector<uint8_t> accepting_;
  std::vector<std::string> labels_;
  uint32_t labelCount_ = 1, classCount_ = 1;
  uint16_t start_ = kDead;
};

}  // namespace zvr::kernel
