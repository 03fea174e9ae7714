#include "render/ocio_display.h"

#include <exception>

#include "program/render_settings.h"

namespace zvrs {

namespace OCIO = OCIO_NAMESPACE;

OCIO::ConstCPUProcessorRcPtr buildOcioProcessor(const std::string& configPath, const RenderSettings& settings,
                                                float gamma) {
  try {
    OCIO::ConstConfigRcPtr config = OCIO::Config::CreateFromFile(configPath.c_str());

    OCIO::DisplayViewTransformRcPtr displayView = OCIO::DisplayViewTransform::Create();
    displayView->setSrc(settings.postOcioSrc.c_str());
    displayView->setDisplay(settings.postOcioDisplay.c_str());
    displayView->setView(settings.postOcioView.c_str());

    OCIO::LegacyViewingPipelineRcPtr pipeline = OCIO::LegacyViewingPipeline::Create();
    pipeline->setDisplayViewTransform(displayView);
    // Enabled with an empty override: no look of the configuration applies.
    pipeline->setLooksOverrideEnabled(true);
    pipeline->setLooksOverride("");

    double m44[16];
    double offset4[4];
    const double exposure = settings.postExposure;
    const double scale4[4] = {exposure, exposure, exposure, exposure};
    OCIO::MatrixTransform::Scale(m44, offset4, scale4);
    OCIO::MatrixTransformRcPtr exposureTransform = OCIO::MatrixTransform::Create();
    exposureTransform->setMatrix(m44);
    exposureTransform->setOffset(offset4);
    pipeline->setLinearCC(exposureTransform);

    if (gamma != 0.0f) {
      const double limited = gamma > 1e-6 ? static_cast<double>(gamma) : 1e-6;
      const double exponent = 1.0 / limited;
      const double value[4] = {exponent, exponent, exponent, exponent};
      OCIO::ExponentTransformRcPtr gammaTransform = OCIO::ExponentTransform::Create();
      gammaTransform->setValue(value);
      pipeline->setDisplayCC(gammaTransform);
    }

    OCIO::ConstProcessorRcPtr processor = pipeline->getProcessor(config);
    return processor->getDefaultCPUProcessor();
  } catch (const std::exception&) {
    // A bad configuration or unknown names fall back to the plain pipeline without a word.
    return OCIO::ConstCPUProcessorRcPtr();
  }
}

}  // namespace zvrs
