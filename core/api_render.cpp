// C boundary: rendering and aborting.
#include "core/api_call.h"
#include "core/render_host.h"

using namespace zvr::core;

extern "C" {

ZVR_API ZvrStatus zvrContextRender(ZvrContext context) {
  ApiCall call("zvrContextRender", context);
  call.handle("context", context);
  return call.run([&] {
    renderContext(*expect<Context>(context, ZVR_OBJECT_CONTEXT, "context"));
  });
}

ZVR_API ZvrStatus zvrContextAbortRender(ZvrContext context) {
  ApiCall call("zvrContextAbortRender", context);
  call.handle("context", context);
  return call.run([&] { expect<Context>(context, ZVR_OBJECT_CONTEXT, "context")->requestAbort(); });
}

}  // extern "C"
