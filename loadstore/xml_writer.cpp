#include "loadstore/xml_writer.h"

#include <pugixml.hpp>

#include <cstdio>
#include <sstream>
#include <unistd.h>

#include "loadstore/base64.h"
#include "loadstore/catcher_flags.h"
#include "loadstore/load_error.h"
#include "loadstore/xml_format.h"

namespace zvr::loadstore {

namespace {

std::string floatText(float v) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.9g", double(v));
  return buffer;
}

template <typename Container>
std::string listText(const Container& values) {
  std::string out;
  for (float v : values) {
    if (!out.empty()) out += ' ';
    out += floatText(v);
  }
  return out;
}

void setFloat(pugi::xml_node n, const char* name, float v) { n.append_attribute(name) = floatText(v).c_str(); }

template <typename T>
void appendBinary(pugi::xml_node parent, const char* name, const std::vector<T>& data) {
  if (data.empty()) return;
  parent.append_child(name).text() = encodeBase64(data.data(), data.size() * sizeof(T)).c_str();
}

void writeMaterial(pugi::xml_node parent, const Material& m) {
  pugi::xml_node n = parent.append_child("material");
  n.append_attribute("name") = m.name.c_str();
  n.append_attribute("baseColor") = listText(m.baseColor).c_str();
  setFloat(n, "metallic", m.metallic);
  setFloat(n, "roughness", m.roughness);
  setFloat(n, "normalScale", m.normalScale);
  setFloat(n, "occlusionStrength", m.occlusionStrength);
  n.append_attribute("emissive") = listText(m.emissive).c_str();
  setFloat(n, "emissiveStrength", m.emissiveStrength);
  n.append_attribute("alphaMode") = m.alphaMode;
  setFloat(n, "alphaCutoff", m.alphaCutoff);
  n.append_attribute("doubleSided") = m.doubleSided;
  if (m.lightGroup >= 0) n.append_attribute("lightGroup") = m.lightGroup;
  n.append_attribute("unlit") = m.unlit;
  setFloat(n, "ior", m.ior);
  setFloat(n, "transmission", m.transmission);
  setFloat(n, "thickness", m.thickness);
  n.append_attribute("attenuationColor") = listText(m.attenuationColor).c_str();
  setFloat(n, "attenuationDistance", m.attenuationDistance);
  setFloat(n, "clearcoat", m.clearcoat);
  setFloat(n, "clearcoatRoughness", m.clearcoatRoughness);
  setFloat(n, "clearcoatNormalScale", m.clearcoatNormalScale);
  setFloat(n, "specular", m.specular);
  n.append_attribute("specularColor") = listText(m.specularColor).c_str();
  n.append_attribute("sheenColor") = listText(m.sheenColor).c_str();
  setFloat(n, "sheenRoughness", m.sheenRoughness);
  for (size_t s = 0; s < kTextureSlotCount; ++s) {
    const TextureRef& t = m.textures[s];
    if (t.image < 0) continue;
    pugi::xml_node tn = n.append_child("texture");
    tn.append_attribute("slot") = textureSlotName(TextureSlot(s));
    tn.append_attribute("image") = t.image;
    tn.append_attribute("texcoord") = t.texcoord;
    tn.append_attribute("wrapS") = t.wrapS;
    tn.append_attribute("wrapT") = t.wrapT;
    tn.append_attribute("magFilter") = t.magFilter;
    tn.append_attribute("minFilter") = t.minFilter;
    tn.append_attribute("offset") = listText(t.offset).c_str();
    setFloat(tn, "rotation", t.rotation);
    tn.append_attribute("scale") = listText(t.scale).c_str();
  }
}

void writeMesh(pugi::xml_node parent, const Mesh& mesh) {
  pugi::xml_node n = parent.append_child("mesh");
  n.append_attribute("name") = mesh.name.c_str();
  n.append_attribute("source") = mesh.sourceIndex;
  for (const Primitive& p : mesh.primitives) {
    pugi::xml_node pn = n.append_child("primitive");
    pn.append_attribute("material") = p.material;
    pn.append_attribute("vertices") = uint64_t(p.vertexCount());
    pn.append_attribute("triangles") = uint64_t(p.indices.size() / 3);
    const std::vector<float>* streams[] = {&p.positions, &p.normals, &p.tangents, &p.texcoords0, &p.texcoords1, &p.colors};
    for (size_t s = 0; s < 6; ++s) appendBinary(pn, xml::kStreams[s].name, *streams[s]);
    appendBinary(pn, "indices", p.indices);
  }
}

void writeNode(pugi::xml_node parent, const Node& node) {
  pugi::xml_node n = parent.append_child("node");
  n.append_attribute("name") = node.name.c_str();
  n.append_attribute("parent") = node.parent;
  n.append_attribute("source") = node.sourceIndex;
  n.append_attribute("mesh") = node.mesh;
  n.append_attribute("camera") = node.camera;
  n.append_attribute("light") = node.light;
  n.append_attribute("translation") = listText(node.local.translation).c_str();
  n.append_attribute("rotation") = listText(node.local.rotation).c_str();
  n.append_attribute("scale") = listText(node.local.scale).c_str();
  if (node.catcher) n.append_attribute("catcher") = catcherFlagsText(node.catcher).c_str();
}

}  // namespace

std::string writeSceneXml(const SceneDescription& scene) {
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child(xml::kRoot);
  root.append_attribute("version") = xml::kVersion;

  pugi::xml_node images = root.append_child("images");
  for (const Image& img : scene.images) {
    pugi::xml_node n = images.append_child("image");
    n.append_attribute("name") = img.name.c_str();
    n.append_attribute("mime") = img.mimeType.c_str();
    n.text() = encodeBase64(img.encoded.data(), img.encoded.size()).c_str();
  }
  pugi::xml_node materials = root.append_child("materials");
  for (const Material& m : scene.materials) writeMaterial(materials, m);
  pugi::xml_node meshes = root.append_child("meshes");
  for (const Mesh& m : scene.meshes) writeMesh(meshes, m);
  pugi::xml_node cameras = root.append_child("cameras");
  for (const Camera& c : scene.cameras) {
    pugi::xml_node n = cameras.append_child("camera");
    n.append_attribute("name") = c.name.c_str();
    n.append_attribute("type") = c.orthographic ? "orthographic" : "perspective";
    setFloat(n, "yfov", c.yfov);
    setFloat(n, "xmag", c.xmag);
    setFloat(n, "ymag", c.ymag);
    setFloat(n, "znear", c.znear);
    setFloat(n, "zfar", c.zfar);
  }
  pugi::xml_node lights = root.append_child("lights");
  for (const Light& l : scene.lights) {
    pugi::xml_node n = lights.append_child("light");
    n.append_attribute("name") = l.name.c_str();
    n.append_attribute("type") = xml::kLightTypes[static_cast<uint32_t>(l.type)];
    n.append_attribute("color") = listText(l.color).c_str();
    setFloat(n, "intensity", l.intensity);
    setFloat(n, "innerCone", l.innerCone);
    setFloat(n, "outerCone", l.outerCone);
    if (l.lightGroup >= 0) n.append_attribute("lightGroup") = l.lightGroup;
  }
  if (scene.environment.present) {
    pugi::xml_node n = root.append_child("environment");
    n.append_attribute("color") = listText(scene.environment.color).c_str();
    setFloat(n, "intensity", scene.environment.intensity);
    setFloat(n, "rotation", scene.environment.rotation);
    n.append_attribute("image") = scene.environment.image;
  }
  pugi::xml_node nodes = root.append_child("nodes");
  for (const Node& node : scene.nodes) writeNode(nodes, node);
  pugi::xml_node animations = root.append_child("animations");
  for (const AnimationChannel& a : scene.animations) {
    pugi::xml_node n = animations.append_child("channel");
    n.append_attribute("animation") = a.animationIndex;
    n.append_attribute("interpolation") = xml::kInterpolations[a.sourceInterpolation];
    n.append_attribute("node") = a.node;
    n.append_attribute("kind") = xml::kKinds[a.kind];
    n.append_attribute("keys") = uint64_t(a.times.size());
    appendBinary(n, "times", a.times);
    appendBinary(n, "values", a.values);
  }
  if (!scene.ocio.configText.empty()) {
    pugi::xml_node ocio = root.append_child("ocio");
    ocio.append_child("config").text() = scene.ocio.configText.c_str();
    for (const OcioFile& f : scene.ocio.files) {
      pugi::xml_node n = ocio.append_child("file");
      n.append_attribute("name") = f.name.c_str();
      n.text() = encodeBase64(f.bytes.data(), f.bytes.size()).c_str();
    }
  }
  std::ostringstream out;
  doc.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
  return out.str();
}

void saveSceneXml(const SceneDescription& scene, const std::string& path) {
  const std::string text = writeSceneXml(scene);
  const std::string temp = path + ".tmp" + std::to_string(::getpid());
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (!f) throw LoadError(path, "cannot be created for writing");
  const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed) {
    std::remove(temp.c_str());
    throw LoadError(path, "could not be written completely");
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    std::remove(temp.c_str());
    throw LoadError(path, "could not be put in place");
  }
}

}  // namespace zvr::loadstore
