#include "loadstore/xml_reader.h"

#include <pugixml.hpp>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>

#include "loadstore/base64.h"
#include "loadstore/catcher_flags.h"
#include "loadstore/load_error.h"
#include "loadstore/mesh_processing.h"
#include "loadstore/xml_format.h"

namespace zvr::loadstore {

namespace {

class XmlReader {
 public:
  explicit XmlReader(const std::string& path) : path_(path) {}

  SceneDescription read(const std::string& text) {
    pugi::xml_document doc;
    const pugi::xml_parse_result parsed = doc.load_buffer(text.data(), text.size());
    if (!parsed) fail(std::string("is not well-formed XML at byte ") + std::to_string(parsed.offset) + ": " + parsed.description());
    const pugi::xml_node root = doc.child(xml::kRoot);
    if (!root) fail(std::string("has no <") + xml::kRoot + "> root element");
    if (root.attribute("version").as_int() != xml::kVersion) fail("is of an unknown scene document version");
    for (pugi::xml_node n : root.child("images").children("image")) readImage(n);
    for (pugi::xml_node n : root.child("materials").children("material")) readMaterial(n);
    for (pugi::xml_node n : root.child("meshes").children("mesh")) readMesh(n);
    for (pugi::xml_node n : root.child("cameras").children("camera")) readCamera(n);
    for (pugi::xml_node n : root.child("lights").children("light")) readLight(n);
    if (pugi::xml_node n = root.child("environment")) readEnvironment(n);
    for (pugi::xml_node n : root.child("nodes").children("node")) readNode(n);
    for (pugi::xml_node n : root.child("animations").children("channel")) readChannel(n);
    if (pugi::xml_node ocio = root.child("ocio")) readOcio(ocio);
    return std::move(scene_);
  }

  OcioConfig ocioOnly(const std::string& text) {
    pugi::xml_document doc;
    const pugi::xml_parse_result parsed = doc.load_buffer(text.data(), text.size());
    if (!parsed) fail(std::string("is not well-formed XML at byte ") + std::to_string(parsed.offset) + ": " + parsed.description());
    const pugi::xml_node root = doc.child(xml::kRoot);
    if (!root) fail(std::string("has no <") + xml::kRoot + "> root element");
    if (pugi::xml_node ocio = root.child("ocio")) readOcio(ocio);
    return std::move(scene_.ocio);
  }

 private:
  [[noreturn]] void fail(const std::string& problem) const { throw LoadError(path_, problem); }

  std::string where(pugi::xml_node n) const {
    return "element <" + std::string(n.name()) + "> at byte " + std::to_string(n.offset_debug());
  }

  float number(pugi::xml_node n, const char* name, float fallback) const {
    const pugi::xml_attribute a = n.attribute(name);
    if (!a) return fallback;
    char* end = nullptr;
    const float v = std::strtof(a.value(), &end);
    if (end == a.value() || *end != '\0' || !std::isfinite(v)) fail(where(n) + " has a \"" + name + "\" that is not a finite number");
    return v;
  }

  int index(pugi::xml_node n, const char* name, int limit) const {
    const pugi::xml_attribute a = n.attribute(name);
    if (!a) return -1;
    const int v = a.as_int(-2);
    if (v < -1 || v >= limit) fail(where(n) + " has a \"" + name + "\" of " + a.value() + ", which names nothing");
    return v;
  }

  int lightGroup(pugi::xml_node n) const {
    const pugi::xml_attribute a = n.attribute("lightGroup");
    if (!a) return -1;
    const int v = a.as_int(-1);
    if (v < 0 || v > 15 || std::to_string(v) != a.value()) fail(where(n) + " has a \"lightGroup\" of " + a.value() + ", not 0 to 15");
    return v;
  }

  uint32_t enumValue(pugi::xml_node n, const char* name, uint32_t count) const {
    const uint32_t v = n.attribute(name).as_uint(0);
    if (v >= count) fail(where(n) + " has a \"" + name + "\" out of range");
    return v;
  }

  template <size_t N>
  void list(pugi::xml_node n, const char* name, std::array<float, N>* out) const {
    const pugi::xml_attribute a = n.attribute(name);
    if (!a) return;
    const char* p = a.value();
    for (size_t i = 0; i < N; ++i) {
      char* end = nullptr;
      const float v = std::strtof(p, &end);
      if (end == p || !std::isfinite(v)) fail(where(n) + " has a \"" + name + "\" that is not " + std::to_string(N) + " finite numbers");
      (*out)[i] = v;
      p = end;
    }
    while (*p == ' ') ++p;
    if (*p) fail(where(n) + " has a \"" + name + "\" with more than " + std::to_string(N) + " numbers");
  }

  std::vector<uint8_t> bytes(pugi::xml_node n) const {
    std::vector<uint8_t> out;
    if (!decodeBase64(n.child_value(), &out)) fail(where(n) + " holds data that is not base64");
    return out;
  }

  template <typename T>
  std::vector<T> array(pugi::xml_node parent, const char* name, size_t expected, bool required) const {
    const pugi::xml_node n = parent.child(name);
    if (!n) {
      if (required) fail(where(parent) + " has no <" + name + ">");
      return {};
    }
    const std::vector<uint8_t> raw = bytes(n);
    if (raw.size() != expected * sizeof(T))
      fail(where(n) + " holds " + std::to_string(raw.size()) + " bytes where " + std::to_string(expected * sizeof(T)) + " were expected");
    std::vector<T> out(expected);
    if (!raw.empty()) std::memcpy(out.data(), raw.data(), raw.size());
    for (const T& v : out)
      if constexpr (std::is_floating_point_v<T>)
        if (!std::isfinite(v)) fail(where(n) + " holds a value that is not a finite number");
    return out;
  }

  void readImage(pugi::xml_node n) {
    Image img;
    img.name = n.attribute("name").value();
    img.mimeType = n.attribute("mime").value();
    img.encoded = bytes(n);
    scene_.images.push_back(std::move(img));
  }

  void readMaterial(pugi::xml_node n) {
    Material m;
    m.name = n.attribute("name").value();
    list(n, "baseColor", &m.baseColor);
    m.metallic = number(n, "metallic", m.metallic);
    m.roughness = number(n, "roughness", m.roughness);
    m.normalScale = number(n, "normalScale", m.normalScale);
    m.occlusionStrength = number(n, "occlusionStrength", m.occlusionStrength);
    list(n, "emissive", &m.emissive);
    m.emissiveStrength = number(n, "emissiveStrength", m.emissiveStrength);
    m.alphaMode = enumValue(n, "alphaMode", 3);
    m.alphaCutoff = number(n, "alphaCutoff", m.alphaCutoff);
    m.doubleSided = n.attribute("doubleSided").as_bool();
    m.unlit = n.attribute("unlit").as_bool();
    m.ior = number(n, "ior", m.ior);
    m.transmission = number(n, "transmission", m.transmission);
    m.thickness = number(n, "thickness", m.thickness);
    list(n, "attenuationColor", &m.attenuationColor);
    m.attenuationDistance = number(n, "attenuationDistance", m.attenuationDistance);
    m.clearcoat = number(n, "clearcoat", m.clearcoat);
    m.clearcoatRoughness = number(n, "clearcoatRoughness", m.clearcoatRoughness);
    m.clearcoatNormalScale = number(n, "clearcoatNormalScale", m.clearcoatNormalScale);
    m.specular = number(n, "specular", m.specular);
    list(n, "specularColor", &m.specularColor);
    list(n, "sheenColor", &m.sheenColor);
    m.sheenRoughness = number(n, "sheenRoughness", m.sheenRoughness);
    for (pugi::xml_node t : n.children("texture")) {
      TextureSlot slot;
      if (!textureSlotFromName(t.attribute("slot").value(), &slot)) fail(where(t) + " names an unknown slot \"" + t.attribute("slot").value() + "\"");
      TextureRef& ref = m.texture(slot);
      ref.image = index(t, "image", int(scene_.images.size()));
      if (ref.image < 0) fail(where(t) + " names no image");
      ref.texcoord = enumValue(t, "texcoord", 2);
      ref.wrapS = enumValue(t, "wrapS", 3);
      ref.wrapT = enumValue(t, "wrapT", 3);
      ref.magFilter = enumValue(t, "magFilter", 2);
      ref.minFilter = enumValue(t, "minFilter", 2);
      list(t, "offset", &ref.offset);
      ref.rotation = number(t, "rotation", 0.f);
      list(t, "scale", &ref.scale);
    }
    m.lightGroup = lightGroup(n);
    scene_.materials.push_back(std::move(m));
  }

  void readMesh(pugi::xml_node n) {
    Mesh mesh;
    mesh.name = n.attribute("name").value();
    mesh.sourceIndex = n.attribute("source").as_uint(uint32_t(scene_.meshes.size()));
    for (pugi::xml_node pn : n.children("primitive")) {
      Primitive p;
      p.material = index(pn, "material", int(scene_.materials.size()));
      const uint64_t vertices = pn.attribute("vertices").as_ullong(0);
      const uint64_t triangles = pn.attribute("triangles").as_ullong(0);
      // Declared counts are checked against the payload sizes before anything is sized by them.
      const size_t textSize = std::strlen(pn.child(xml::kStreams[0].name).child_value());
      if (vertices > textSize || triangles > std::strlen(pn.child("indices").child_value()))
        fail(where(pn) + " declares more vertices or triangles than its data holds");
      std::vector<float>* streams[] = {&p.positions, &p.normals, &p.tangents, &p.texcoords0, &p.texcoords1, &p.colors};
      for (size_t s = 0; s < 6; ++s)
        *streams[s] = array<float>(pn, xml::kStreams[s].name, size_t(vertices) * xml::kStreams[s].components, s == 0);
      p.indices = array<uint32_t>(pn, "indices", size_t(triangles) * 3, true);
      const std::string bad = checkGeometry(p);
      if (!bad.empty()) fail(where(pn) + " " + bad);
      if (p.normals.empty()) generateNormals(&p);
      mesh.primitives.push_back(std::move(p));
    }
    scene_.meshes.push_back(std::move(mesh));
  }

  void readCamera(pugi::xml_node n) {
    Camera c;
    c.name = n.attribute("name").value();
    const std::string type = n.attribute("type").value();
    if (type != "perspective" && type != "orthographic") fail(where(n) + " has an unknown type \"" + type + "\"");
    c.orthographic = type == "orthographic";
    c.yfov = number(n, "yfov", c.yfov);
    c.xmag = number(n, "xmag", c.xmag);
    c.ymag = number(n, "ymag", c.ymag);
    c.znear = number(n, "znear", c.znear);
    c.zfar = number(n, "zfar", c.zfar);
    if (!c.orthographic && (c.yfov <= 0.f || c.yfov >= 3.14159f)) fail(where(n) + " has a field of view outside (0, pi)");
    scene_.cameras.push_back(c);
  }

  void readEnvironment(pugi::xml_node n) {
    Environment& e = scene_.environment;
    e.present = true;
    list(n, "color", &e.color);
    e.intensity = number(n, "intensity", e.intensity);
    e.rotation = number(n, "rotation", e.rotation);
    e.image = index(n, "image", int(scene_.images.size()));
  }

  void readLight(pugi::xml_node n) {
    Light l;
    l.name = n.attribute("name").value();
    const std::string type = n.attribute("type").value();
    bool known = false;
    for (uint32_t t = 0; t < 3; ++t)
      if (type == xml::kLightTypes[t]) {
        l.type = LightType(t);
        known = true;
      }
    if (!known) fail(where(n) + " has an unknown type \"" + type + "\"");
    list(n, "color", &l.color);
    l.intensity = number(n, "intensity", l.intensity);
    l.innerCone = number(n, "innerCone", l.innerCone);
    l.outerCone = number(n, "outerCone", l.outerCone);
    l.lightGroup = lightGroup(n);
    scene_.lights.push_back(l);
  }

  void readNode(pugi::xml_node n) {
    Node node;
    node.name = n.attribute("name").value();
    if (node.name.empty() || !names_.insert(node.name).second) fail(where(n) + " has an empty or repeated name \"" + node.name + "\"");
    // A parent must come first, which also rules out cycles.
    node.parent = index(n, "parent", int(scene_.nodes.size()));
    node.sourceIndex = n.attribute("source").as_uint(uint32_t(scene_.nodes.size()));
    node.mesh = index(n, "mesh", int(scene_.meshes.size()));
    node.camera = index(n, "camera", int(scene_.cameras.size()));
    node.light = index(n, "light", int(scene_.lights.size()));
    list(n, "translation", &node.local.translation);
    list(n, "rotation", &node.local.rotation);
    list(n, "scale", &node.local.scale);
    const std::string catcher = n.attribute("catcher").value();
    if (!catcherFlagsFromText(catcher, &node.catcher))
      fail(where(n) + " has catcher \"" + catcher + "\"; known words are shadow and reflection");
    scene_.nodes.push_back(std::move(node));
  }

  void readChannel(pugi::xml_node n) {
    AnimationChannel a;
    a.animationIndex = n.attribute("animation").as_uint(0);
    const std::string interpolation = n.attribute("interpolation").value();
    bool known = false;
    for (uint32_t i = 0; i < 3; ++i)
      if (interpolation == xml::kInterpolations[i]) {
        a.sourceInterpolation = i;
        known = true;
      }
    if (!known) fail(where(n) + " has an unknown interpolation \"" + interpolation + "\"");
    a.node = index(n, "node", int(scene_.nodes.size()));
    if (a.node < 0) fail(where(n) + " names no node");
    const std::string kind = n.attribute("kind").value();
    for (uint32_t k = 1; k <= 3; ++k)
      if (kind == xml::kKinds[k]) a.kind = k;
    if (a.kind == 0) fail(where(n) + " has an unknown kind \"" + kind + "\"");
    const uint64_t keys = n.attribute("keys").as_ullong(0);
    if (keys == 0 || keys > std::strlen(n.child("times").child_value())) fail(where(n) + " declares a key count its data does not hold");
    a.times = array<float>(n, "times", size_t(keys), true);
    a.values = array<float>(n, "values", size_t(keys) * a.componentCount(), true);
    for (size_t i = 1; i < a.times.size(); ++i)
      if (a.times[i] < a.times[i - 1]) fail(where(n) + " has key times that are not ascending");
    scene_.animations.push_back(std::move(a));
  }

  void readOcio(pugi::xml_node ocio) {
    scene_.ocio.configText = ocio.child("config").child_value();
    if (scene_.ocio.configText.empty()) fail(where(ocio) + " has no <config> text");
    std::set<std::string> names;
    for (pugi::xml_node f : ocio.children("file")) {
      OcioFile file;
      file.name = f.attribute("name").value();
      if (file.name.empty() || file.name.find('/') != std::string::npos || file.name == "." || file.name == ".." ||
          !names.insert(file.name).second)
        fail(where(f) + " has a file name that is empty, repeated or not a plain name");
      file.bytes = bytes(f);
      scene_.ocio.files.push_back(std::move(file));
    }
  }

  const std::string& path_;
  SceneDescription scene_;
  std::set<std::string> names_;
};

}  // namespace

SceneDescription readSceneXml(const std::string& path, const std::string& text) { return XmlReader(path).read(text); }

OcioConfig readOcioFromXml(const std::string& path, const std::string& text) { return XmlReader(path).ocioOnly(text); }

}  // namespace zvr::loadstore
