#include "ui/panel/PanelActions.h"

#include "store/UsageStore.h"

#include <QCoreApplication>
#include <QDesktopServices>

namespace limitra {

PanelActions::PanelActions(UsageStore& store, QObject* parent)
    : QObject(parent)
    , m_store(store)
{
}

void PanelActions::openSettings()
{
    Q_EMIT settingsRequested();
}

void PanelActions::refresh()
{
    m_store.requestRefresh();
}

void PanelActions::quit()
{
    Q_EMIT quitRequested();
    QCoreApplication::quit();
}

void PanelActions::openUrl(const QUrl& url)
{
    QDesktopServices::openUrl(url);
}

} // namespace limitra
