#include "platform/LoginItem.h"

#include "platform/Files.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace limitra::platform::LoginItem {

namespace {
const QString kEntryName = QStringLiteral("limitra.desktop");
const QString kGroup = QStringLiteral("[Desktop Entry]");

// Characters that force an Exec argument into double quotes.
bool isReserved(QChar c)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    return reserved.contains(c);
}

// Escapes of the string value type, applied after the Exec quoting.
QString escapeString(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        if (c == u'\\')
            out += QStringLiteral("\\\\");
        else if (c == u'\n')
            out += QStringLiteral("\\n");
        else if (c == u'\t')
            out += QStringLiteral("\\t");
        else if (c == u'\r')
            out += QStringLiteral("\\r");
        else
            out += c;
    }
    return out;
}

// Whether the [Desktop Entry] group says Hidden=true (spaces around "=" ignored).
bool isHidden(const QByteArray& content)
{
    bool inEntryGroup = false;
    for (const QByteArray& rawLine : content.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.startsWith(u'[')) {
            inEntryGroup = line == kGroup;
            continue;
        }
        const qsizetype eq = line.indexOf(u'=');
        if (!inEntryGroup || eq < 0 || line.left(eq).trimmed() != QLatin1String("Hidden"))
            continue;
        if (line.mid(eq + 1).trimmed() == QLatin1String("true"))
            return true;
    }
    return false;
}
} // namespace

QString autostartDirectory()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::home().filePath(QStringLiteral(".config"));
    return QDir(config).filePath(QStringLiteral("autostart"));
}

QString entryPath(const QString& directory)
{
    return QDir(directory).filePath(kEntryName);
}

bool isEnabled()
{
    return isEnabled(autostartDirectory());
}

bool isEnabled(const QString& directory)
{
    const auto content = Files::read(entryPath(directory), 1024 * 1024);
    return content && !isHidden(*content);
}

QString execValue(const QString& executable)
{
    QString arg = executable;
    arg.replace(u'%', QStringLiteral("%%"));
    if (std::any_of(arg.cbegin(), arg.cend(), isReserved)) {
        QString quoted;
        for (const QChar c : arg) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                quoted += u'\\';
            quoted += c;
        }
        arg = u'"' + quoted + u'"';
    }
    return escapeString(arg);
}

bool enable(const QString& directory, const QString& executable)
{
    if (executable.isEmpty() || !QDir().mkpath(directory))
        return false;
    const QString entry = QStringLiteral("[Desktop Entry]\n"
                                         "Type=Application\n"
                                         "Name=Limitra\n"
                                         "Exec=%1\n"
                                         "Terminal=false\n"
                                         "X-GNOME-Autostart-enabled=true\n")
                              .arg(execValue(executable));
    return Files::writeAtomic(entryPath(directory), entry.toUtf8());
}

bool disable(const QString& directory)
{
    const QString path = entryPath(directory);
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return true;
    if (info.isDir())
        return false;
    return QFile::remove(path);
}

QString runningExecutable()
{
    // An AppImage runs from a temporary mount; the login entry must name the image.
    const QString appImage = qEnvironmentVariable("APPIMAGE");
    if (QDir::isAbsolutePath(appImage) && QFileInfo(appImage).isFile())
        return appImage;
    if (QCoreApplication::instance())
        return QCoreApplication::applicationFilePath();
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
}

QString installedExecutable()
{
    return QStringLiteral(LIMITRA_INSTALLED_PROGRAM);
}

QString programToStart(const QString& running, const QString& installed)
{
    const QString real = QFileInfo(running).canonicalFilePath();
    if (!real.isEmpty() && real == QFileInfo(installed).canonicalFilePath())
        return installed;
    return running;
}

} // namespace limitra::platform::LoginItem
