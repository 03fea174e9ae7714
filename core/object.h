// Base of every object behind a handle. The handle's value is the address of this base.
#pragma once

#include <cstdint>
#include <string>

#include "engine/ZvrCore.h"

namespace zvr::core {

class Context;

class Object {
 public:
  Object(ZvrObjectType kind, Context* context) : kind_(kind), context_(context) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  ZvrObjectType kind() const { return kind_; }
  Context* context() const { return context_; }
  const std::string& name() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  ZvrObject handle() { return reinterpret_cast<ZvrObject>(this); }
  // Bytes of pixel, vertex or sample data the object holds, for the memory report.
  virtual uint64_t dataBytes() const { return 0; }

 protected:
  void setContext(Context* context) { context_ = context; }

 private:
  ZvrObjectType kind_;
  Context* context_;
  std::string name_;
};

const char* kindName(ZvrObjectType kind);

}  // namespace zvr::core
