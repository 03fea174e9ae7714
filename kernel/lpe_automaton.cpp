#include "kernel/lpe_automaton.h"

#include <algorithm>
#include <map>
#include <unordered_map>

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
  uint32_t accept = 0;  // the whole expression's accepting state

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

  // Adds every state reachable by empty edges and sorts the set. `mark` is scratch space of one
  // entry per state, reused across calls so a closure costs what it visits.
  void close(std::vector<uint32_t>& set, std::vector<uint32_t>& mark, uint32_t& stamp) const {
    if (set.empty()) return;
    mark.resize(states.size(), 0);
    ++stamp;
    std::vector<uint32_t> stack;
    for (uint32_t s : set)
      if (mark[s] != stamp) {
        mark[s] = stamp;
        stack.push_back(s);
      }
    set = stack;
    while (!stack.empty()) {
      uint32_t s = stack.back();
      stack.pop_back();
      for (uint32_t t : states[s].empty)
        if (mark[t] != stamp) {
          mark[t] = stamp;
          set.push_back(t);
          stack.push_back(t);
        }
    }
    // Only states with an event edge, and the accepting one, tell two sets apart: the rest are
    // dropped so sets stay short to compare and store.
    set.erase(std::remove_if(set.begin(), set.end(), [&](uint32_t s) { return states[s].predicate < 0 && s != accept; }),
              set.end());
    std::sort(set.begin(), set.end());
  }
};

// FNV-1a over a sorted set of states: the subset construction looks every successor set up.
struct StateSetHash {
  size_t operator()(const std::vector<uint32_t>& set) const {
    uint64_t h = 1469598103934665603ull;
    for (uint32_t s : set) h = (h ^ s) * 1099511628211ull;
    return size_t(h);
  }
};

}  // namespace

bool LpeAutomaton::build(const LpeExpression& expression, std::string* error, uint32_t maxStates) {
  Nfa nfa;
  Nfa::Fragment whole = nfa.build(expression, expression.root);
  nfa.accept = whole.accept;
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

  // The classes each predicate admits, so a state's successors are gathered in one pass over it.
  std::vector<std::vector<uint16_t>> classesOf(nfa.predicates.size());
  for (uint32_t c = 0; c < classCount_; ++c)
    for (size_t p = 0; p < nfa.predicates.size(); ++p)
      if (classMembers[c][p]) classesOf[p].push_back(uint16_t(c));

  // Subset construction; state 0 is the empty set, which no event leaves.
  std::unordered_map<std::vector<uint32_t>, uint16_t, StateSetHash> ids;
  std::vector<std::vector<uint32_t>> sets(1);
  ids[{}] = kDead;
  // Each state's closure once, for the states a set is built from (the start and the targets of
  // event edges): a successor set is then the union of its members' closures.
  std::vector<uint32_t> mark;
  uint32_t stamp = 0;
  // Empty until computed: a closure always holds its own state.
  std::vector<std::vector<uint32_t>> closures(nfa.states.size());
  auto closureOf = [&](uint32_t s) -> const std::vector<uint32_t>& {
    if (closures[s].empty()) {
      closures[s] = {s};
      nfa.close(closures[s], mark, stamp);
    }
    return closures[s];
  };
  std::vector<uint32_t> first = closureOf(whole.start);
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
  const int32_t startId = idOf(first);
  bool fits = startId >= 0;
  std::vector<std::vector<uint32_t>> successors(classCount_);
  for (size_t d = 0; d < sets.size() && fits; ++d) {
    const std::vector<uint32_t> current = sets[d];
    accepting_.push_back(std::binary_search(current.begin(), current.end(), whole.accept) ? 1 : 0);
    for (std::vector<uint32_t>& next : successors) next.clear();
    for (uint32_t s : current) {
      const Nfa::State& st = nfa.states[s];
      if (st.predicate < 0) continue;
      const std::vector<uint32_t>& reached = closureOf(st.next);
      for (uint16_t c : classesOf[size_t(st.predicate)]) successors[c].insert(successors[c].end(), reached.begin(), reached.end());
    }
    for (std::vector<uint32_t>& next : successors) {
      std::sort(next.begin(), next.end());
      next.erase(std::unique(next.begin(), next.end()), next.end());
      const int32_t id = idOf(next);
      if (id < 0) {
        fits = false;
        break;
      }
      table_.push_back(uint16_t(id));
    }
  }
  if (!fits) {
    if (error) *error = "the expression needs more than " + std::to_string(maxStates) + " automaton states";
    return false;
  }
  start_ = uint16_t(startId);
  return true;
}

}  // namespace zvr::kernel
