// Names shared by the XML scene writer and reader, so the two cannot drift apart.
#pragma once

namespace zvr::loadstore::xml {

constexpr const char* kRoot = "zvrscene";
constexpr int kVersion = 1;

constexpr const char* kLightTypes[] = {"point", "spot", "directional"};
constexpr const char* kInterpolations[] = {"LINEAR", "STEP", "CUBICSPLINE"};
constexpr const char* kKinds[] = {"", "translation", "rotation", "scale"};

// Vertex streams: element name and floats a vertex.
struct StreamName {
  const char* name;
  int components;
};
constexpr StreamName kStreams[] = {{"positions", 3}, {"normals", 3},   {"tangents", 4},
                                   {"texcoords0", 2}, {"texcoords1", 2}, {"colors", 4}};

}  // namespace zvr::loadstore::xml
