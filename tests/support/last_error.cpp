#include "tests/support/last_error.h"

std::string lastError(ZvrContext context) {
  size_t size = 0;
  zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, 0, nullptr, &size);
  std::string text(size, '\0');
  if (size) zvrContextGetInfo(context, ZVR_CONTEXT_LAST_ERROR_MESSAGE, size, text.data(), nullptr);
  return text.c_str();
}
