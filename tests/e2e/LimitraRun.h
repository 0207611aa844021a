#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace limitra::e2e {

// One run of the built limitra binary, as a user would start it from a shell.
struct LimitraRun
{
    bool finished = false; // false: crashed, or killed after the time limit
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    qint64 elapsedMs = 0;

    // Standard output split into lines; false when the last line lacks its newline.
    QStringList lines() const;
    bool endsWithNewline() const { return out.isEmpty() || out.endsWith('\n'); }

    // The binary under test, from LIMITRA_BINARY (set by CTest).
    static QString binary();

    // What a freshly created user sees in a shell without a desktop session: a
    // home of their own and nothing else; no display, no session bus, no
    // runtime directory, no proxy and no CA overrides.
    static QProcessEnvironment sessionless(const QString& home);

    static LimitraRun start(
        const QStringList& arguments, const QProcessEnvironment& environment, int timeoutMs = 60000);
};

} // namespace limitra::e2e
