// The frame every exported function runs in: finds the context behind a handle, records the call
// for the API trace, runs the body inside one try/catch, turns every exception into a status and
// stores its text as the context's last error. No exception leaves through the C API.
#pragma once

#include <mutex>
#include <string>

#include "core/context.h"
#include "core/failure.h"
#include "core/object_registry.h"
#include "core/trace_format.h"
#include "core/trace_writer.h"

namespace zvr::core {

class ApiCall {
 public:
  // `handle` is the object the call is about (any kind); null or dead leaves it without a context.
  // `caller` defaults to the return address of the exported function that makes the ApiCall: a
  // call that the load/store library makes on behalf of its own API call is part of that call's
  // trace line and is not traced again. (A layer that jumps to us as a tail call shows as its own
  // caller; the load/store library calls and then checks the status, so it never does.)
  ApiCall(const char* operation, const void* handle, const void* caller = __builtin_return_address(0));

  ApiCall& handle(const char* name, const void* value) { if (tracing_) line_.handle(name, value); return *this; }
  ApiCall& number(const char* name, int64_t value) { if (tracing_) line_.number(name, value); return *this; }
  ApiCall& unsignedNumber(const char* name, uint64_t value) { if (tracing_) line_.unsignedNumber(name, value); return *this; }
  ApiCall& flags(const char* name, uint64_t value) { if (tracing_) line_.flags(name, value); return *this; }
  ApiCall& real(const char* name, double value) { if (tracing_) line_.real(name, value); return *this; }
  ApiCall& text(const char* name, const char* value) { if (tracing_) line_.text(name, value); return *this; }
  ApiCall& matrix(const char* name, const float* value) { if (tracing_) line_.matrix(name, value); return *this; }
  ApiCall& properties(const char* name, const intptr_t* slots, intptr_t textKey, int maxSlots) {
    if (tracing_) line_.properties(name, slots, textKey, maxSlots);
    return *this;
  }

  // For zvrCreateContext: the context exists only once the body has made it, but its trace file
  // is known before, so that the creation itself is traced.
  // For edits refused while the context renders (scene edits, deletions, bindings): fails with
  // ZVR_ERROR_BUSY during a render, and otherwise keeps a render from starting until the call ends,
  // so the edit and the render's copy of the scene never overlap.
  void requireIdle(Context* context);
  void releaseIdle() { idle_ = {}; }

  void traceTo(const std::string& path);
  void adoptContext(Context* context);
  Context* context() const { return context_; }

  template <class Body>
  ZvrStatus run(Body&& body) noexcept {
    const Outcome outcome = runCatching(body);
    idle_ = {};
    finish(outcome.status, outcome.text);
    return outcome.status;
  }

  // Writes the trace line of a call whose result is not a status (zvrRegisterPlugin).
  void finishWithResult(int32_t result, const std::string& error) noexcept;

 private:
  void finish(ZvrStatus status, const std::string& error) noexcept;

  const char* operation_;
  Context* context_ = nullptr;
  std::string tracePath_;
  const void* caller_;
  bool nested_ = false;
  bool tracing_ = false;
  TraceLine line_;
  std::unique_lock<std::mutex> idle_;
};

// The live object behind a handle, of the given kind; Failure with ZVR_ERROR_INVALID_OBJECT if the
// handle is null, dead, or of another kind. `argument` names the parameter in the message.
Object* liveObject(const void* handle, const char* argument);
template <class T>
T* expect(const void* handle, ZvrObjectType kind, const char* argument) {
  Object* object = liveObject(handle, argument);
  if (object->kind() != kind)
    fail(ZVR_ERROR_INVALID_OBJECT, std::string(argument) + " is a " + kindName(object->kind()) + ", not a " + kindName(kind));
  return static_cast<T*>(object);
}
// The same object must belong to `context`.
void expectSameContext(const Object* object, const Context* context, const char* argument);
void requireOut(const void* pointer, const char* argument);
void requireText(const char* text, const char* argument);

}  // namespace zvr::core
