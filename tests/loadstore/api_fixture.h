// A context and material system of the real render library, for tests of the load/store interface.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "engine/ZvrLoadStore.h"
#include "tests/support/last_error.h"
#include "tests/support/scoped_context.h"

namespace zvr::testing {

class LoadStoreApi : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(context.status(), 0);
    ASSERT_EQ(zvrContextCreateMaterialSystem(context, 0, &materialSystem), 0);
  }

  // The program's teardown order: material system, scene, the imported objects, then the context.
  void TearDown() override {
    if (materialSystem) {
      EXPECT_EQ(zvrObjectDelete(materialSystem), 0);
    }
    if (scene) {
      EXPECT_EQ(zvrObjectDelete(scene), 0);
    }
    EXPECT_EQ(zvrsDeleteListImportedObjects(nullptr), 0);
  }

  std::string lastError() const { return ::lastError(context); }

  std::vector<ZvrObject> liveObjects(ZvrContextInfo key) const {
    size_t size = 0;
    EXPECT_EQ(zvrContextGetInfo(context, key, 0, nullptr, &size), 0);
    std::vector<ZvrObject> handles(size / sizeof(ZvrObject));
    if (!handles.empty()) {
      EXPECT_EQ(zvrContextGetInfo(context, key, size, handles.data(), nullptr), 0);
    }
    return handles;
  }

  template <ZvrStatus (*List)(void*, size_t, uint32_t*)>
  std::vector<ZvrObject> imported() const {
    uint32_t count = 0;
    EXPECT_EQ(List(nullptr, 0, &count), 0);
    std::vector<ZvrObject> handles(count);
    if (count) {
      EXPECT_EQ(List(handles.data(), count * sizeof(ZvrObject), nullptr), 0);
    }
    return handles;
  }

  ScopedContext context;
  ZvrMaterialSystem materialSystem = nullptr;
  ZvrScene scene = nullptr;
};

// A fixed-size value read through any of the render library's get-info calls.
template <class T, class Get, class Key>
T info(Get get, ZvrObject object, Key key) {
  T value{};
  EXPECT_EQ(get(object, key, sizeof value, &value, nullptr), 0) << "key " << key;
  return value;
}

using Name = std::array<char, 256>;

// The name of the group above a shape, light, camera or group.
template <class Of>
std::string parentName(ZvrStatus (*get)(Of, size_t, char*, size_t*), Of of) {
  char name[1024] = "unset";
  EXPECT_EQ(get(of, sizeof name, name, nullptr), 0);
  return name;
}

inline std::string groupParent(const std::string& group) {
  return parentName(zvrsGetParentGroupFromGroup, group.c_str());
}

}  // namespace zvr::testing
