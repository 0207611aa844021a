#include "ui/tray/LowLimitNotifier.h"

#include "model/FormatUtil.h"
#include "model/PercentMode.h"
#include "model/UsageBand.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "store/UsageStore.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace limitra {

namespace {
    const QString kService = QStringLiteral("org.freedesktop.Notifications");
    const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
    const QString kAppId = QStringLiteral("app.limitra.Limitra");
    // A reset moment worked out from "seconds until the reset" moves a little
    // between fetches; within this many seconds it is still the same window.
    constexpr double kSameWindow = 600;
} // namespace

LowLimitNotifier::LowLimitNotifier(UsageStore& store, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_path(stateFilePath(store.environment().home))
{
    load();
    connect(&m_store, &UsageStore::claudeChanged, this, &LowLimitNotifier::check);
    connect(&m_store, &UsageStore::codexChanged, this, &LowLimitNotifier::check);
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Any sender: the service may start after us; the ids tell our warnings apart.
    if (bus.isConnected())
        bus.connect(
            {}, kPath, kService, QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint, QString)));
}

LowLimitNotifier::~LowLimitNotifier() = default;

QString LowLimitNotifier::stateFilePath(const QString& home)
{
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    // The base directory rules ignore a relative path.
    if (!QDir::isAbsolutePath(state))
        state = QDir(home).filePath(QStringLiteral(".local/state"));
    return QDir(state).filePath(QStringLiteral("limitra/warnings.json"));
}

void LowLimitNotifier::check()
{
    const platform::Defaults& defaults = *m_store.environment().defaults;
    if (!defaults.notifyLow())
        return;
    const double now = m_store.environment().now();
    const qsizetype before = m_windows.size();
    // Windows that reset can never warn again: only the open ones are kept.
    m_windows.removeIf([now](const Window& w) { return w.resetsAt <= now; });
    bool changed = m_windows.size() != before;

    const auto service = [&](const QString& name, const ServiceUsage& usage, bool shown) {
        if (!shown || usage.error)
            return;
        for (const LimitRow& row : usage.rows)
            changed |= warnIfNew(name, row, now);
    };
    service(QStringLiteral("Claude Code"), m_store.claude(), defaults.showClaude());
    service(QStringLiteral("Codex"), m_store.codex(), defaults.showCodex());
    if (changed)
        save();
}

bool LowLimitNotifier::warnIfNew(const QString& service, const LimitRow& row, double now)
{
    if (!row.resetsAt || *row.resetsAt <= now)
        return false;
    const int band = UsageBand::of(row.leftPercent());
    if (band == UsageBand::Normal)
        return false;
    const auto same = [&](const Window& w) {
        return w.id == row.id && std::abs(w.resetsAt - *row.resetsAt) < kSameWindow;
    };
    const auto found = std::find_if(m_windows.begin(), m_windows.end(), same);
    if (found != m_windows.end() && found->band >= band)
        return false;
    if (found != m_windows.end())
        found->band = band;
    else
        m_windows.append({ row.id, *row.resetsAt, band });
    send(service, row, band, now);
    return true;
}

void LowLimitNotifier::send(const QString& service, const LimitRow& row, int band, double now)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    const PercentMode mode
        = PercentMode::fromRawValue(m_store.environment().defaults->percentMode()).value_or(PercentMode {});
    const QString body = mode.text(row.leftPercent()) + QStringLiteral(" · Se reinicia en ")
        + FormatUtil::countdown(*row.resetsAt, now);
    const QVariantMap hints {
        { QStringLiteral("urgency"), QVariant::fromValue<uchar>(band == UsageBand::Critical ? 2 : 1) },
        { QStringLiteral("desktop-entry"), kAppId },
    };
    QDBusMessage notify = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    notify << QStringLiteral("Limitra") << 0u << kAppId << service + QStringLiteral(" · ") + row.title << body
           << QStringList { QStringLiteral("default"), QStringLiteral("Límites") } << hints << -1;
    // Never waits: without a notification service the call fails quietly.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(notify), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<uint> reply = *call;
        if (reply.isValid())
            m_sent.insert(reply.value());
        call->deleteLater();
    });
}

void LowLimitNotifier::onActionInvoked(uint id, const QString& action)
{
    if (action == QLatin1String("default") && m_sent.contains(id))
        Q_EMIT panelRequested();
}

void LowLimitNotifier::load()
{
    const auto bytes = platform::Files::read(m_path, 1024 * 1024);
    if (!bytes)
        return;
    for (const QJsonValue& entry : QJsonDocument::fromJson(*bytes).array()) {
        const QJsonObject o = entry.toObject();
        const Window w { o.value(QLatin1String("id")).toString(),
            o.value(QLatin1String("resetsAt")).toDouble(), o.value(QLatin1String("band")).toInt() };
        if (!w.id.isEmpty() && w.resetsAt > 0)
            m_windows.append(w);
    }
}

void LowLimitNotifier::save() const
{
    QJsonArray entries;
    for (const Window& w : m_windows)
        entries.append(QJsonObject { { QStringLiteral("id"), w.id },
            { QStringLiteral("resetsAt"), w.resetsAt }, { QStringLiteral("band"), w.band } });
    // A lost write only risks one repeated warning; nothing to report.
    if (QDir().mkpath(QFileInfo(m_path).absolutePath()))
        platform::Files::writeAtomic(m_path, QJsonDocument(entries).toJson(QJsonDocument::Compact));
}

} // namespace limitra
