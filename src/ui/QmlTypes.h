#pragma once

#include "model/LimitRow.h"
#include "model/ServiceUsage.h"
#include "platform/Defaults.h"
#include "store/UsageStore.h"
#include "update/UpdateInfo.h"

#include <QObject>
#include <QtQml/qqml.h>

namespace limitra {

// The core's records and objects as the panel's QML sees them. The records are
// values: QML reads their properties and gets a list of rows as an array.

struct LimitRowValueType
{
    Q_GADGET
    QML_FOREIGN(limitra::LimitRow)
    QML_VALUE_TYPE(limitRow)
};

struct ServiceUsageValueType
{
    Q_GADGET
    QML_FOREIGN(limitra::ServiceUsage)
    QML_VALUE_TYPE(serviceUsage)
};

struct UpdateInfoValueType
{
    Q_GADGET
    QML_FOREIGN(limitra::UpdateInfo)
    QML_VALUE_TYPE(updateInfo)
};

struct UsageStoreType
{
    Q_GADGET
    QML_FOREIGN(limitra::UsageStore)
    QML_NAMED_ELEMENT(UsageStore)
    QML_UNCREATABLE("The application owns the one store.")
};

struct DefaultsType
{
    Q_GADGET
    QML_FOREIGN(limitra::platform::Defaults)
    QML_NAMED_ELEMENT(Defaults)
    QML_UNCREATABLE("The application owns the settings.")
};

} // namespace limitra
