#pragma once

#include <QGuiApplication>
#include <QImage>
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

    // Items by objectName in tree order (popups included: they live in the overlay).
    QList<QQuickItem*> findAll(const QString& name) const
    {
        QList<QQuickItem*> found;
        visit([&](QQuickItem* item) {
            if (item->objectName() == name)
                found.append(item);
        });
        return found;
    }
    QQuickItem* find(const QString& name) const
    {
        const QList<QQuickItem*> all = findAll(name);
        if (all.size() != 1)
            qFatal("%lld items named %s", qlonglong(all.size()), qPrintable(name));
        return all.first();
    }
    bool shown(const QString& name) const { return find(name)->isVisible(); }

    // The visible texts in reading order (top to bottom, then left to right).
    QStringList texts() const
    {
        settle();
        QList<QQuickItem*> items;
        visit([&](QQuickItem* item) {
            if (item->isVisible() && (item->inherits("QQuickText") || item->inherits("QQuickTextInput"))
                && item->opacity() > 0
                && !item->property("text").toString().isEmpty())
                items.append(item);
        });
        const auto at = [](const QQuickItem* i) { return i->mapToScene(QPointF(0, i->height() / 2)); };
        std::stable_sort(items.begin(), items.end(), [&](QQuickItem* a, QQuickItem* b) {
            const QPointF pa = at(a), pb = at(b);
            return qAbs(pa.y() - pb.y()) > 4 ? pa.y() < pb.y() : pa.x() < pb.x();
        });
        QStringList out;
        for (const QQuickItem* item : items)
            out << item->property("text").toString();
        return out;
    }

    void click(QQuickItem* item) const
    {
        settle();
        const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
        QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    }
    void click(const QString& name) const { click(find(name)); }

    // The entries of the open pop-up menu, top to bottom.
    QList<QQuickItem*> menuEntries() const
    {
        settle();
        QList<QQuickItem*> entries;
        visit([&](QQuickItem* item) {
            if (item->isVisible() && item->inherits("QQuickMenuItem"))
                entries.append(item);
        });
        std::stable_sort(entries.begin(), entries.end(),
            [](QQuickItem* a, QQuickItem* b) { return a->mapToScene({}).y() < b->mapToScene({}).y(); });
        return entries;
    }
    // Opens a pop-up menu (and lets its opening transition end).
    QStringList openMenu(const QString& comboName) const
    {
        click(comboName);
        (void)QTest::qWaitFor([&] { return !menuEntries().isEmpty(); }, 2000);
        QTest::qWait(300);
        QStringList texts;
        for (const QQuickItem* entry : menuEntries())
            texts << entry->property("text").toString();
        return texts;
    }
    // Opens a pop-up menu and picks the entry showing `text`.
    void choose(const QString& comboName, const QString& text) const
    {
        openMenu(comboName);
        for (QQuickItem* entry : menuEntries()) {
            if (entry->property("text").toString() == text) {
                click(entry);
                (void)QTest::qWaitFor([&] { return menuEntries().isEmpty(); }, 2000);
                return;
            }
        }
        qFatal("No menu entry %s", qPrintable(text));
    }

private:
    void visit(const std::function<void(QQuickItem*)>& f) const
    {
        const std::function<void(QQuickItem*)> walk = [&](QQuickItem* item) {
            f(item);
            for (QQuickItem* child : item->childItems())
                walk(child);
        };
        walk(window->contentItem());
    }
};

inline QString textOf(const QQuickItem* item)
{
    return item->property("text").toString();
}

} // namespace limitra::test
