#pragma once

#include "support/TestEnv.h"

#include <QStringList>
#include <QTest>

namespace limitra::test {

// A QTest row per line of `table`: a name, then fields, split at '|'; read with QFETCH(QStringList, f).
inline void addTableRows(QStringView table)
{
    QTest::addColumn<QStringList>("f");
    for (const QStringView line : table.split(u'\n', Qt::SkipEmptyParts)) {
        QStringList f;
        for (const QStringView field : line.split(u'|'))
            f << field.trimmed().toString();
        QTest::newRow(qPrintable(f.takeFirst())) << f;
    }
}

// Answers a path with these statuses in turn ("drop", "hang": no answer), each with `body`.
inline void script(FakePeer& peer, const QByteArray& method, const QByteArray& path, const QString& statuses,
    const QByteArray& body)
{
    QList<PeerAnswer> answers;
    for (const QString& s : statuses.split(u' ', Qt::SkipEmptyParts))
        answers << answer(s == u"drop" ? kDrop : s == u"hang" ? kHang : s.toInt(), body);
    if (!answers.isEmpty())
        peer.onSequence(method, path, answers);
}

// Rows on one line: "id, title, used, resets, detail; ...".
inline QString rowsText(const QList<LimitRow>& rows)
{
    return describe(rows).replace(QStringLiteral(" | "), QStringLiteral(", ")).replace(u'\n', QStringLiteral("; "));
}

} // namespace limitra::test
