#pragma once

#include "model/LimitRow.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

namespace limitra {

class UsageStore;

// Warns on the desktop when a limit of a shown service runs low: once when its
// row enters the orange band and once more at the red one, per window (the
// row's id and its reset moment). What was sent is kept in a small state file,
// so a restart or a share hovering at a band's edge never warns twice.
class LowLimitNotifier : public QObject
{
    Q_OBJECT

public:
    explicit LowLimitNotifier(UsageStore& store, QObject* parent = nullptr);
    ~LowLimitNotifier() override;

    // $XDG_STATE_HOME/limitra/warnings.json, or under ~/.local/state without the variable.
    static QString stateFilePath(const QString& home);

Q_SIGNALS:
    // A warning's default action: the user wants to see the limits.
    void panelRequested();

private Q_SLOTS:
    void onActionInvoked(uint id, const QString& action);

private:
    // One window that was warned about, and the worst band it was warned for.
    struct Window
    {
        QString id;
        double resetsAt = 0;
        int band = 0;
    };

    void check();
    bool warnIfNew(const QString& service, const LimitRow& row, double now);
    void send(const QString& service, const LimitRow& row, int band, double now);
    void load();
    void save() const;

    UsageStore& m_store;
    QString m_path;
    QList<Window> m_windows;
    // Ids the notification service gave our warnings, so only their actions count.
    QSet<uint> m_sent;
};

} // namespace limitra
