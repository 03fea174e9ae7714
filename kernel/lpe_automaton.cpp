#include "kernel/lpe_automaton.h"

#include <algorithm>
#include <map>

namespace zvr::kernel {

bool LpeEventSet::contains(uint8_t type, uint8_t scattering, uint32_t label) const {
  bool in = false;
  for (const Term& t : terms)
    if ((t.types >> type & 1) && (t.scatterings >> scattering & 1) && label < 64 && (t.labels >> label & 1)) {
      in = true;
      break;
    }
  return in != negated;
}

namespace {

// Thompson's construction: one predicate edge or some empty edges per state.
struct Nfa {
  struct State {
    std::vector<uint32_t> empty;
    int32_t predicate = -1;  // index into `predicates`; the edge leads to `next`
    uint32_t next = 0;
  };
  struct Fragment {
    uint32_t start, accept;
  };
  std::vector<State> states;
  std::vector<const LpeEventSet*> predicates;

  uint32_t add() {
    states.emplace_back();
    return uint32_t(states.size() - 1);
  }
  void link(uint32_t from, uint32_t to) { states[from].empty.push_back(to); }

  Fragment build(const LpeExpression& e, uint32_t index) {
    const LpeNode& n = e.nodes[index];
    if (n.kind == LpeNode::Event) {
      uint32_t s = add(), a = add();
      states[s].predicate = int32_t(predicates.size());
      states[s].next = a;
      predicates.push_back(&n.events);
      return {s, a};
    }
    Fragment l = build(e, n.left);
    if (n.kind == LpeNode::Concat) {
      Fragment r = build(e, n.right);
      link(l.accept, r.start);
      return {l.start, r.accept};
    }
    uint32_t s = add(), a = add();
    link(s, l.start);
    link(l.accept, a);
    if (n.kind == LpeNode::Alternative) {
      Fragment r = build(e, n.right);
      link(s, r.start);
      link(r.accept, a);
    }
    if (n.kind == LpeNode::Star || n.kind == LpeNode::Optional) link(s, a);
    if (n.kind == LpeNode::Star || n.kind == LpeNode::Plus) link(l.accept, l.start);
    return {s, a};
  }

  void close(std::vector<uint32_t>& set) const {
    std::vector<uint8_t> seen(states.size(), 0);
    std::vector<uint32_t> stack = set;
    for (uint32_t s : set) seen[s] = 1;
    while (!stack.empty()) {
      uint32_t s = stack.back();
      stack.pop_back();
      for (uint32_t t : states[s].empty)
        if (!seen[t]) {
          seen[t] = 1;
          set.push_back(t);
          stack.push_back(t);
        }
    }
    std::sort(set.begin(), set.end());
  }
};

}  // namespace

bool LpeAutomaton::build(const LpeExpression& expression, std::string* error, uint32_t maxStates) {
  Nfa nfa;
  Nfa::Fragment whole = nfa.build(expression, expression.root);
  labels_ = expression.labels;
  labelCount_ = uint32_t(labels_.size()) + 1;

  // Symbols that every predicate treats alike share a column of the table.
  const uint32_t symbols = kEventTypes * kScatterings * labelCount_;
  symbolClass_.assign(symbols, 0);
  std::map<std::vector<bool>, uint16_t> classOf;
  std::vector<std::vector<bool>> classMembers;
  for (uint32_t symbol = 0; symbol < symbols; ++symbol) {
    uint32_t label = symbol % labelCount_, rest = symbol / labelCount_;
    std::vector<bool> in(nfa.predicates.size());
    for (size_t p = 0; p < in.size(); ++p)
      in[p] = nfa.predicates[p]->contains(uint8_t(rest / kScatterings), uint8_t(rest % kScatterings), label);
    auto found = classOf.emplace(in, uint16_t(classMembers.size()));
    if (found.second) classMembers.push_back(in);
    symbolClass_[symbol] = found.first->second;
  }
  classCount_ = uint32_t(classMembers.size());

  // Subset construction; state 0 is the empty set, which no event leaves.
  std::map<std::vector<uint32_t>, uint16_t> ids;
  std::vector<std::vector<uint32_t>> sets(1);
  ids[{}] = kDead;
  std::vector<uint32_t> first = {whole.start};
  nfa.close(first);
  table_.clear();
  accepting_.clear();
  auto idOf = [&](std::vector<uint32_t>& set) -> int32_t {
    auto it = ids.find(set);
    if (it != ids.end()) return it->second;
    if (sets.size() >= maxStates) return -1;
    uint16_t id = uint16_t(sets.size());
    ids.emplace(set, id);
    sets.push_back(set);
    return id;
  };
  int32_t startId = idOf(first);
  for (size_t d = 0; d < sets.size(); ++d) {
    const std::vector<uint32_t> current = sets[d];
    accepting_.push_back(std::binary_search(current.begin(), current.end(), whole.accept) ? 1 : 0);
    for (uint32_t c = 0; c < classCount_; ++c) {
      std::vector<uint32_t> next;
      for (uint32_t s : current) {
        const Nfa::State& st = nfa.states[s];
        if (st.predicate >= 0 && classMembers[c][size_t(st.predicate)]) next.push_back(st.next);
      }
      nfa.close(next);
      next.erase(std::unique(next.begin(), next.end()), next.end());
      int32_t id = idOf(next);
      if (id < 0 || startId < 0) {
        if (error) *error = "the expression needs more than " + std::to_string(maxStates) + " automaton states";
        return false;
      }
      table_.push_back(uint16_t(id));
    }
  }
  start_ = uint16_t(startId);
  return true;
}

}  // namespace zvr::kernel
