// Light path expressions: what compiles, what is refused with which message, and which event
// sequences each automaton accepts.
#include <gtest/gtest.h>

#include <tuple>

#include "kernel/lpe_parser.h"

namespace zvr::test {
namespace {

using namespace kernel;

TEST(LpeParser, RefusesMalformedTextsShowingThePlace) {
  const std::string exploding = "C.*D" + std::string(12, '.') + "L";
  const std::tuple<std::string, std::string> cases[] = {
      {"C(D", "lpe: unexpected end at 4 in \"C(D\""},
      {"C)D", "lpe: unexpected ')' at 2 in \"C)D\""},
      {"", "lpe: unexpected end at 1 in \"\""},
      {"CXL", "lpe: unexpected 'X' at 2 in \"CXL\""},
      {"C<DR>L", "lpe: unexpected 'D' at 3 in \"C<DR>L\""},
      {"C<RDx>L", "lpe: unexpected 'x' at 5 in \"C<RDx>L\""},
      {"C[]L", "lpe: unexpected ']' at 3 in \"C[]L\""},
      {"C'key", "lpe: unexpected end at 6 in \"C'key\""},
      {"C''L", "lpe: unexpected ''' at 3 in \"C''L\""},
      {"C|", "lpe: unexpected end at 3 in \"C|\""},
      {"C(|D)L", "lpe: unexpected '|' at 3 in \"C(|D)L\""},
      {"*CL", "lpe: unexpected '*' at 1 in \"*CL\""},
      {"C\x01L", "lpe: unexpected byte 0x01 at 2 in \"C\x01L\""},
      {std::string(70, '(') + "C", "lpe: nesting deeper than 64 at 66 in \"" + std::string(70, '(') + "C\""},
      // Each '.' after "D" doubles the states a deterministic automaton needs to remember the D.
      {exploding, "lpe: the expression needs more than 1024 automaton states in \"" + exploding + "\""},
      {std::string(kMaxLpeLength + 1, 'D'), "lpe: the expression is 1025 characters long, more than 1024"},
  };
  for (const auto& [text, message] : cases) {
    LpeCompileResult r = compileLightPathExpression(text);
    EXPECT_FALSE(r.automaton) << text;
    EXPECT_EQ(r.error, message);
  }
}

struct Event {
  uint8_t type, scattering;
  uint32_t label;
};
constexpr Event kC{kEventCamera, kScatterNone, 0}, kRD{kEventReflect, kScatterDiffuse, 0},
    kRG{kEventReflect, kScatterGlossy, 0}, kRS{kEventReflect, kScatterSingular, 0},
    kTS{kEventTransmit, kScatterSingular, 0}, kTG{kEventTransmit, kScatterGlossy, 0},
    kLight{kEventLight, kScatterNone, 0}, kObject{kEventObject, kScatterNone, 0}, kSky{kEventBackground, kScatterNone, 0};

TEST(LpeParser, AutomataAcceptTheirPaths) {
  const std::tuple<const char*, std::vector<Event>, bool> cases[] = {
      {"CL", {kC, kObject}, true},
      {"CL", {kC, kSky}, true},
      {"CL", {kC, kRD, kLight}, false},
      {"C.+L", {kC, kRD, kRG, kLight}, true},
      {"C.+L", {kC, kLight}, false},
      {"CDL", {kC, kRD, kObject}, true},
      {"CDL", {kC, kRG, kObject}, false},
      {"EDL", {kC, kRD, kObject}, true},
      {"CO", {kC, kLight}, false},
      {"CB", {kC, kSky}, true},
      {"C<RD>L", {kC, kRD, kLight}, true},
      {"C<T.>L", {kC, kRD, kLight}, false},
      {"C<[RT]S>+L", {kC, kRS, kTS, kLight}, true},
      {"C<[^T].>*B", {kC, kRG, kRD, kSky}, true},
      {"C[^T]*B", {kC, kRG, kTG, kSky}, false},
      {"C(D|G)?S*O", {kC, kRG, kRS, kTS, kObject}, true},
      {"C(D|G)?S*O", {kC, kRG, kRD, kObject}, false},
      {"C [RT] L", {kC, kTG, kLight}, true},
      {"C'floor'L", {kC, {kEventReflect, kScatterDiffuse, 1}, kLight}, true},
      {"C'floor'L", {kC, kRD, kLight}, false},
      {"C<RD'floor'>.*<L.'sun'>", {kC, {kEventReflect, kScatterDiffuse, 1}, kRG, {kEventLight, kScatterNone, 2}}, true},
      {"C<RD[^'floor']>L", {kC, {kEventReflect, kScatterDiffuse, 1}, kLight}, false},
      {"C<RD[^'floor']>L", {kC, kRD, kLight}, true},
  };
  for (const auto& [text, path, accepted] : cases) {
    LpeCompileResult r = compileLightPathExpression(text);
    ASSERT_TRUE(r.automaton) << text << ": " << r.error;
    const LpeAutomaton& a = *r.automaton;
    uint16_t state = a.start();
    for (const Event& e : path) state = a.step(state, e.type, e.scattering, e.label);
    EXPECT_EQ(a.accepts(state), accepted) << text << " after " << path.size() << " events";
  }
}

}  // namespace
}  // namespace zvr::test
