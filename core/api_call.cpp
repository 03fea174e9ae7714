#include "core/api_call.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>

namespace zvr::core {
namespace {

// Our layered libraries are libZvr*.so files other than this one.
bool isLayeredLibraryCode(const void* address) {
  Dl_info caller, self;
  if (!address || ::dladdr(address, &caller) == 0 || !caller.dli_fname) return false;
  if (::dladdr(reinterpret_cast<const void*>(&isLayeredLibraryCode), &self) != 0 && caller.dli_fbase == self.dli_fbase)
    return false;
  const char* slash = std::strrchr(caller.dli_fname, '/');
  const char* file = slash ? slash + 1 : caller.dli_fname;
  return std::strncmp(file, "libZvr", 6) == 0;
}

}  // namespace

ApiCall::ApiCall(const char* operation, const void* handle, const void* caller) : operation_(operation), caller_(caller), line_(operation) {
  if (Object* object = ObjectRegistry::instance().find(handle)) context_ = object->context();
  tracePath_ = context_ ? context_->tracePath() : environmentTracePath();
  nested_ = !tracePath_.empty() && isLayeredLibraryCode(caller);
  tracing_ = !tracePath_.empty() && !nested_;
}

void ApiCall::traceTo(const std::string& path) {
  tracePath_ = path;
  if (!path.empty()) nested_ = isLayeredLibraryCode(caller_);
  tracing_ = !path.empty() && !nested_;
}

void ApiCall::adoptContext(Context* context) {
  context_ = context;
  if (!tracing_ && !nested_ && !context->tracePath().empty()) {
    tracePath_ = context->tracePath();
    tracing_ = true;
  }
}

void ApiCall::finish(ZvrStatus status, const std::string& error) noexcept {
  try {
    // The body may have deleted the context; only a still-live one takes the text.
    if (status != ZVR_SUCCESS) {
      const std::string text = std::string(operation_) + ": " + error;
      if (context_ && ObjectRegistry::instance().find(context_) == context_)
        context_->setLastError(text);
      else
        setOrphanError(text);
    }
    if (tracing_) appendTraceLine(tracePath_, line_.finish(status));
  } catch (...) {
    // Out of memory while reporting: the status already says what happened.
  }
}

void ApiCall::finishWithResult(int32_t result, const std::string&) noexcept {
  try {
    if (tracing_) appendTraceLine(tracePath_, line_.finish(result));
  } catch (...) {
  }
}

Object* liveObject(const void* handle, const char* argument) {
  if (!handle) fail(ZVR_ERROR_INVALID_OBJECT, std::string(argument) + " is null");
  Object* object = ObjectRegistry::instance().find(handle);
  if (!object) {
    char address[32];
    std::snprintf(address, sizeof address, "%p", handle);
    fail(ZVR_ERROR_INVALID_OBJECT, std::string(argument) + " " + address + " is not a live object");
  }
  return object;
}

void expectSameContext(const Object* object, const Context* context, const char* argument) {
  if (object->context() != context)
    fail(ZVR_ERROR_INVALID_OBJECT, std::string(argument) + " belongs to another context");
}

void requireOut(const void* pointer, const char* argument) {
  if (!pointer) fail(ZVR_ERROR_INVALID_ARGUMENT, std::string(argument) + " is null");
}

void requireText(const char* text, const char* argument) {
  if (!text) fail(ZVR_ERROR_INVALID_ARGUMENT, std::string(argument) + " is null");
}

void ApiCall::requireIdle(Context* context) {
  if (!idle_.owns_lock()) idle_ = std::unique_lock<std::mutex>(context->stateMutex);
  else if (idle_.mutex() != &context->stateMutex) fail(ZVR_ERROR_INTERNAL, "one call edits objects of two contexts");
  if (context->rendering.load())
    fail(ZVR_ERROR_BUSY, "the context is rendering; wait until zvrContextRender has returned");
}

}  // namespace zvr::core
