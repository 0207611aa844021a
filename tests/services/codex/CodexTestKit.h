#pragma once

#include "model/LimitRow.h"
#include "model/ServiceUsage.h"
#include "platform/Environment.h"
#include "services/codex/CodexProvider.h"
#include "support/FakePeer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

namespace limitra::test {

// 2025-03-01T12:34:56.789Z, the clock of every Codex test.
inline constexpr double kCodexNow = 1740832496.789;

inline const QByteArray kUsagePath = "/backend-api/wham/usage";
inline const QByteArray kTokenPath = "/oauth/token";

// Compact and deliberately unsorted, so that the rewrite's sorting shows.
inline const QByteArray kAuth
    = R"({"tokens":{"refresh_token":"rt-1","access_token":"at-1","id_token":"id-1",)"
      R"("account_id":"acc-1","zz_unknown":{"list":[1,2.5,"x",null,true]}},)"
      R"("OPENAI_API_KEY":null,"last_refresh":"2024-01-01T00:00:00Z",)"
      R"("counter":12345678901234567,"nested":{"b":{"deep":3},"a":false}})";

inline const QByteArray kFullAnswer = R"({"plan_type":"plus","rate_limit":{
    "primary_window":{"used_percent":42.5,"limit_window_seconds":18000,"reset_at":1740840000.25},
    "secondary_window":{"used_percent":7,"limit_window_seconds":604800,"reset_after_seconds":86400}}})";

// Statuses below zero script a transport failure instead of an answer.
inline constexpr int kDrop = -1;
inline constexpr int kHang = -2;

inline PeerAnswer peerAnswer(int status, const QByteArray& body = {})
{
    if (status == kDrop)
        return PeerAnswer::drop();
    if (status == kHang)
        return PeerAnswer::hang();
    return PeerAnswer::json(status, body);
}

inline QString codexHttpMessage(int status)
{
    return QStringLiteral("No pude consultar el uso de Codex (HTTP %1). Ejecuta `codex login` si persiste.")
        .arg(status);
}

inline LimitRow codexRow(const char* key, const char* title, double used, std::optional<double> resets = {})
{
    LimitRow row;
    row.id = QStringLiteral("codex-") + QLatin1String(key);
    row.title = QString::fromUtf8(title);
    row.usedPercent = used;
    row.resetsAt = resets;
    return row;
}

// Rows as text with every double in full precision, so a mismatch shows which field differs.
inline QString describe(const QList<LimitRow>& rows)
{
    QStringList parts;
    for (const LimitRow& r : rows) {
        parts << QStringLiteral("%1 | %2 | %3 | %4 | %5")
                     .arg(r.id, r.title, QString::number(r.usedPercent, 'g', 17),
                         r.resetsAt ? QString::number(*r.resetsAt, 'g', 17) : QStringLiteral("(none)"),
                         r.detail.value_or(QStringLiteral("(none)")));
    }
    return parts.join(QStringLiteral("\n"));
}

// A temporary home with a .codex folder, a fake peer serving both Codex
// endpoints, a fixed clock and request time-outs capped at 300 ms.
struct CodexHome
{
    QTemporaryDir home;
    FakePeer peer;
    platform::Environment env;

    CodexHome()
    {
        QDir(home.path()).mkpath(QStringLiteral(".codex"));
        env.home = home.path();
        env.endpoints = platform::Endpoints::at(peer.baseUrl());
        env.now = [] { return kCodexNow; };
        env.timeoutCap = std::chrono::milliseconds(300);
    }

    QString authPath() const { return home.filePath(QStringLiteral(".codex/auth.json")); }

    QByteArray authBytes() const
    {
        QFile file(authPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // Owner-only, as the Codex tool leaves it.
    bool writeAuth(const QByteArray& bytes) const
    {
        QFile file(authPath());
        return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size()
            && file.flush() && file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    // Whatever the peer does, a fetch must end well within the capped time-outs.
    ServiceUsage fetchBounded() const
    {
        QElapsedTimer timer;
        timer.start();
        const ServiceUsage usage = CodexProvider::fetch(env);
        [&] { QVERIFY2(timer.elapsed() < 5000, QByteArray::number(timer.elapsed()) + " ms"); }();
        return usage;
    }
};

} // namespace limitra::test
