#pragma once

#include "model/LimitRow.h"
#include "model/ServiceUsage.h"

#include <QColor>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

namespace limitra {

// Every text and number the panel derives from the records and settings, so the
// QML only lays them out. Stateless; one instance serves the whole engine.
class PanelFormat : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    // How alarming a limit looks, decided on what is left whatever the mode.
    enum Band {
        Critical, // 10 % or less left: red text and bar
        Low, // up to 25 % left: orange bar
        Normal, // more than 25 % left: blue bar
    };
    Q_ENUM(Band)

    // What a service card shows.
    enum CardState { ErrorCard, LoadingCard, RowsCard };
    Q_ENUM(CardState)

    // The thinnest bar fill, so an exhausted limit still shows a dot.
    static constexpr double kMinimumFill = 6;

    explicit PanelFormat(QObject* parent = nullptr);

    // "58 % restante" or "42 % usado"; any mode other than "used" counts as remaining.
    Q_INVOKABLE static QString percentText(const limitra::LimitRow& row, const QString& percentModeRaw);
    // How much of the bar is filled, 0…100, not rounded.
    Q_INVOKABLE static double fillPercent(const limitra::LimitRow& row, const QString& percentModeRaw);
    // The fill's width on a track of the given width.
    Q_INVOKABLE static double fillWidth(double trackWidth, double fillPercent);
    Q_INVOKABLE static limitra::PanelFormat::Band band(const limitra::LimitRow& row);

    // "Se reinicia en 3h 20m"; empty when the row has no reset moment.
    Q_INVOKABLE static QString resetText(const limitra::LimitRow& row, double now);

    Q_INVOKABLE static limitra::PanelFormat::CardState cardState(const limitra::ServiceUsage& usage);
    // "Actualizado hace 3 min"; empty when the record was never updated.
    Q_INVOKABLE static QString updatedText(const limitra::ServiceUsage& usage, double now);

    // "Se actualiza cada minuto" or "Se actualiza cada 5 min", the value as stored.
    Q_INVOKABLE static QString footerText(int refreshMinutes);
    // "Nueva versión 1.3.0 disponible".
    Q_INVOKABLE static QString bannerTitle(const QString& version);

    // The address of a bundled icon drawn in the given colour (alpha included).
    Q_INVOKABLE static QUrl iconUrl(const QString& name, const QColor& color);
};

} // namespace limitra
