#pragma once

#include <QString>
#include <QVariantMap>

#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace limitra {

// Holds one top-level window built from a QML component of the module whose
// root is a Window. A window that is open is raised and activated instead of
// being built a second time.
class WindowHost
{
public:
    WindowHost();
    ~WindowHost();
    WindowHost(const WindowHost&) = delete;
    WindowHost& operator=(const WindowHost&) = delete;

    QQuickWindow* window() const { return m_window.get(); }
    bool isOpen() const;

    // Brings the open window to the front; false when none is open.
    bool raise();
    // Builds the window anew from `component` (e.g. "SettingsView.qml") with
    // the given properties, shows it and brings it to the front. Null when the
    // component cannot be loaded.
    QQuickWindow* open(QQmlEngine& engine, const QString& component, const QVariantMap& properties);
    // Destroys the window, open or not.
    void reset();

private:
    std::unique_ptr<QQuickWindow> m_window;
};

} // namespace limitra
