// Answers of the GetInfo operations: a null buffer asks for the size; otherwise the buffer must
// be large enough, and the value's own size is reported back.
#pragma once

#include <cstddef>
#include <string>

namespace zvr::core {

void replyBytes(const std::string& what, const void* value, size_t needed, size_t size, void* data, size_t* outSize);

template <class T>
void replyValue(const std::string& what, const T& value, size_t size, void* data, size_t* outSize) {
  replyBytes(what, &value, sizeof(T), size, data, outSize);
}

// Text with its terminating zero.
inline void replyText(const std::string& what, const std::string& text, size_t size, void* data, size_t* outSize) {
  replyBytes(what, text.c_str(), text.size() + 1, size, data, outSize);
}

}  // namespace zvr::core
