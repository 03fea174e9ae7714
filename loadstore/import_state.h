// What the imports left behind for the caller: object lists, groups, animation records, and the
// objects each context got, so they can be deleted once. Process-wide because the C interface
// hands these out without a handle.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "engine/ZvrLoadStore.h"
#include "loadstore/scene_description.h"

namespace zvr::loadstore {

struct CreatedObject {
  ZvrObject handle;
  ZvrContext context;
  ZvrObjectType kind;
};

struct ImportResult {
  std::vector<ZvrShape> shapes;
  std::vector<ZvrLight> lights;
  std::vector<ZvrCamera> cameras;
  std::map<ZvrObject, std::string> parentGroups;  // objects without a group are absent
  std::map<std::string, std::pair<std::string, Trs>> groups;  // name -> (parent name, local)
  std::vector<AnimationChannel> animations;
  std::vector<std::string> animationGroupNames;  // parallel to animations
};

class ImportState {
 public:
  static ImportState& instance();

  std::mutex& mutex() { return mutex_; }

  // Makes `result` the last import; its objects join those of earlier imports for deletion.
  void adopt(ImportResult result, const std::vector<CreatedObject>& created);
  const ImportResult& last() const { return last_; }
  bool parentOf(ZvrObject object, std::string* name) const;
  bool group(const std::string& name, std::string* parent, Trs* local) const;
  const ZvrsAnimationRecord* animation(uint32_t index) const;
  void releaseImportedData();
  // Created objects of one context (all when null), removed from the registry.
  std::vector<CreatedObject> takeCreated(ZvrContext context);
  void forgetObjects(const std::vector<CreatedObject>& deleted);

 private:
  void rebuildRecords();

  std::mutex mutex_;
  ImportResult last_;
  std::vector<ZvrsAnimationRecord> records_;
  std::vector<CreatedObject> created_;
};

}  // namespace zvr::loadstore
