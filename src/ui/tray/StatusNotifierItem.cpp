#include "ui/tray/StatusNotifierItem.h"

namespace limitra {

StatusNotifierItem::StatusNotifierItem(QObject* parent)
    : QObject(parent)
{
    registerSniTypes();
}

SniToolTip StatusNotifierItem::toolTip() const
{
    return { m_iconName, {}, title(), m_toolTipText };
}

void StatusNotifierItem::setIcon(const QString& name, const QString& themePath, const SniPixmaps& pixmaps)
{
    if (name == m_iconName && themePath == m_iconThemePath)
        return;
    m_iconName = name;
    m_iconThemePath = themePath;
    m_iconPixmap = pixmaps;
    Q_EMIT NewIcon();
}

void StatusNotifierItem::setToolTipText(const QString& text)
{
    if (text == m_toolTipText)
        return;
    m_toolTipText = text;
    Q_EMIT NewToolTip();
}

void StatusNotifierItem::setLabel(const QString& label, const QString& guide)
{
    if (label == m_label && guide == m_labelGuide)
        return;
    m_label = label;
    m_labelGuide = guide;
    Q_EMIT XAyatanaNewLabel(m_label, m_labelGuide);
}

void StatusNotifierItem::Activate(int x, int y)
{
    Q_EMIT activated(x, y);
}

void StatusNotifierItem::SecondaryActivate(int x, int y)
{
    Q_EMIT activated(x, y);
}

void StatusNotifierItem::XAyatanaSecondaryActivate(uint)
{
    Q_EMIT activated(0, 0);
}

void StatusNotifierItem::ContextMenu(int x, int y)
{
    Q_EMIT contextMenuRequested(x, y);
}

// Scrolling over the item means nothing here.
void StatusNotifierItem::Scroll(int, const QString&) { }

// The panel is shown by this process itself; the token adds nothing.
void StatusNotifierItem::ProvideXdgActivationToken(const QString&) { }

} // namespace limitra
