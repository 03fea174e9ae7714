// An image file as the program wrote it, read back whole with OpenImageIO: the one flat-image reader
// of the render, app, farm and viewer tests.
#pragma once

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

struct ImageFile {
  int width = 0, height = 0, nchannels = 0;
  std::string format;  // OpenImageIO's name for it; empty when the file could not be read
  bool allFloat = false;  // every channel stored as 32-bit float
  std::vector<std::string> channels;
  std::map<std::string, std::string> attributes;  // the string ones
  std::vector<float> values;  // top row first, channels interleaved

  float at(int x, int y, int c) const { return values[(size_t(y) * width + x) * nchannels + c]; }
  float at(const std::string& channel, int pixel) const {
    const auto found = std::find(channels.begin(), channels.end(), channel);
    return found == channels.end() ? NAN : values[size_t(pixel) * nchannels + (found - channels.begin())];
  }
};

inline ImageFile readImageFile(const std::string& path) {
  ImageFile image;
  auto input = OIIO::ImageInput::open(path);
  if (!input) return image;
  const OIIO::ImageSpec& spec = input->spec();
  image.width = spec.width;
  image.height = spec.height;
  image.nchannels = spec.nchannels;
  image.format = input->format_name();
  image.allFloat = spec.format == OIIO::TypeDesc::FLOAT && spec.channelformats.empty();
  image.channels = spec.channelnames;
  for (const OIIO::ParamValue& attribute : spec.extra_attribs)
    if (attribute.type() == OIIO::TypeDesc::STRING)
      image.attributes[attribute.name().string()] = attribute.get_string();
  image.values.resize(size_t(spec.width) * spec.height * spec.nchannels);
  return input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.values.data()) ? image : ImageFile();
}
