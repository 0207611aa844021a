#include "ui/WindowFit.h"

namespace limitra {

void WindowFit::setWindow(QWindow* window)
{
    if (window == m_window)
        return;
    m_window = window;
    apply();
    Q_EMIT windowChanged();
}

void WindowFit::setSize(QSize size)
{
    if (size == m_size)
        return;
    m_size = size;
    apply();
    Q_EMIT sizeChanged();
}

void WindowFit::apply()
{
    if (m_window)
        fit(*m_window, m_size);
}

void WindowFit::fit(QWindow& window, QSize size)
{
    if (size.isEmpty())
        return;
    // Each limit moves on the side that keeps minimum <= maximum at every step:
    // a window manager that reads the hints in between never sees them cross.
    const QSize grow = size.expandedTo(window.maximumSize());
    window.setMaximumSize(grow);
    window.setMinimumSize(size);
    window.setMaximumSize(size);
    window.resize(size);
}

} // namespace limitra
