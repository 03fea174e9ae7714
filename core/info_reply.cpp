#include "core/info_reply.h"

#include <cstring>

#include "core/failure.h"

namespace zvr::core {

void replyBytes(const std::string& what, const void* value, size_t needed, size_t size, void* data, size_t* outSize) {
  if (data) {
    if (size < needed)
      fail(ZVR_ERROR_INVALID_SIZE, what + " needs " + std::to_string(needed) + " bytes, the buffer has " +
                                       std::to_string(size));
    if (needed) std::memcpy(data, value, needed);
  }
  if (outSize) *outSize = needed;
}

}  // namespace zvr::core
