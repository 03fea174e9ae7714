#include "core/accumulation_file.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <vector>

#include "core/atomic_file.h"
#include "core/failure.h"
#include "core/framebuffer.h"

namespace zvr::core {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "accumulation files are little-endian");

constexpr char kMagic[8] = {'Z', 'V', 'R', 'A', 'C', 'C', '0', '1'};

struct Header {
  char magic[8];
  uint32_t width, height, iterations, channels;
  uint64_t checksum;  // FNV-1a of the sums' bytes
};

uint64_t checksumOf(const std::vector<double>& sums) {
  uint64_t hash = 0xcbf29ce484222325ull;
  const auto* bytes = reinterpret_cast<const unsigned char*>(sums.data());
  for (size_t i = 0; i < sums.size() * sizeof(double); ++i) hash = (hash ^ bytes[i]) * 0x100000001b3ull;
  return hash;
}

void requireSums(const FrameBuffer& frameBuffer, const char* what) {
  if (frameBuffer.isDeep())
    fail(ZVR_ERROR_UNSUPPORTED, std::string("a deep framebuffer has no flat accumulation to ") + what);
  if (!frameBuffer.holdsSums())
    fail(ZVR_ERROR_UNSUPPORTED, std::string("the framebuffer holds resolved values or running averages, not sums to ") + what);
}

std::string sizeText(uint32_t width, uint32_t height) { return std::to_string(width) + "x" + std::to_string(height); }

}  // namespace

void saveAccumulation(const FrameBuffer& frameBuffer, const std::string& path) {
  requireSums(frameBuffer, "save");
  Header header{};
  std::memcpy(header.magic, kMagic, sizeof kMagic);
  header.width = frameBuffer.width();
  header.height = frameBuffer.height();
  header.channels = 4;
  const std::vector<double> sums = frameBuffer.readSums(&header.iterations);
  header.checksum = checksumOf(sums);
  writeAtomically(path, [&](const std::string& temporary) {
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(&header), sizeof header);
    file.write(reinterpret_cast<const char*>(sums.data()), std::streamsize(sums.size() * sizeof(double)));
    file.close();
    if (!file) fail(ZVR_ERROR_IO, path + ": cannot be written: " + std::strerror(errno));
  });
}

void addAccumulation(FrameBuffer& frameBuffer, const std::string& path) {
  requireSums(frameBuffer, "add to");
  std::ifstream file(path, std::ios::binary);
  if (!file) fail(ZVR_ERROR_IO, path + ": cannot be read: " + std::strerror(errno));
  Header header{};
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header) || std::memcmp(header.magic, kMagic, sizeof kMagic) != 0)
    fail(ZVR_ERROR_IO, path + ": not an accumulation file");
  if (header.channels != 4) fail(ZVR_ERROR_IO, path + ": " + std::to_string(header.channels) + " channels, not 4");
  if (header.width != frameBuffer.width() || header.height != frameBuffer.height())
    fail(ZVR_ERROR_INVALID_ARGUMENT, path + " holds " + sizeText(header.width, header.height) +
                                         " pixels but the framebuffer is " + sizeText(frameBuffer.width(), frameBuffer.height()));
  std::vector<double> sums(size_t(header.width) * header.height * 4);
  if (!file.read(reinterpret_cast<char*>(sums.data()), std::streamsize(sums.size() * sizeof(double))))
    fail(ZVR_ERROR_IO, path + ": truncated");
  if (file.peek() != std::ifstream::traits_type::eof()) fail(ZVR_ERROR_IO, path + ": longer than its header says");
  if (checksumOf(sums) != header.checksum) fail(ZVR_ERROR_IO, path + ": checksum mismatch, the file is damaged");
  frameBuffer.addSums(sums, header.iterations);
}

}  // namespace zvr::core
