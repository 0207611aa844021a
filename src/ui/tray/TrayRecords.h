#pragma once

#include <QObject>
#include <QString>

namespace limitra {

class UsageStore;

// Offers the store's records on the session bus (TrayBus), so that
// `limitra --watch` shows what this tray fetched instead of refreshing the same
// tokens itself.
class TrayRecords : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.limitra.Usage")

public:
    explicit TrayRecords(UsageStore& store, QObject* parent = nullptr);
    ~TrayRecords() override;

public Q_SLOTS:
    Q_SCRIPTABLE QString Records() const;
    Q_SCRIPTABLE void Refresh();

Q_SIGNALS:
    Q_SCRIPTABLE void RecordsChanged();

private:
    UsageStore& m_store;
};

} // namespace limitra
