#include "app/GuiModule.h"

#include <QFileInfo>
#include <QLibrary>
#include <QStringList>

#include <cstdio>

#ifndef LIMITRA_GUI_MODULE_RELDIR
#define LIMITRA_GUI_MODULE_RELDIR "../lib/limitra"
#endif

namespace limitra::GuiModule {

namespace {
    // The folders that may hold the module, relative to the running executable
    // itself, never to the working directory or a search path.
    QStringList candidates(const char* fileName)
    {
        const QString exe = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
        if (exe.isEmpty())
            return {};
        const QString dir = QFileInfo(exe).absolutePath();
        const QString file = QString::fromLatin1(fileName);
        return {
            dir + u'/' + file,
            dir + u'/' + QStringLiteral(LIMITRA_GUI_MODULE_RELDIR) + u'/' + file,
        };
    }

    QFunctionPointer load(const char* fileName, const char* entryName, QString* error)
    {
        for (const QString& path : candidates(fileName)) {
            if (!QFileInfo::exists(path))
                continue;
            QLibrary library(path);
            if (QFunctionPointer entry = library.resolve(entryName))
                return entry; // the module stays loaded until the process ends
            *error = library.errorString();
            return nullptr;
        }
        *error = QStringLiteral("no se encontró %1").arg(QString::fromLatin1(fileName));
        return nullptr;
    }
} // namespace

int run(int argc, char** argv, const Entry::Choice& choice)
{
    QString error;
    const auto entry = reinterpret_cast<EntryPoint>(load(kFileName, kEntryPointName, &error));
    if (entry) {
        const QByteArray path = choice.argument.toLocal8Bit();
        return entry(argc, argv, static_cast<int>(choice.mode), path.constData());
    }
    if (choice.mode == Entry::Mode::Snapshot) {
        std::fputs("No pude renderizar el snapshot\n", stdout);
        std::fflush(stdout);
    } else {
        std::fprintf(stderr, "limitra: no se pudo cargar la interfaz gráfica: %s\n", qPrintable(error));
    }
    return 0;
}

int runWatch(int argc, char** argv)
{
    QString error;
    if (const auto entry = reinterpret_cast<WatchEntryPoint>(load(kWatchFileName, kWatchEntryPointName, &error)))
        return entry(argc, argv);
    std::fprintf(stderr, "limitra: no se pudo cargar el modo --watch: %s\n", qPrintable(error));
    return 0;
}

} // namespace limitra::GuiModule
