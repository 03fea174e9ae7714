// The tests' one way to make a context of the real render library: created on construction over
// the given plug-ins, deleted at the end of the scope whatever happened.
#pragma once

#include <vector>

#include "engine/ZvrCore.h"

class ScopedContext {
 public:
  explicit ScopedContext(std::vector<int32_t> plugins, uint32_t flags = ZVR_CREATION_FLAGS_ENABLE_CPU,
                         const ZvrContextProperties* properties = nullptr)
      : status_(zvrCreateContext(ZVR_API_VERSION, plugins.data(), plugins.size(), flags, properties, nullptr, &context_)) {}
  // A CPU context over the path tracer, for tests that need a context but not a particular plug-in.
  ScopedContext() : ScopedContext({zvrRegisterPlugin("Velder64.dll")}) {}
  ~ScopedContext() {
    if (context_) zvrObjectDelete(context_);
  }
  ScopedContext(const ScopedContext&) = delete;
  ScopedContext& operator=(const ScopedContext&) = delete;

  operator ZvrContext() const { return context_; }
  ZvrContext get() const { return context_; }
  ZvrStatus status() const { return status_; }

 private:
  ZvrContext context_ = nullptr;
  ZvrStatus status_;
};
