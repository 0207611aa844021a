#include "platform/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
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

    QString temporaryPrefix(const QFileInfo& target)
    {
        return QStringLiteral(".%1.limitra-").arg(target.fileName());
    }

    bool sameFile(int fd, const QByteArray& path)
    {
        struct stat byFd {}, byName {};
        return ::fstat(fd, &byFd) == 0 && ::lstat(path.constData(), &byName) == 0
            && byFd.st_dev == byName.st_dev && byFd.st_ino == byName.st_ino;
    }

    // Writers hold an exclusive lock on their temporary file until it is
    // renamed; the kernel drops it when a writer dies. So a temporary of ours
    // that can be locked was left by a killed writer and may go.
    void removeStaleTemporaries(const QFileInfo& target)
    {
        const QString prefix = temporaryPrefix(target);
        const QDir dir = target.absoluteDir();
        for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden)) {
            if (!name.startsWith(prefix) || name.size() != prefix.size() + 6)
                continue;
            const QByteArray stale = QFile::encodeName(dir.filePath(name));
            // Non-blocking: a FIFO put there since the listing must not stall the write.
            const int fd = ::open(stale.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            if (fd < 0)
                continue;
            if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && sameFile(fd, stale))
                ::unlink(stale.constData());
            ::close(fd);
        }
    }

    // A new temporary file from the template, locked; retried when a cleaner
    // removed it between its creation and the lock.
    int createLockedTemporary(QByteArray& path)
    {
        const QByteArray pattern = path;
        for (int attempt = 0; attempt < 8; ++attempt) {
            path = pattern;
            const int fd = ::mkostemp(path.data(), O_CLOEXEC);
            if (fd < 0)
                return -1;
            int locked = 0;
            while ((locked = ::flock(fd, LOCK_EX)) != 0 && errno == EINTR) { }
            // Without locks on this file system the write goes on unguarded.
            if (locked != 0 || sameFile(fd, path))
                return fd;
            ::close(fd);
        }
        return -1;
    }

    // Moves the new file into place only while the old one is there: the two
    // names are swapped in one step, which fails when the old name is gone, and
    // the temporary name, now holding the old content, is removed.
    bool exchange(const QByteArray& tmp, const QByteArray& target)
    {
        if (::renameat2(AT_FDCWD, tmp.constData(), AT_FDCWD, target.constData(), RENAME_EXCHANGE) == 0) {
            ::unlink(tmp.constData());
            return true;
        }
        // A file system that cannot swap names gets the plain replacement,
        // guarded as closely as it can be.
        if ((errno == EINVAL || errno == ENOSYS) && ::access(target.constData(), F_OK) == 0)
            return ::rename(tmp.constData(), target.constData()) == 0;
        return false;
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
    // Sized by the file itself, so a small document never holds a buffer of
    // the whole bound; a file that grew since is read on, within the bound.
    QByteArray data = file.read(std::min(file.size(), maxBytes));
    while (file.error() == QFileDevice::NoError && data.size() <= maxBytes) {
        const QByteArray more = file.read(std::min<qint64>(64 * 1024, maxBytes + 1 - data.size()));
        if (more.isEmpty())
            break;
        data += more;
    }
    if (data.size() > maxBytes || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return data;
}

bool exists(const QString& path)
{
    return QFileInfo::exists(path);
}

// Writes aside, then puts the new file in place; `onlyReplace` keeps a missing
// file missing.
static bool write(const QString& path, const QByteArray& data, bool onlyReplace,
    const std::function<void(const QString&)>& beforeSwap)
{
    const QString target = resolveTarget(path);
    const QByteArray targetPath = QFile::encodeName(target);

    struct stat old {};
    const bool replacing = ::stat(targetPath.constData(), &old) == 0;
    if (replacing && !S_ISREG(old.st_mode))
        return false;
    if (onlyReplace && !replacing)
        return false;
    const mode_t mode = replacing ? old.st_mode & 07777 : S_IRUSR | S_IWUSR;

    const QFileInfo info(target);
    removeStaleTemporaries(info);
    QByteArray tmp
        = QFile::encodeName(info.absoluteDir().filePath(temporaryPrefix(info) + QStringLiteral("XXXXXX")));
    const int fd = createLockedTemporary(tmp);
    if (fd < 0)
        return false;

    // The replacement keeps the old file's owner, or the write fails.
    struct stat created {};
    const bool owned = !replacing || (::fstat(fd, &created) == 0
        && ((created.st_uid == old.st_uid && created.st_gid == old.st_gid)
            || ::fchown(fd, old.st_uid, old.st_gid) == 0));
    const bool written = owned && ::fchmod(fd, mode) == 0 && writeAll(fd, data) && ::fsync(fd) == 0;
    if (written && beforeSwap)
        beforeSwap(path);
    // The lock is held until the new file has its name, so no cleaner takes it.
    const bool renamed = written
        && (onlyReplace ? exchange(tmp, targetPath) : ::rename(tmp.constData(), targetPath.constData()) == 0);
    if (!renamed)
        ::unlink(tmp.constData());
    if (::close(fd) != 0 || !renamed)
        return false;

    // Make the rename itself durable.
    const QByteArray dir = QFile::encodeName(info.absolutePath());
    if (const int dfd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

bool writeAtomic(const QString& path, const QByteArray& data)
{
    return write(path, data, false, {});
}

bool replaceExisting(
    const QString& path, const QByteArray& data, const std::function<void(const QString&)>& beforeSwap)
{
    return write(path, data, true, beforeSwap);
}

} // namespace limitra::platform::Files
