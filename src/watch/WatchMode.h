#pragma once

#include "platform/Environment.h"
#include "store/UsageStore.h"

#include <QByteArray>
#include <QObject>

#include <memory>

namespace limitra {

// `limitra --watch`: a store that follows the settings as the tray's does, and a
// status line (StatusLine) on stdout after each refresh and whenever a tick
// changes it. While a tray application runs on the session bus its records are
// shown and nothing is fetched here.
class WatchMode : public QObject
{
    Q_OBJECT

public:
    explicit WatchMode(platform::Environment env, QObject* parent = nullptr);
    ~WatchMode() override;

    // Runs until SIGTERM or SIGINT. Status 0.
    static int main(int argc, char** argv);

public Q_SLOTS:
    // SIGUSR1: the tray refreshes when there is one (its signal brings the
    // records here); otherwise this store does.
    void refreshNow();
    // A tray finished a refresh: take its records over at once.
    void trayRefreshed();

private:
    void print(bool always);

    platform::Environment m_env;
    std::unique_ptr<UsageStore> m_store;
    QByteArray m_last;
};

} // namespace limitra
