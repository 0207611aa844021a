#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

namespace limitra::platform {

// Whole-file access for the small JSON documents the program reads and rewrites.
namespace Files {
    // The current user's home directory and login name.
    QString homeDirectory();
    QString loginName();

    // The whole content of a regular file, or nothing (missing, a directory,
    // unreadable, or larger than maxBytes).
    std::optional<QByteArray> read(const QString& path, qint64 maxBytes = 16 * 1024 * 1024);
    bool exists(const QString& path);

    // Replaces the file in one step: a temporary file in the same folder is
    // written, synced and renamed over the old one. The new file keeps the old
    // file's permission bits (owner-only for new files); a symlink is followed so
    // that the link itself survives. Returns false and leaves the old file as it
    // was on any failure.
    bool writeAtomic(const QString& path, const QByteArray& data);
    // The same, but only over a file that is still there at the moment of the
    // swap: a file removed meanwhile stays removed and the result is false.
    // `beforeSwap` runs with the path once the new content waits aside.
    bool replaceExisting(const QString& path, const QByteArray& data,
        const std::function<void(const QString&)>& beforeSwap = {});
} // namespace Files

} // namespace limitra::platform
