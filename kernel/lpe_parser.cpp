#include "kernel/lpe_parser.h"

#include <cstdio>

namespace zvr::kernel {
namespace {

constexpr uint8_t kAllTypes = (1u << kEventTypes) - 1;
constexpr uint8_t kAllScatterings = (1u << kScatterings) - 1;
constexpr uint64_t kAllLabels = ~uint64_t(0);
constexpr uint8_t kEmitters = 1u << kEventLight | 1u << kEventObject | 1u << kEventBackground;
constexpr size_t kMaxNesting = 64;
constexpr size_t kMaxLabels = 63;

// The event types a letter names, 0 when it names none.
uint8_t typesOf(char c) {
  switch (c) {
    case 'C':
    case 'E': return 1u << kEventCamera;  // the eye, as some renderers write the camera
    case 'R': return 1u << kEventReflect;
    case 'T': return 1u << kEventTransmit;
    case 'V': return 1u << kEventVolume;
    case 'L': return kEmitters;
    case 'O': return 1u << kEventObject;
    case 'B': return 1u << kEventBackground;
    default: return 0;
  }
}

uint8_t scatteringsOf(char c) {
  switch (c) {
    case 'D': return 1u << kScatterDiffuse;
    case 'G': return 1u << kScatterGlossy;
    case 'S': return 1u << kScatterSingular;
    default: return 0;
  }
}

bool isQuote(char c) { return c == '\'' || c == '"'; }

// Thrown inside the parser only; compileLightPathExpression turns it into a result.
struct ParseError {
  size_t offset;
  std::string what;
};

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  LpeExpression parse() {
    expression_.root = alternative(0);
    skipSpace();
    if (pos_ < text_.size()) unexpected();
    return std::move(expression_);
  }

 private:
  void skipSpace() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) ++pos_;
  }
  bool atEnd() {
    skipSpace();
    return pos_ >= text_.size();
  }
  char peek() { return atEnd() ? '\0' : text_[pos_]; }

  [[noreturn]] void unexpected() {
    if (pos_ >= text_.size()) throw ParseError{text_.size(), "unexpected end"};
    unsigned char c = static_cast<unsigned char>(text_[pos_]);
    char shown[16];
    if (c >= 0x20 && c < 0x7f) std::snprintf(shown, sizeof shown, "'%c'", c);
    else std::snprintf(shown, sizeof shown, "byte 0x%02x", c);
    throw ParseError{pos_, std::string("unexpected ") + shown};
  }
  void expect(char c) {
    if (peek() != c) unexpected();
    ++pos_;
  }

  uint32_t add(LpeNode node) {
    expression_.nodes.push_back(std::move(node));
    return uint32_t(expression_.nodes.size() - 1);
  }
  uint32_t binary(LpeNode::Kind kind, uint32_t left, uint32_t right) {
    LpeNode n;
    n.kind = kind;
    n.left = left;
    n.right = right;
    return add(std::move(n));
  }

  uint32_t alternative(size_t depth) {
    if (depth > kMaxNesting) throw ParseError{pos_, "nesting deeper than " + std::to_string(kMaxNesting)};
    uint32_t node = sequence(depth);
    while (peek() == '|') {
      ++pos_;
      node = binary(LpeNode::Alternative, node, sequence(depth));
    }
    return node;
  }

  uint32_t sequence(size_t depth) {
    uint32_t node = repeated(depth);
    for (char c = peek(); !atEnd() && c != '|' && c != ')'; c = peek()) node = binary(LpeNode::Concat, node, repeated(depth));
    return node;
  }

  uint32_t repeated(size_t depth) {
    uint32_t node = primary(depth);
    for (char c = peek(); c == '*' || c == '+' || c == '?'; c = peek()) {
      ++pos_;
      LpeNode n;
      n.kind = c == '*' ? LpeNode::Star : c == '+' ? LpeNode::Plus : LpeNode::Optional;
      n.left = node;
      node = add(std::move(n));
    }
    return node;
  }

  uint32_t primary(size_t depth) {
    char c = peek();
    if (c == '(') {
      ++pos_;
      uint32_t node = alternative(depth + 1);
      expect(')');
      return node;
    }
    LpeNode n;
    if (c == '[') {
      ++pos_;
      n.events.negated = peek() == '^';
      if (n.events.negated) ++pos_;
      do n.events.terms.push_back(eventTerm());
      while (peek() != ']');
      ++pos_;
    } else {
      n.events.terms.push_back(eventTerm());
    }
    return add(std::move(n));
  }

  // One event named by a letter, '.', a quoted label or a <type scattering label> triplet.
  LpeEventSet::Term eventTerm() {
    LpeEventSet::Term t{kAllTypes, kAllScatterings, kAllLabels};
    char c = peek();
    if (c == '<') {
      ++pos_;
      t.types = positionSet(typesOf, kAllTypes, false);
      if (peek() != '>') t.scatterings = positionSet(scatteringsOf, kAllScatterings, false);
      if (peek() != '>') t.labels = labelSet();
      expect('>');
    } else if (c == '.') {
      ++pos_;
    } else if (isQuote(c)) {
      t.labels = uint64_t(1) << label();
    } else if (typesOf(c)) {
      t.types = typesOf(c);
      ++pos_;
    } else if (scatteringsOf(c)) {
      t.scatterings = scatteringsOf(c);
      ++pos_;
    } else {
      unexpected();
    }
    return t;
  }

  // One position of a triplet: '.', a letter, or [letters] / [^letters].
  uint8_t positionSet(uint8_t (*letter)(char), uint8_t all, bool inBrackets) {
    char c = peek();
    if (!inBrackets && c == '.') {
      ++pos_;
      return all;
    }
    if (!inBrackets && c == '[') {
      ++pos_;
      bool negated = peek() == '^';
      if (negated) ++pos_;
      uint8_t set = 0;
      do set |= positionSet(letter, all, true);
      while (peek() != ']');
      ++pos_;
      return negated ? uint8_t(all & ~set) : set;
    }
    if (!letter(c)) unexpected();
    ++pos_;
    return letter(c);
  }

  uint64_t labelSet() {
    char c = peek();
    if (c == '.') {
      ++pos_;
      return kAllLabels;
    }
    if (c == '[') {
      ++pos_;
      bool negated = peek() == '^';
      if (negated) ++pos_;
      uint64_t set = 0;
      do {
        if (!isQuote(peek())) unexpected();
        set |= uint64_t(1) << label();
      } while (peek() != ']');
      ++pos_;
      return negated ? ~set : set;
    }
    if (!isQuote(c)) unexpected();
    return uint64_t(1) << label();
  }

  // A quoted label; its bit in the expression's label masks.
  uint32_t label() {
    const size_t open = pos_;
    const char quote = text_[pos_++];
    size_t close = text_.find(quote, pos_);
    if (close == std::string_view::npos) {
      pos_ = text_.size();
      unexpected();
    }
    if (close == pos_) unexpected();
    std::string name(text_.substr(pos_, close - pos_));
    pos_ = close + 1;
    auto& labels = expression_.labels;
    for (size_t i = 0; i < labels.size(); ++i)
      if (labels[i] == name) return uint32_t(i + 1);
    if (labels.size() >= kMaxLabels) throw ParseError{open, "more than " + std::to_string(kMaxLabels) + " labels"};
    labels.push_back(std::move(name));
    return uint32_t(labels.size());
  }

  std::string_view text_;
  size_t pos_ = 0;
  LpeExpression expression_;
};

std::string message(const std::string& what, size_t position, std::string_view text) {
  return "lpe: " + what + " at " + std::to_string(position) + " in \"" + std::string(text) + "\"";
}

}  // namespace

LpeCompileResult compileLightPathExpression(std::string_view text) {
  LpeCompileResult result;
  if (text.size() > kMaxLpeLength) {
    result.position = kMaxLpeLength + 1;
    result.error = "lpe: the expression is " + std::to_string(text.size()) + " characters long, more than " +
                   std::to_string(kMaxLpeLength);
    return result;
  }
  LpeExpression expression;
  try {
    expression = Parser(text).parse();
  } catch (const ParseError& e) {
    result.position = e.offset + 1;
    result.error = message(e.what, result.position, text);
    return result;
  }
  auto automaton = std::make_shared<LpeAutomaton>();
  std::string why;
  if (!automaton->build(expression, &why)) {
    result.position = 1;
    result.error = "lpe: " + why + " in \"" + std::string(text) + "\"";
    return result;
  }
  result.automaton = std::move(automaton);
  return result;
}

}  // namespace zvr::kernel
