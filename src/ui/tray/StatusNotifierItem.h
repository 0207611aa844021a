#pragma once

#include "ui/tray/SniTypes.h"

#include <QDBusObjectPath>
#include <QObject>

namespace limitra {

// The tray item as hosts see it on the session bus (org.kde.StatusNotifierItem
// with the Ayatana label extension). Holds what hosts read; every setter emits
// the matching change signal only when the value really changes.
class StatusNotifierItem : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(QString IconThemePath READ iconThemePath)
    Q_PROPERTY(limitra::SniPixmaps IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ emptyName)
    Q_PROPERTY(limitra::SniPixmaps OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ emptyName)
    Q_PROPERTY(limitra::SniPixmaps AttentionIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionMovieName READ emptyName)
    Q_PROPERTY(limitra::SniToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(QString XAyatanaLabel READ label)
    Q_PROPERTY(QString XAyatanaLabelGuide READ labelGuide)
    Q_PROPERTY(uint XAyatanaOrderingIndex READ orderingIndex)

public:
    static inline const QString kPath = QStringLiteral("/StatusNotifierItem");

    explicit StatusNotifierItem(QObject* parent = nullptr);

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return QStringLiteral("limitra"); }
    QString title() const { return QStringLiteral("Limitra"); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString iconName() const { return m_iconName; }
    QString iconThemePath() const { return m_iconThemePath; }
    SniPixmaps iconPixmap() const { return m_iconPixmap; }
    QString emptyName() const { return {}; }
    SniPixmaps noPixmaps() const { return {}; }
    SniToolTip toolTip() const;
    bool itemIsMenu() const { return false; }
    QDBusObjectPath menu() const { return m_menu; }
    QString label() const { return m_label; }
    QString labelGuide() const { return m_labelGuide; }
    uint orderingIndex() const { return 0; }

    void setIcon(const QString& name, const QString& themePath, const SniPixmaps& pixmaps);
    void setToolTipText(const QString& text);
    void setLabel(const QString& label, const QString& guide);
    void setMenu(const QDBusObjectPath& path) { m_menu = path; }

public Q_SLOTS:
    Q_SCRIPTABLE void Activate(int x, int y);
    Q_SCRIPTABLE void SecondaryActivate(int x, int y);
    Q_SCRIPTABLE void ContextMenu(int x, int y);
    // Ayatana hosts send this for a middle click, where a left click shows the menu.
    Q_SCRIPTABLE void XAyatanaSecondaryActivate(uint timestamp);
    Q_SCRIPTABLE void Scroll(int delta, const QString& orientation);
    Q_SCRIPTABLE void ProvideXdgActivationToken(const QString& token);

Q_SIGNALS:
    Q_SCRIPTABLE void NewTitle();
    Q_SCRIPTABLE void NewIcon();
    Q_SCRIPTABLE void NewAttentionIcon();
    Q_SCRIPTABLE void NewOverlayIcon();
    Q_SCRIPTABLE void NewToolTip();
    Q_SCRIPTABLE void NewStatus(const QString& status);
    Q_SCRIPTABLE void XAyatanaNewLabel(const QString& label, const QString& guide);

    // For the application, not exported.
    void activated(int x, int y);
    void contextMenuRequested(int x, int y);

private:
    QString m_iconName;
    QString m_iconThemePath;
    SniPixmaps m_iconPixmap;
    QString m_toolTipText;
    QDBusObjectPath m_menu { QStringLiteral("/NO_DBUSMENU") };
    QString m_label;
    QString m_labelGuide;
};

} // namespace limitra
