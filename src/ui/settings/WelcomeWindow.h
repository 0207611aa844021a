#pragma once

#include "platform/Environment.h"

#include <QObject>

#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace limitra {

class WelcomeDetection;
class WindowHost;

// The welcome guide, "Bienvenida". It opens at once; which tools left
// credentials is looked up again at every opening and filled in when known.
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
    QQmlEngine& m_engine;
    std::unique_ptr<WelcomeDetection> m_detection;
    // Last, so the window goes before the detection it shows.
    std::unique_ptr<WindowHost> m_host;
};

} // namespace limitra
