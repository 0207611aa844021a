#include "LimitraRun.h"

#include <QElapsedTimer>
#include <QProcess>

namespace limitra::e2e {

QStringList LimitraRun::lines() const
{
    QString text = QString::fromUtf8(out);
    if (text.endsWith(u'\n'))
        text.chop(1);
    if (text.isEmpty())
        return {};
    return text.split(u'\n');
}

QString LimitraRun::binary()
{
    return qEnvironmentVariable("LIMITRA_BINARY");
}

QProcessEnvironment LimitraRun::sessionless(const QString& home)
{
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("PATH"), QStringLiteral("/usr/local/bin:/usr/bin:/bin"));
    environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    // The sanitizer presets must reach a binary built with them.
    const QProcessEnvironment outer = QProcessEnvironment::systemEnvironment();
    for (const QString& name : { QStringLiteral("ASAN_OPTIONS"), QStringLiteral("UBSAN_OPTIONS") })
        if (outer.contains(name))
            environment.insert(name, outer.value(name));
    return environment;
}

LimitraRun LimitraRun::start(
    const QStringList& arguments, const QProcessEnvironment& environment, int timeoutMs)
{
    LimitraRun run;
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(environment.value(QStringLiteral("HOME")));
    QElapsedTimer timer;
    timer.start();
    process.start(binary(), arguments);
    if (!process.waitForStarted(10000)) {
        run.err = process.errorString().toUtf8();
        return run;
    }
    process.closeWriteChannel();
    const bool ended = process.waitForFinished(timeoutMs);
    run.elapsedMs = timer.elapsed();
    if (!ended) {
        process.kill();
        process.waitForFinished(5000);
    }
    run.finished = ended && process.exitStatus() == QProcess::NormalExit;
    run.exitCode = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

} // namespace limitra::e2e
