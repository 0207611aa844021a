#pragma once

#include "platform/Environment.h"

#include <QObject>

#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace limitra {

class WelcomeDetection;
class WindowHost;

// The welcome guide, "Bienvenida". Which tools left credentials is looked up
// again at every opening; the window opens once that is known, so it is placed
// at its full height, or after half a second with the answer still to come.
class WelcomeWindow : public QObject
{
    Q_OBJECT

public:
    // The engine must have been prepared (UiModule::prepare) and outlive this.
    WelcomeWindow(QQmlEngine& engine, const platform::Environment& env, QObject* parent = nullptr);
    ~WelcomeWindow() override;

    // Opens the window, or raises and activates the open one; never a second
    // window. Either way the detection starts again.
    void show();
    // Null until first shown.
    QQuickWindow* window() const;

private:
    void open();

    QQmlEngine& m_engine;
    bool m_waiting = false;
    std::unique_ptr<WelcomeDetection> m_detection;
    // Last, so the window goes before the detection it shows.
    std::unique_ptr<WindowHost> m_host;
};

} // namespace limitra
