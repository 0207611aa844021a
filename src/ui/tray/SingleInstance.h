#pragma once

#include <QObject>

#include <memory>

class QLocalServer;

namespace limitra {

// One tray application per user: the first process holds a well-known name on
// the session bus (or, with no bus, a socket in the runtime folder); a later one
// asks it to show its panel and leaves.
class SingleInstance : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.limitra.Instance")

public:
    static inline const QString kService = QStringLiteral("app.limitra.Limitra");
    static inline const QString kPath = QStringLiteral("/Instance");

    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when this process is now the one instance; false when another one
    // runs and has been asked to show its panel.
    bool claim();
    // Gives the name up at once, so that a start right after quitting brings up
    // a new instance instead of asking this one, which is on its way out.
    void release();

public Q_SLOTS:
    Q_SCRIPTABLE void ShowPanel();

Q_SIGNALS:
    void showPanelRequested();

private:
    bool claimSocket();

    std::unique_ptr<QLocalServer> m_server;
};

} // namespace limitra
