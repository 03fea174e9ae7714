// Output elements made from the "aovs" block against the real core: order, names, formats and
// the cryptomatte check.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/render/engine_fixture.h"
#include "render/output_elements.h"

using namespace zvrs;

namespace {

// The elements a document selects, when their creation succeeds.
std::vector<OutputElement> elementsOf(const picojson::value& document, ZvrContext context,
                                      const RenderSettings& settings) {
  std::vector<OutputElement> elements;
  EXPECT_EQ(createOutputElements(document, context, settings, elements), 0);
  return elements;
}

// A refused creation: its status and what it reported, with no stop of the process.
std::pair<ZvrStatus, std::string> refusalOf(const picojson::value& document, ZvrContext context,
                                            const RenderSettings& settings) {
  std::vector<OutputElement> elements;
  ::testing::internal::CaptureStderr();
  const ZvrStatus status = createOutputElements(document, context, settings, elements);
  const std::string report = ::testing::internal::GetCapturedStderr();
  for (const OutputElement& element : elements) zvrObjectDelete(element.framebuffer);
  return {status, report};
}

using OutputElements = EngineTest;

struct ElementCase {
  const char* label;
  const char* document;
  std::vector<std::string> names;
  std::vector<std::string> files;
};

TEST_F(OutputElements, SortedKnownNamesOnly) {
  const ElementCase cases[] = {
      {"no aovs block", R"({})", {}, {}},
      {"null aovs block", R"({"aovs": null})", {}, {}},
      {"one element", R"({"aovs": {"depth": "d.exr"}})", {"depth"}, {"d.exr"}},
      {"sorted, not document order", R"({"aovs": {"uv": "u.exr", "depth": "d.exr", "normal": "n.png"}})",
       {"depth", "normal", "uv"}, {"d.exr", "n.png", "u.exr"}},
      {"unknown names skipped", R"({"aovs": {"diffuse": "x.png", "normal": "n.png", "Normal": "N.png"}})",
       {"normal"}, {"n.png"}},
  };
  for (const ElementCase& c : cases) {
    const picojson::value document = parse(c.document);
    RenderSettings settings;
    settings.framebufferDesc = {8, 4};
    const std::vector<OutputElement> elements = elementsOf(document, context_, settings);
    ASSERT_EQ(elements.size(), c.names.size()) << c.label;
    for (size_t i = 0; i < elements.size(); ++i) {
      EXPECT_EQ(elements[i].name, c.names[i]) << c.label;
      EXPECT_EQ(elements[i].fileNames, std::vector<std::string>{c.files[i]}) << c.label;
      EXPECT_EQ(elements[i].layerName, c.files[i]) << c.label;
      ASSERT_NE(elements[i].framebuffer, nullptr) << c.label;
      ZvrFramebufferDesc desc = {0, 0};
      ASSERT_EQ(zvrFrameBufferGetInfo(elements[i].framebuffer, ZVR_FRAMEBUFFER_DESC, sizeof(desc), &desc, nullptr), 0);
      EXPECT_EQ(desc.width, 8u) << c.label;
      EXPECT_EQ(desc.height, 4u) << c.label;
      zvrObjectDelete(elements[i].framebuffer);
    }
  }
}

TEST_F(OutputElements, FramebuffersAreCreatedClearedAndBoundInOrder) {
  RenderSettings settings;
  settings.framebufferDesc = {4, 4};
  settings.framebufferFormat.componentType = 2;  // overridden: data elements are always float
  const std::vector<OutputElement> elements =
      elementsOf(parse(R"({"aovs": {"normal": "n.png", "depth": "d.exr"}})"), context_, settings);
  ASSERT_EQ(elements.size(), 2u);

  const std::vector<std::string> created = traceOf("zvrContextCreateFrameBuffer");
  ASSERT_EQ(created.size(), 2u);
  for (const std::string& line : created) EXPECT_TRUE(contains(line, "componentType=3")) << line;
  const std::vector<std::string> bound = traceOf("zvrContextSetAOV");
  ASSERT_EQ(bound.size(), 2u);
  EXPECT_TRUE(contains(bound[0], "aov=7")) << bound[0];  // depth before normal
  EXPECT_TRUE(contains(bound[1], "aov=6")) << bound[1];
  EXPECT_EQ(traceOf("zvrFrameBufferClear").size(), 2u);
  EXPECT_TRUE(traceOf("zvrContextSetAOVindicesLookup").empty());
  for (const OutputElement& element : elements) zvrObjectDelete(element.framebuffer);
}

TEST_F(OutputElements, ColourTableInstalledOnRequest) {
  RenderSettings settings;
  settings.framebufferDesc = {4, 4};
  settings.colorTable = 1;
  EXPECT_TRUE(elementsOf(parse("{}"), context_, settings).empty());
  const std::vector<std::string> lookups = traceOf("zvrContextSetAOVindicesLookup");
  ASSERT_EQ(lookups.size(), 1u);
  EXPECT_TRUE(contains(lookups[0], "first=0, count=65536")) << lookups[0];
  EXPECT_TRUE(contains(lookups[0], "-> 0")) << lookups[0];
}

TEST_F(OutputElements, WrongJsonTypesRaiseTheJsonLibraryError) {
  const struct {
    const char* label;
    const char* document;
  } cases[] = {
      {"block not an object", R"({"aovs": 3})"},
      {"plain entry not a string", R"({"aovs": {"depth": 1}})"},
      {"lpe entry not an object", R"({"aovs": {"lpe0": "x.png"}})"},
      {"lpe output not a string", R"({"aovs": {"lpe0": {"output": 1, "lpe": "CRL"}}})"},
  };
  RenderSettings settings;
  settings.framebufferDesc = {4, 4};
  for (const auto& c : cases) {
    try {
      std::vector<OutputElement> elements;
      createOutputElements(parse(c.document), context_, settings, elements);
      ADD_FAILURE() << c.label << ": no exception";
    } catch (const std::runtime_error& error) {
      EXPECT_TRUE(contains(error.what(), "type mismatch")) << c.label << ": " << error.what();
    }
  }
}

// An lpe entry hands its expression to the framebuffer before the element is bound.
TEST_F(OutputElements, LpeEntryTakesOutputAndExpression) {
  RenderSettings settings;
  settings.framebufferDesc = {4, 4};
  const auto [status, report] = refusalOf(parse(R"({"aovs": {"lpe2": {"output": "l.png", "lpe": "C<RD>L"}}})"), context_, settings);
  EXPECT_EQ(status, 0) << report;
  const std::vector<std::string> lpe = traceOf("zvrFrameBufferSetLPE");
  ASSERT_EQ(lpe.size(), 1u);
  EXPECT_TRUE(contains(lpe[0], "C<RD>L")) << lpe[0];
  const std::vector<std::string> bound = traceOf("zvrContextSetAOV");
  ASSERT_EQ(bound.size(), 1u);
  EXPECT_TRUE(contains(bound[0], "aov=34")) << bound[0];

}

TEST_F(OutputElements, DeepColourUsesTheDeepComponentType) {
  RenderSettings settings;
  settings.framebufferDesc = {4, 4};
  const picojson::value document = parse(R"({"aovs": {"deep.color": "deep.exr", "depth": "d.exr"}})");
  for (const OutputElement& element : elementsOf(document, context_, settings)) zvrObjectDelete(element.framebuffer);
  const std::vector<std::string> created = traceOf("zvrContextCreateFrameBuffer");
  ASSERT_EQ(created.size(), 2u);  // deep.color sorts first
  EXPECT_TRUE(contains(created[0], "componentType=5")) << created[0];
  EXPECT_TRUE(contains(created[1], "componentType=3")) << created[1];
}

TEST_F(OutputElements, CryptomatteNeedsTheMultilayerFlag) {
  const struct {
    const char* label;
    const char* document;
    const char* expected;
  } cases[] = {
      {"flag 0 stops", R"({"multilayerexr": 0, "aovs": {"cryptomatte.mat0": "a.exr"}})",
       "E000008: cryptomatte requires multi layer exr. please use \"multilayerexr\" : 0\nfile="},
      {"flag absent stops", R"({"aovs": {"cryptomatte.obj3": "a.exr"}})", "E000008: cryptomatte requires"},
      {"flag not a number stops", R"({"multilayerexr": "1", "aovs": {"cryptomatte.mat0": "a.exr"}})",
       "E000008: cryptomatte requires"},
      // With the flag set the entry goes on and is bound.
      {"flag 1 goes on", R"({"multilayerexr": 1, "aovs": {"cryptomatte.mat0": "a.exr"}})", ""},
  };
  RenderSettings settings;
  settings.framebufferDesc = {4, 4};
  for (const auto& c : cases) {
    const picojson::value document = parse(c.document);
    const auto [status, report] = refusalOf(document, context_, settings);
    if (*c.expected == '\0') {
      EXPECT_EQ(status, 0) << c.label;
      EXPECT_EQ(report, "") << c.label;
      continue;
    }
    EXPECT_NE(status, 0) << c.label;
    EXPECT_TRUE(contains(report, c.expected)) << c.label << ": " << report;
  }
}

}  // namespace
