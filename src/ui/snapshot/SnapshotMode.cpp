#include "ui/snapshot/SnapshotMode.h"

#include "platform/Defaults.h"
#include "platform/Environment.h"
#include "store/UsageStore.h"
#include "ui/UiModule.h"
#include "ui/panel/LimitsPanel.h"
#include "ui/panel/PanelActions.h"
#include "ui/snapshot/PanelSnapshot.h"

#include <QBuffer>
#include <QEventLoop>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSaveFile>
#include <QTextStream>

namespace limitra {

namespace {
    // Waits for one refresh while the event loop keeps delivering its results.
    void awaitRefresh(UsageStore& store)
    {
        QEventLoop loop;
        QFutureWatcher<void> watcher;
        QObject::connect(&watcher, &QFutureWatcher<void>::finished, &loop, &QEventLoop::quit);
        watcher.setFuture(store.refresh());
        if (!watcher.isFinished())
            loop.exec();
        // A refresh that was already under way still has to land.
        if (store.isRefreshing()) {
            QObject::connect(&store, &UsageStore::isRefreshingChanged, &loop, [&] {
                if (!store.isRefreshing())
                    loop.quit();
            });
            loop.exec();
        }
    }
} // namespace

int SnapshotMode::main(int argc, char** argv, const QString& path)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QGuiApplication app(argc, argv);

    const platform::Environment env = platform::Environment::system();
    UsageStore store(env);
    QTextStream out(stdout);
    run(store, *env.defaults, path, out);
    return 0;
}

void SnapshotMode::run(UsageStore& store, platform::Defaults& settings, const QString& path, QTextStream& out)
{
    awaitRefresh(store);
    const QByteArray png = renderPng(store, settings);
    if (png.isEmpty()) {
        out << "No pude renderizar el snapshot\n";
        out.flush();
        return;
    }
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(png) == png.size())
        file.commit();
    out << "Snapshot: " << path << '\n';
    out.flush();
}

QByteArray SnapshotMode::renderPng(UsageStore& store, platform::Defaults& settings)
{
    QQmlEngine engine;
    UiModule::prepare(engine);
    PanelActions actions(store);
    const std::unique_ptr<QQuickItem> panel = LimitsPanel::create(engine, store, settings, actions);
    if (!panel)
        return {};
    const QImage image = PanelSnapshot::render(*panel, QGuiApplication::palette().color(QPalette::Window));
    if (image.isNull())
        return {};
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG"))
        return {};
    return png;
}

} // namespace limitra
