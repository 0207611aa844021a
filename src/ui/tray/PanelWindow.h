#pragma once

#include <QElapsedTimer>
#include <QPoint>
#include <QQuickWindow>
#include <QRect>

#include <memory>

class QQmlEngine;

namespace limitra {

class PanelActions;
class UsageStore;
namespace platform {
class Defaults;
}

// The drop-down panel: the panel's content in a frameless, always-on-top window
// without a taskbar entry, placed beside the tray icon. It hides when it loses
// focus or on Escape.
class PanelWindow : public QQuickWindow
{
    Q_OBJECT

public:
    PanelWindow(QQmlEngine& engine, UsageStore& store, platform::Defaults& settings, PanelActions& actions);
    ~PanelWindow() override;

    // Opens the panel at `anchor` (screen coordinates; the cursor when null),
    // or closes it when open. The click that just closed it by taking the focus
    // away does not open it again.
    void toggle(QPoint anchor);
    void open(QPoint anchor);

    // Top-left corner for a panel of `size` anchored at a click on a tray icon:
    // below the point on a panel in the upper half of the screen, above it in the
    // lower half, horizontally centred on it, always inside `available`.
    static QPoint place(QPoint anchor, QSize size, QRect available);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void fitContent();
    void onActiveChanged();

    std::unique_ptr<QQuickItem> m_content;
    bool m_wasActive = false;
    QElapsedTimer m_closedByFocusLoss;
};

} // namespace limitra
