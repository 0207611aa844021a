#include "support/TestEnv.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

#include <list>
#include <vector>

namespace limitra::test {

bool writeFile(const QString& path, const QByteArray& bytes, QFile::Permissions mode)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size()
        && file.flush() && file.setPermissions(mode);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

int modeOf(const QString& path)
{
    struct stat st { };
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

TestEnv::TestEnv(double now, std::chrono::milliseconds timeoutCap)
    : clock(std::make_shared<double>(now))
    , defaults(std::make_shared<platform::Defaults>(home.filePath(QStringLiteral("limitra.conf"))))
{
    env.home = home.path();
    env.loginName = QStringLiteral("tester");
    env.endpoints = platform::Endpoints::at(peer.baseUrl());
    env.now = [c = clock] { return *c; };
    env.defaults = defaults;
    env.timeoutCap = timeoutCap;
}

void table(const char* text)
{
    static std::list<QByteArray> names; // QTest keeps pointers to them
    const QStringList lines = QString::fromUtf8(text).trimmed().split(u'\n');
    for (const QString& column : lines[0].split(u'|').mid(1))
        QTest::addColumn<QString>(names.emplace_back(column.trimmed().toLatin1()).constData());
    for (const QString& line : lines.mid(1)) {
        const QStringList cells = line.split(u'|');
        QTestData& data = QTest::newRow(qPrintable(cells[0].trimmed()));
        for (const QString& c : cells.mid(1))
            data << c.trimmed();
    }
}

QString cell(const char* column)
{
    return *static_cast<QString*>(QTest::qData(column, QMetaType::QString));
}

LimitRow row(const QString& title, double used, std::optional<double> resetsAt, std::optional<QString> detail,
    const QString& id)
{
    return LimitRow { id.isNull() ? title : id, title, used, resetsAt, std::move(detail) };
}

ServiceUsage usage(const QList<LimitRow>& rows, std::optional<double> updatedAt, std::optional<QString> error,
    std::optional<QString> plan)
{
    return ServiceUsage { std::move(plan), rows, std::move(error), updatedAt };
}

void rerunInPrivateMountNamespace(int argc, char** argv)
{
    if (::geteuid() != 0 || qEnvironmentVariableIsSet("LIMITRA_UNSHARED"))
        return;
    qputenv("LIMITRA_UNSHARED", "1");
    std::vector<char*> args { const_cast<char*>("unshare"), const_cast<char*>("--mount") };
    args.insert(args.end(), argv, argv + argc + 1);
    ::execvp("unshare", args.data());
    qunsetenv("LIMITRA_UNSHARED");
}

} // namespace limitra::test
