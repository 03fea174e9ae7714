// Filling RenderSettings from the configuration document. Root-level getters ignore a value of
// the wrong type; block-level getters throw picojson's type-mismatch assertion.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "program/config_document.h"
#include "program/render_settings.h"

namespace zvrs {

// Number conversions shared with the context block reader.
uint32_t toUnsigned(double number);
int32_t toInt(double number);

bool readUnsignedKey(const picojson::value& node, const std::string& key, uint32_t* field);
bool readIntKey(const picojson::value& node, const std::string& key, int32_t* field);
bool readFloatKey(const picojson::value& node, const std::string& key, float* field);
bool readBoolKey(const picojson::value& node, const std::string& key, bool* field);
bool readStringKey(const picojson::value& node, const std::string& key, std::string* field);
bool readImageFilterKey(const picojson::value& node, const std::string& key, uint32_t* field);
bool readMatrixKey(const picojson::value& node, const std::string& key, float* matrix16);
void readBlockUnsigned(const picojson::value& block, const std::string& key, uint32_t* field);
void readBlockFloat(const picojson::value& block, const std::string& key, float* field);

void readSettingsFromConfig(RenderSettings& settings, const ConfigDocument& document,
                            const std::vector<int32_t>& pluginKinds);

}  // namespace zvrs
