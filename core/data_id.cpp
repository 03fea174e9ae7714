#include "core/data_id.h"

#include <atomic>

namespace zvr::core {

uint64_t nextDataId() {
  static std::atomic<uint64_t> next{1};
  return next++;
}

}  // namespace zvr::core
