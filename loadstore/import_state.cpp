#include "loadstore/import_state.h"

#include <algorithm>
#include <set>

namespace zvr::loadstore {

ImportState& ImportState::instance() {
  static ImportState state;
  return state;
}

void ImportState::adopt(ImportResult result, const std::vector<CreatedObject>& created) {
  last_ = std::move(result);
  created_.insert(created_.end(), created.begin(), created.end());
  rebuildRecords();
}

void ImportState::rebuildRecords() {
  records_.clear();
  records_.reserve(last_.animations.size());
  for (size_t i = 0; i < last_.animations.size(); ++i) {
    const AnimationChannel& a = last_.animations[i];
    ZvrsAnimationRecord r{};
    r.animationIndex = a.animationIndex;
    r.sourceInterpolation = a.sourceInterpolation;
    r.groupName = last_.animationGroupNames[i].c_str();
    r.kind = a.kind;
    r.componentCount = a.componentCount();
    r.timeCount = uint32_t(a.times.size());
    r.keyCount = uint32_t(a.values.size() / a.componentCount());
    r.times = a.times.data();
    r.values = a.values.data();
    records_.push_back(r);
  }
}

bool ImportState::parentOf(ZvrObject object, std::string* name) const {
  const auto it = last_.parentGroups.find(object);
  *name = it == last_.parentGroups.end() ? std::string() : it->second;
  return true;
}

bool ImportState::group(const std::string& name, std::string* parent, Trs* local) const {
  const auto it = last_.groups.find(name);
  if (it == last_.groups.end()) return false;
  *parent = it->second.first;
  *local = it->second.second;
  return true;
}

const ZvrsAnimationRecord* ImportState::animation(uint32_t index) const {
  return index < records_.size() ? &records_[index] : nullptr;
}

void ImportState::releaseImportedData() {
  last_.groups.clear();
  last_.parentGroups.clear();
  last_.animations.clear();
  last_.animationGroupNames.clear();
  records_.clear();
}

std::vector<CreatedObject> ImportState::takeCreated(ZvrContext context) {
  std::vector<CreatedObject> taken;
  for (const CreatedObject& o : created_)
    if (!context || o.context == context) taken.push_back(o);
  return taken;
}

void ImportState::forgetObjects(const std::vector<CreatedObject>& deleted) {
  std::set<ZvrObject> gone;
  for (const CreatedObject& o : deleted) gone.insert(o.handle);
  auto dead = [&](ZvrObject h) { return gone.count(h) > 0; };
  created_.erase(std::remove_if(created_.begin(), created_.end(), [&](const CreatedObject& o) { return dead(o.handle); }),
                 created_.end());
  last_.shapes.erase(std::remove_if(last_.shapes.begin(), last_.shapes.end(), dead), last_.shapes.end());
  last_.lights.erase(std::remove_if(last_.lights.begin(), last_.lights.end(), dead), last_.lights.end());
  last_.cameras.erase(std::remove_if(last_.cameras.begin(), last_.cameras.end(), dead), last_.cameras.end());
  for (ZvrObject h : gone) last_.parentGroups.erase(h);
}

}  // namespace zvr::loadstore
