#include "program/aov_names.h"

namespace zvrs {

namespace {

std::map<std::string, uint32_t> buildAovNameToId() {
  std::map<std::string, uint32_t> table = {
      {"color", 0},
      {"opacity", 1},
      {"world.coordinate", 2},
      {"uv", 3},
      {"material.id", 4},
      {"normal.geom", 5},
      {"normal", 6},
      {"camera.normal", 41},
      {"depth", 7},
      {"object.id", 8},
      {"mesh.id", 96},
      {"group.id", 9},
      {"shadow.catcher", 10},
      {"mattepass", 42},
      {"reflection.catcher", 30},
      {"background", 11},
      {"emission", 12},
      {"velocity", 13},
      {"direct.illumination", 14},
      {"indirect.illumination", 15},
      {"ao", 16},
      {"direct.diffuse", 17},
      {"direct.reflect", 18},
      {"indirect.diffuse", 19},
      {"indirect.reflect", 20},
      {"refract", 21},
      {"volume", 22},
      {"sss", 43},
      {"albedo.diffuse", 27},
      {"variance", 28},
      {"deep.color", 64},
  };
  // Light groups 0 to 3 and 4 to 15 live in two separate id ranges.
  for (uint32_t group = 0; group < 16; ++group)
    table["light.group" + std::to_string(group)] = group < 4 ? 23 + group : 80 + (group - 4);
  for (uint32_t index = 0; index < 6; ++index) {
    table["lpe" + std::to_string(index)] = 32 + index;
    table["cryptomatte.mat" + std::to_string(index)] = 48 + index;
    table["cryptomatte.obj" + std::to_string(index)] = 56 + index;
  }
  return table;
}

std::set<std::string> buildColorSet() {
  std::set<std::string> names = {"color",          "background",       "emission",       "direct.illumination",
                                 "indirect.illumination", "ao",        "direct.diffuse", "direct.reflect",
                                 "indirect.diffuse", "indirect.reflect", "refract",      "volume",
                                 "sss",            "albedo.diffuse"};
  for (int group = 0; group < 16; ++group) names.insert("light.group" + std::to_string(group));
  for (int index = 0; index < 6; ++index) names.insert("lpe" + std::to_string(index));
  return names;
}

}  // namespace

const std::map<std::string, uint32_t> aovNameToId = buildAovNameToId();
const std::set<std::string> colorSet = buildColorSet();

}  // namespace zvrs
