#include "loadstore/ocio_files.h"

#include <cctype>
#include <cstdio>

#include "loadstore/load_error.h"

namespace zvr::loadstore {

namespace {

bool fileNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-'; }

void writeFile(const std::string& path, const void* data, size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) throw LoadError(path, "cannot be created for writing");
  const bool written = size == 0 || std::fwrite(data, 1, size, f) == size;
  if (std::fclose(f) != 0 || !written) {
    std::remove(path.c_str());
    throw LoadError(path, "could not be written completely");
  }
}

}  // namespace

std::string replaceFileName(const std::string& text, const std::string& from, const std::string& to) {
  std::string out;
  size_t at = 0;
  while (true) {
    const size_t found = text.find(from, at);
    if (found == std::string::npos) break;
    const bool startOk = found == 0 || !fileNameChar(text[found - 1]);
    const bool endOk = found + from.size() == text.size() || !fileNameChar(text[found + from.size()]);
    out.append(text, at, found - at);
    out += startOk && endOk ? to : from;
    at = found + from.size();
  }
  out.append(text, at, std::string::npos);
  return out;
}

WrittenOcioFiles writeOcioFiles(const OcioConfig& ocio, const std::string& tempName) {
  WrittenOcioFiles written;
  if (ocio.configText.empty()) return written;
  const size_t slash = tempName.find_last_of('/');
  const std::string base = slash == std::string::npos ? tempName : tempName.substr(slash + 1);
  std::string config = ocio.configText;
  try {
    for (const OcioFile& f : ocio.files) {
      const std::string local = base + "_" + f.name;
      config = replaceFileName(config, f.name, local);
      const std::string path = tempName + "_" + f.name;
      writeFile(path, f.bytes.data(), f.bytes.size());
      written.files.push_back(path);
    }
    written.configPath = tempName + ".ocio";
    writeFile(written.configPath, config.data(), config.size());
    written.files.insert(written.files.begin(), written.configPath);
  } catch (...) {
    for (const std::string& path : written.files) std::remove(path.c_str());
    throw;
  }
  return written;
}

}  // namespace zvr::loadstore
