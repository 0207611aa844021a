#pragma once

namespace limitra {

class UsageStore;

// The process's current store. The tick reaches the store only through here,
// so a timer never keeps a store of its own alive.
namespace UsageStoreRegistry {
    UsageStore* shared();
    void setShared(UsageStore* store);
} // namespace UsageStoreRegistry

} // namespace limitra
