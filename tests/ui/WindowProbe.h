#pragma once

#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <algorithm>
#include <functional>

namespace limitra::test {

// Looks into a shown Qt Quick window and acts on it as a user would.
struct WindowProbe
{
    QQuickWindow* window = nullptr;

    // Grabbing polishes every item, so positions and sizes are final afterwards.
    void settle() const { window->grabWindow(); }

    // Items in tree order (pop-ups included: they live in the window's overlay).
    QList<QQuickItem*> items(const std::function<bool(QQuickItem*)>& wanted) const
    {
        QList<QQuickItem*> found;
        const std::function<void(QQuickItem*)> walk = [&](QQuickItem* item) {
            if (wanted(item))
                found.append(item);
            for (QQuickItem* child : item->childItems())
                walk(child);
        };
        walk(window->contentItem());
        return found;
    }
    QQuickItem* find(const QString& name, QQuickItem* within = nullptr) const
    {
        const QList<QQuickItem*> all = items(
            [&](QQuickItem* i) { return i->objectName() == name && (!within || within->isAncestorOf(i)); });
        if (all.size() != 1)
            qFatal("%lld items named %s", qlonglong(all.size()), qPrintable(name));
        return all.first();
    }
    bool shown(const QString& name) const { return find(name)->isVisible(); }

    // The visible texts (or menu entries) in reading order: top to bottom, then left to right.
    QStringList texts(bool menu = false) const
    {
        settle();
        QList<QQuickItem*> found = items([menu](QQuickItem* i) {
            const bool text = menu ? i->inherits("QQuickMenuItem")
                                   : i->inherits("QQuickText") || i->inherits("QQuickTextInput");
            return text && i->isVisible() && !i->property("text").toString().isEmpty();
        });
        const auto at = [](const QQuickItem* i) { return i->mapToScene(QPointF(0, i->height() / 2)); };
        std::stable_sort(found.begin(), found.end(), [&](QQuickItem* a, QQuickItem* b) {
            const QPointF pa = at(a), pb = at(b);
            return qAbs(pa.y() - pb.y()) > 4 ? pa.y() < pb.y() : pa.x() < pb.x();
        });
        QStringList out;
        for (const QQuickItem* item : found)
            out << item->property("text").toString();
        return out;
    }

    void click(QQuickItem* item) const
    {
        settle();
        QTest::mouseClick(
            window, Qt::LeftButton, {}, item->mapToScene(item->boundingRect().center()).toPoint());
    }
    void click(const QString& name) const { click(find(name)); }

    // Opens a pop-up menu and returns its entries once its opening transition ended.
    QStringList openMenu(const QString& comboName) const
    {
        click(comboName);
        (void)QTest::qWaitFor([&] { return !texts(true).isEmpty(); }, 2000);
        QTest::qWait(300);
        return texts(true);
    }
    // Opens a pop-up menu and picks the entry showing `text`.
    void choose(const QString& comboName, const QString& text) const
    {
        openMenu(comboName);
        const auto entries = items([&](QQuickItem* i) {
            return i->inherits("QQuickMenuItem") && i->isVisible() && i->property("text") == text;
        });
        if (entries.size() != 1)
            qFatal("No menu entry %s", qPrintable(text));
        click(entries.first());
        (void)QTest::qWaitFor([&] { return texts(true).isEmpty(); }, 2000);
    }
};

inline QString textOf(const QQuickItem* item)
{
    return item->property("text").toString();
}

} // namespace limitra::test
