#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace limitra {

// The "Abrir al iniciar sesión" switch of the General tab: the real autostart
// state, read when the pane opens, and whether a change was refused during
// this pane's life.
class LoginSwitch : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The settings window provides the login switch.")
    Q_PROPERTY(bool on READ isOn NOTIFY onChanged)
    Q_PROPERTY(bool failed READ hasFailed NOTIFY failedChanged)

public:
    // Acts on the autostart entry in `autostartDirectory`.
    explicit LoginSwitch(const QString& autostartDirectory, QObject* parent = nullptr);

    bool isOn() const { return m_on; }
    bool hasFailed() const { return m_failed; }

    // Registers or unregisters the program. On refusal the switch shows the
    // real state again and the error line appears, to stay for the pane's life.
    Q_INVOKABLE void request(bool wanted);

Q_SIGNALS:
    void onChanged();
    void failedChanged();

private:
    void setOn(bool on);

    QString m_directory;
    bool m_on = false;
    bool m_failed = false;
};

} // namespace limitra
