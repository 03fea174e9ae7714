// Process-wide table of live objects. Handles arrive without their context (zvrObjectDelete takes
// any pointer), so this is the one place that can tell a live handle from a dead or foreign one
// without dereferencing it.
#pragma once

#include <mutex>
#include <unordered_map>

#include "core/object.h"

namespace zvr::core {

class ObjectRegistry {
 public:
  static ObjectRegistry& instance();
  void add(Object* object);
  void remove(Object* object);
  // The live object at this address, or null; never reads through the pointer first.
  Object* find(const void* handle) const;

 private:
  mutable std::mutex mutex_;
  std::unordered_map<const void*, Object*> live_;
};

}  // namespace zvr::core
