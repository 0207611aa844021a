#pragma once

#include "model/ServiceUsage.h"
#include "platform/Defaults.h"
#include "platform/Environment.h"
#include "support/FakePeer.h"

#include <QFile>
#include <QTemporaryDir>

#include <chrono>
#include <memory>
#include <optional>

namespace limitra::test {

inline constexpr QFile::Permissions kOwnerOnly = QFile::ReadOwner | QFile::WriteOwner;
// Writes a whole file, creating its folders, and sets its permissions.
bool writeFile(const QString& path, const QByteArray& bytes, QFile::Permissions mode = kOwnerOnly);
QByteArray readFile(const QString& path);
// The permission bits as the file system has them (e.g. 0600).
int modeOf(const QString& path);

// A temporary home, a fake peer serving every endpoint, a clock the test moves,
// settings in a temporary file and request time-outs capped short.
struct TestEnv
{
    QTemporaryDir home;
    FakePeer peer;
    std::shared_ptr<double> clock;
    std::shared_ptr<platform::Defaults> defaults;
    platform::Environment env;

    explicit TestEnv(double now, std::chrono::milliseconds timeoutCap = std::chrono::milliseconds(500));

    QString path(const QString& relative) const { return env.homePath(relative); }
    bool write(const QString& relative, const QByteArray& bytes) const
    {
        return writeFile(path(relative), bytes);
    }
    QByteArray read(const QString& relative) const { return readFile(path(relative)); }
};

// QTest rows from a table as text: "| column | ...", then one row per line whose first cell names it;
// cells are split at '|' and trimmed. A test reads the cells of its row with cell().
void table(const char* text);
QString cell(const char* column);

// A row whose id is its title unless given.
LimitRow row(const QString& title, double used, std::optional<double> resetsAt = {},
    std::optional<QString> detail = {}, const QString& id = {});
ServiceUsage usage(const QList<LimitRow>& rows, std::optional<double> updatedAt = {},
    std::optional<QString> error = {}, std::optional<QString> plan = {});

// As root, runs this test again in a private mount namespace, where its file
// system cases may mount (a full tmpfs, a read-only folder); otherwise returns.
void rerunInPrivateMountNamespace(int argc, char** argv);

} // namespace limitra::test
