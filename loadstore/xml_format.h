// Names shared by the XML scene writer and reader, so the two cannot drift apart.
//
// The document, one element per object, scalars as attributes, binary payloads in base64
// (little-endian 32-bit floats or unsigned integers; images as their encoded file bytes):
//   <zvrscene version="1">
//     <images><image name mime>base64</image>...</images>
//     <materials><material name baseColor metallic ...><texture slot image texcoord wrapS .../></material></materials>
//     <meshes><mesh name source><primitive material vertices triangles>
//       <positions/> <normals/> <tangents/> <texcoords0/> <texcoords1/> <colors/> <indices/>
//     </primitive></mesh></meshes>
//     <cameras><camera name type yfov xmag ymag znear zfar/></cameras>
//     <lights><light name type color intensity innerCone outerCone/></lights>
//     <nodes><node name parent source mesh camera light translation rotation scale/></nodes>
//     <animations><channel animation interpolation node kind keys><times/><values/></channel></animations>
//     <ocio><config>text</config><file name>base64</file>...</ocio>
//   </zvrscene>
// References are indices into the lists above; a node's parent always comes before it.
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
