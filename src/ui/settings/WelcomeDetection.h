#pragma once

#include "platform/Environment.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace limitra {

// Which of the two command-line tools left credentials on this machine. The
// secret store can take seconds to answer, so the look runs on a worker
// thread and `ready` turns true when it is done.
class WelcomeDetection : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The welcome window provides the detection.")
    Q_PROPERTY(bool ready READ isReady NOTIFY detected)
    Q_PROPERTY(bool claudeDetected READ claudeDetected NOTIFY detected)
    Q_PROPERTY(bool codexDetected READ codexDetected NOTIFY detected)

public:
    explicit WelcomeDetection(const platform::Environment& env, QObject* parent = nullptr);

    bool isReady() const { return m_ready; }
    bool claudeDetected() const { return m_claude; }
    bool codexDetected() const { return m_codex; }

    // Looks again, from scratch; an older look still under way is ignored.
    void start();

Q_SIGNALS:
    void detected();

private:
    struct Found
    {
        bool claude = false;
        bool codex = false;
    };
    static Found look(const platform::Environment& env);

    platform::Environment m_env;
    int m_generation = 0;
    bool m_ready = false;
    bool m_claude = false;
    bool m_codex = false;
};

} // namespace limitra
