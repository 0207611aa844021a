#include "ui/panel/LimitsPanel.h"

#include "platform/Defaults.h"
#include "store/UsageStore.h"
#include "ui/panel/PanelActions.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>

namespace limitra {

std::unique_ptr<QQuickItem> LimitsPanel::create(QQmlEngine& engine, UsageStore& store,
    platform::Defaults& settings, PanelActions& actions, QString* errors)
{
    QQmlComponent component(&engine, QUrl(QStringLiteral("qrc:/qt/qml/Limitra/Panel/LimitsPanelView.qml")));
    QObject* object = component.createWithInitialProperties({
        { QStringLiteral("store"), QVariant::fromValue(&store) },
        { QStringLiteral("settings"), QVariant::fromValue(&settings) },
        { QStringLiteral("actions"), QVariant::fromValue(&actions) },
    });
    auto* item = qobject_cast<QQuickItem*>(object);
    if (!item) {
        delete object;
        if (errors)
            *errors = component.errorString();
        return nullptr;
    }
    QQmlEngine::setObjectOwnership(item, QQmlEngine::CppOwnership);
    return std::unique_ptr<QQuickItem>(item);
}

} // namespace limitra
