#include "loadstore/base64.h"

#include <cstring>

namespace zvr::loadstore {

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int valueOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}
}  // namespace

std::string encodeBase64(const void* data, size_t size) {
  const auto* b = static_cast<const uint8_t*>(data);
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < size; i += 3) {
    const uint32_t v = (uint32_t(b[i]) << 16) | (uint32_t(b[i + 1]) << 8) | b[i + 2];
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (i < size) {
    const uint32_t v = (uint32_t(b[i]) << 16) | (i + 1 < size ? uint32_t(b[i + 1]) << 8 : 0);
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += i + 1 < size ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

bool decodeBase64(const char* text, std::vector<uint8_t>* out) {
  out->clear();
  out->reserve(std::strlen(text) / 4 * 3);
  uint32_t acc = 0;
  int have = 0, padding = 0;
  for (const char* p = text; *p; ++p) {
    const char c = *p;
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
    if (c == '=') {
      ++padding;
      acc <<= 6;
      ++have;
    } else {
      const int v = valueOf(c);
      if (v < 0 || padding) return false;
      acc = (acc << 6) | uint32_t(v);
      ++have;
    }
    if (have == 4) {
      if (padding > 2) return false;
      out->push_back(uint8_t(acc >> 16));
      if (padding < 2) out->push_back(uint8_t(acc >> 8));
      if (padding < 1) out->push_back(uint8_t(acc));
      acc = 0;
      have = 0;
    }
  }
  return have == 0;
}

}  // namespace zvr::loadstore
