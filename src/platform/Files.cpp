#include "platform/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace limitra::platform::Files {

namespace {
    bool writeAll(int fd, const QByteArray& data)
    {
        const char* p = data.constData();
        qsizetype left = data.size();
        while (left > 0) {
            const ssize_t n = ::write(fd, p, static_cast<size_t>(left));
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return false;
            }
            p += n;
            left -= n;
        }
        return true;
    }

    // A symlinked credentials file (dotfiles kept elsewhere) is replaced at its
    // target, so the link keeps working.
    QString resolveTarget(const QString& path)
    {
        QFileInfo info(path);
        if (!info.isSymLink())
            return path;
        const QString canonical = info.canonicalFilePath();
        return canonical.isEmpty() ? info.symLinkTarget() : canonical;
    }
} // namespace

QString homeDirectory()
{
    return QDir::homePath();
}

QString loginName()
{
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_name)
        return QString::fromLocal8Bit(pw->pw_name);
    return qEnvironmentVariable("USER");
}

std::optional<QByteArray> read(const QString& path, qint64 maxBytes)
{
    const QFileInfo info(path);
    // Only regular files: a FIFO or device would block or never end.
    if (!info.isFile() || info.size() > maxBytes)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray data = file.read(maxBytes + 1);
    if (data.size() > maxBytes || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return data;
}

bool exists(const QString& path)
{
    return QFileInfo::exists(path);
}

bool writeAtomic(const QString& path, const QByteArray& data)
{
    const QString target = resolveTarget(path);
    const QByteArray targetPath = QFile::encodeName(target);

    mode_t mode = S_IRUSR | S_IWUSR;
    struct stat old {};
    if (::stat(targetPath.constData(), &old) == 0) {
        if (!S_ISREG(old.st_mode))
            return false;
        mode = old.st_mode & 07777;
    }

    const QFileInfo info(target);
    QByteArray tmpl = QFile::encodeName(
        info.absoluteDir().filePath(QStringLiteral(".%1.limitra-XXXXXX").arg(info.fileName())));
    const int fd = ::mkstemp(tmpl.data());
    if (fd < 0)
        return false;

    const bool written = ::fchmod(fd, mode) == 0 && writeAll(fd, data) && ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(tmpl.constData(), targetPath.constData()) != 0) {
        ::unlink(tmpl.constData());
        return false;
    }

    // Make the rename itself durable.
    const QByteArray dir = QFile::encodeName(info.absolutePath());
    if (const int dfd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY); dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

} // namespace limitra::platform::Files
