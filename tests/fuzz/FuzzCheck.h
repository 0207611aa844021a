#pragma once

#include "model/LimitRow.h"
#include "support/FakePeer.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: the rules a result must keep, checked so that
// a broken rule stops the fuzzer like a crash does.
namespace limitra::fuzz {

inline constexpr double kNow = 1732000000.5;

// Whether the whole text matches the pattern, compiled once per pattern.
bool matches(const char* pattern, const QString& text);

// Reports the broken rule and aborts.
void require(bool holds, const char* rule, const QString& detail = {});

// The input cut at every line that holds only "%%", padded to `parts` pieces.
QList<QByteArray> split(const std::uint8_t* data, std::size_t size, int parts);

// Every row fits the model, and every text shown for it (the panel's
// percentages, --check's whole numbers, the countdown, the detail) is one the
// rules allow.
void checkRows(const QList<LimitRow>& rows);

// The request carries only headers the program sets or the transport adds,
// each once, and its bearer token, if any, is one of `tokens`, whole.
void checkRequest(const test::RecordedRequest& request, const QSet<QByteArray>& tokens);

// The token strings of a JSON object under the given keys, as they would be sent.
QSet<QByteArray> tokens(const QJsonObject& object, std::initializer_list<QStringView> keys);
// Whether any of those keys holds a string with a control character.
bool hasControlToken(const QJsonObject& object, std::initializer_list<QStringView> keys);

} // namespace limitra::fuzz
