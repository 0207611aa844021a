#include "store/UsageStoreRegistry.h"

#include "store/UsageStore.h"

#include <QPointer>

namespace limitra::UsageStoreRegistry {

namespace {
    // Main thread only. A QPointer, so a destroyed store is never reached.
    QPointer<UsageStore>& slot()
    {
        static QPointer<UsageStore> store;
        return store;
    }
} // namespace

UsageStore* shared()
{
    return slot().data();
}

void setShared(UsageStore* store)
{
    slot() = store;
}

} // namespace limitra::UsageStoreRegistry
