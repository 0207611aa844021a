#include "platform/Defaults.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <cmath>
#include <limits>

namespace limitra::platform {

namespace {
    const QString kShowClaude = QStringLiteral("showClaude");
    const QString kShowCodex = QStringLiteral("showCodex");
    const QString kRefreshInterval = QStringLiteral("refreshIntervalMinutes");
    const QString kMenuBarStyle = QStringLiteral("menuBarStyle");
    const QString kPercentMode = QStringLiteral("percentMode");
    const QString kHasShownWelcome = QStringLiteral("hasShownWelcome");
    const QString kNotifyLow = QStringLiteral("notifyLow");
    const QString kLastUpdateCheck = QStringLiteral("lastUpdateCheck");
    constexpr int kDefaultInterval = 5;

    // The settings file is text: numbers come back as strings and must be read
    // as numbers; anything that is not a number is absent.
    std::optional<double> asNumber(const QVariant& v)
    {
        if (!v.isValid())
            return std::nullopt;
        if (v.typeId() == QMetaType::Bool)
            return std::nullopt;
        bool ok = false;
        const double d = v.toString().trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(d))
            return std::nullopt;
        return d;
    }
} // namespace

Defaults::Defaults(const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_settings(std::make_unique<QSettings>(filePath, QSettings::IniFormat))
{
}

Defaults::~Defaults() = default;

QString Defaults::systemFilePath()
{
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return QDir(config).filePath(QStringLiteral("limitra/limitra.conf"));
}

std::shared_ptr<Defaults> Defaults::system()
{
    static const std::shared_ptr<Defaults> instance = std::make_shared<Defaults>(systemFilePath());
    return instance;
}

QString Defaults::filePath() const
{
    std::lock_guard lock(m_mutex);
    return m_settings->fileName();
}

void Defaults::reload()
{
    std::lock_guard lock(m_mutex);
    m_settings->sync();
}

QVariant Defaults::value(const QString& key) const
{
    std::lock_guard lock(m_mutex);
    return m_settings->value(key);
}

void Defaults::setValue(const QString& key, const QVariant& value)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_settings->contains(key) && m_settings->value(key) == value)
            return;
        m_settings->setValue(key, value);
        m_settings->sync();
    }
    notify(key);
}

void Defaults::remove(const QString& key)
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_settings->contains(key))
            return;
        m_settings->remove(key);
        m_settings->sync();
    }
    notify(key);
}

bool Defaults::boolOr(const QString& key, bool fallback) const
{
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString();
        if (s == QLatin1String("true"))
            return true;
        if (s == QLatin1String("false"))
            return false;
    }
    return fallback;
}

bool Defaults::showClaude() const { return boolOr(kShowClaude, true); }
bool Defaults::showCodex() const { return boolOr(kShowCodex, true); }
bool Defaults::hasShownWelcome() const { return boolOr(kHasShownWelcome, false); }
bool Defaults::notifyLow() const { return boolOr(kNotifyLow, true); }

int Defaults::refreshIntervalMinutes() const
{
    const auto n = asNumber(value(kRefreshInterval));
    if (!n)
        return kDefaultInterval;
    const double t = std::trunc(*n);
    if (t > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (t < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(t);
}

int Defaults::effectiveRefreshIntervalMinutes() const
{
    const int minutes = refreshIntervalMinutes();
    return minutes > 0 ? minutes : kDefaultInterval;
}

QString Defaults::menuBarStyle() const
{
    const QVariant v = value(kMenuBarStyle);
    return v.typeId() == QMetaType::QString ? v.toString() : QStringLiteral("iconAndPercents");
}

QString Defaults::percentMode() const
{
    const QVariant v = value(kPercentMode);
    return v.typeId() == QMetaType::QString ? v.toString() : QStringLiteral("remaining");
}

double Defaults::lastUpdateCheck() const
{
    return asNumber(value(kLastUpdateCheck)).value_or(0.0);
}

void Defaults::setShowClaude(bool value) { setValue(kShowClaude, value); }
void Defaults::setShowCodex(bool value) { setValue(kShowCodex, value); }
void Defaults::setRefreshIntervalMinutes(int value) { setValue(kRefreshInterval, value); }
void Defaults::setMenuBarStyle(const QString& value) { setValue(kMenuBarStyle, value); }
void Defaults::setPercentMode(const QString& value) { setValue(kPercentMode, value); }
void Defaults::setHasShownWelcome(bool value) { setValue(kHasShownWelcome, value); }
void Defaults::setNotifyLow(bool value) { setValue(kNotifyLow, value); }
void Defaults::setLastUpdateCheck(double value) { setValue(kLastUpdateCheck, value); }

void Defaults::notify(const QString& key)
{
    if (key == kShowClaude)
        Q_EMIT showClaudeChanged();
    else if (key == kShowCodex)
        Q_EMIT showCodexChanged();
    else if (key == kRefreshInterval)
        Q_EMIT refreshIntervalMinutesChanged();
    else if (key == kMenuBarStyle)
        Q_EMIT menuBarStyleChanged();
    else if (key == kPercentMode)
        Q_EMIT percentModeChanged();
    else if (key == kHasShownWelcome)
        Q_EMIT hasShownWelcomeChanged();
    else if (key == kNotifyLow)
        Q_EMIT notifyLowChanged();
    else if (key == kLastUpdateCheck)
        Q_EMIT lastUpdateCheckChanged();
    Q_EMIT changed(key);
}

} // namespace limitra::platform
