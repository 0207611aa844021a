#pragma once

#include <QString>

#include <memory>

class QQmlEngine;
class QQuickItem;

namespace limitra {

class PanelActions;
class UsageStore;
namespace platform {
    class Defaults;
}

// Builds the panel's content: one LimitsPanelView item, 360 wide, as tall as its
// content (implicitHeight). The tray's window and the snapshot both show it.
struct LimitsPanel
{
    // The engine must have been prepared (UiModule::prepare). Null on failure,
    // with the QML errors in `errors` when given.
    static std::unique_ptr<QQuickItem> create(QQmlEngine& engine, UsageStore& store,
        platform::Defaults& settings, PanelActions& actions, QString* errors = nullptr);
};

} // namespace limitra
