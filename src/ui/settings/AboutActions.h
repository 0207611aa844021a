#pragma once

#include "platform/Environment.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

#include <functional>

namespace limitra {

// What the "Acerca de" tab shows and does: the version line, the manual update
// check with its result line, and the link to the welcome guide. The check runs
// on a worker thread; its result arrives on this object's thread.
class AboutActions : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The settings window provides the About tab's actions.")
    Q_PROPERTY(QString versionLine READ versionLine CONSTANT)
    Q_PROPERTY(bool checking READ isChecking NOTIFY checkingChanged)
    Q_PROPERTY(QString result READ result NOTIFY resultChanged)

public:
    using UrlOpener = std::function<void(const QUrl&)>;

    AboutActions(const platform::Environment& env, UrlOpener opener, QObject* parent = nullptr);

    // "Versión 1.0.0", or "Versión dev" for a build without a version.
    static QString versionLine(const QString& builtVersion);
    QString versionLine() const;
    bool isChecking() const { return m_checking; }
    // The last check's outcome; empty before the first and during a check.
    QString result() const { return m_result; }

    // Reads the version feed; a newer version's download address is opened at once.
    Q_INVOKABLE void checkForUpdates();
    Q_INVOKABLE void openWelcome();

Q_SIGNALS:
    void checkingChanged();
    void resultChanged();
    void welcomeRequested();

private:
    void setChecking(bool checking);
    void setResult(const QString& result);

    platform::Environment m_env;
    UrlOpener m_opener;
    bool m_checking = false;
    QString m_result;
};

} // namespace limitra
