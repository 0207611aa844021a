#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>
#include <mutex>

class QSettings;

namespace limitra::platform {

// The per-user settings, one flat key-value file. One object per file, with a
// change signal per key, so the views, the store and the tray all follow a
// change at once. Readers apply the documented defaults and fall back to them
// for values of the wrong type. Safe to read and write from any thread; signals
// are delivered in the thread of their receivers.
class Defaults : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool showClaude READ showClaude WRITE setShowClaude NOTIFY showClaudeChanged)
    Q_PROPERTY(bool showCodex READ showCodex WRITE setShowCodex NOTIFY showCodexChanged)
    Q_PROPERTY(int refreshIntervalMinutes READ refreshIntervalMinutes WRITE setRefreshIntervalMinutes NOTIFY
                   refreshIntervalMinutesChanged)
    Q_PROPERTY(QString menuBarStyle READ menuBarStyle WRITE setMenuBarStyle NOTIFY menuBarStyleChanged)
    Q_PROPERTY(QString percentMode READ percentMode WRITE setPercentMode NOTIFY percentModeChanged)
    Q_PROPERTY(bool hasShownWelcome READ hasShownWelcome WRITE setHasShownWelcome NOTIFY hasShownWelcomeChanged)
    Q_PROPERTY(bool notifyLow READ notifyLow WRITE setNotifyLow NOTIFY notifyLowChanged)

public:
    explicit Defaults(const QString& filePath, QObject* parent = nullptr);
    ~Defaults() override;

    // ~/.config/limitra/limitra.conf, shared by the whole process.
    static std::shared_ptr<Defaults> system();
    static QString systemFilePath();

    QString filePath() const;
    // Takes in what another process wrote to the file since it was last read.
    // No change signal is sent: a reader that needs this polls.
    void reload();

    // Stored boolean, else true (any other type counts as true).
    bool showClaude() const;
    bool showCodex() const;
    // Stored integer, 5 while absent or not a number; shown as stored.
    int refreshIntervalMinutes() const;
    // The interval the refresh cycle uses: 0 or less means 5.
    int effectiveRefreshIntervalMinutes() const;
    // Raw strings; the enumerations decide what an unknown value means.
    QString menuBarStyle() const;
    QString percentMode() const;
    bool hasShownWelcome() const;
    // Whether a limit running low is announced on the desktop; stored boolean, else true.
    bool notifyLow() const;
    double lastUpdateCheck() const;

    void setShowClaude(bool value);
    void setShowCodex(bool value);
    void setRefreshIntervalMinutes(int value);
    void setMenuBarStyle(const QString& value);
    void setPercentMode(const QString& value);
    void setHasShownWelcome(bool value);
    void setNotifyLow(bool value);
    void setLastUpdateCheck(double value);

    // Raw access, for values of any type (tests write wrong types this way).
    QVariant value(const QString& key) const;
    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key);

Q_SIGNALS:
    void showClaudeChanged();
    void showCodexChanged();
    void refreshIntervalMinutesChanged();
    void menuBarStyleChanged();
    void percentModeChanged();
    void hasShownWelcomeChanged();
    void notifyLowChanged();
    void lastUpdateCheckChanged();
    void changed(const QString& key);

private:
    bool boolOr(const QString& key, bool fallback) const;
    void notify(const QString& key);

    mutable std::mutex m_mutex;
    std::unique_ptr<QSettings> m_settings;
};

} // namespace limitra::platform
