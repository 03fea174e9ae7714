#include "interactive_viewer.h"

#include <cstdio>

int runInteractiveViewer(const std::vector<int32_t>&, const ConfigDocument&, ZvrContext, ZvrScene, const RenderSettings&,
                         std::vector<OutputElement>&, TimingRecord&) {
  std::fprintf(stderr,
               "The interactive viewer is not part of this build; run with {\"gui\":0} to render to files.\n");
  return 1;
}
