#pragma once

#include <QObject>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

namespace limitra {

class UsageStore;

// What the panel's controls do. The panel reaches the application only through
// this object, so the tray and the tests see every request it makes.
class PanelActions : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The application provides the panel's actions.")

public:
    explicit PanelActions(UsageStore& store, QObject* parent = nullptr);

    // Asks the application to open (or raise) the settings window and come to the front.
    Q_INVOKABLE void openSettings();
    // Starts a refresh and returns at once; a refresh under way absorbs it.
    Q_INVOKABLE void refresh();
    // Ends the application.
    Q_INVOKABLE void quit();
    // Hands the address to the desktop's default handler; the outcome is ignored.
    Q_INVOKABLE void openUrl(const QUrl& url);

Q_SIGNALS:
    void settingsRequested();
    void quitRequested();

private:
    UsageStore& m_store;
};

} // namespace limitra
