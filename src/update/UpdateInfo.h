#pragma once

#include <QMetaType>
#include <QString>
#include <QUrl>

#include <optional>

namespace limitra {

// A newer published version: what the banner shows and where it leads.
struct UpdateInfo
{
    Q_GADGET
    Q_PROPERTY(QString version MEMBER version CONSTANT)
    Q_PROPERTY(QUrl downloadURL MEMBER downloadURL CONSTANT)
    Q_PROPERTY(bool hasReleaseNotes READ hasReleaseNotes CONSTANT)
    Q_PROPERTY(QString releaseNotes READ releaseNotesOrEmpty CONSTANT)

public:
    QString version;
    QUrl downloadURL;
    std::optional<QString> releaseNotes;

    bool hasReleaseNotes() const { return releaseNotes.has_value(); }
    QString releaseNotesOrEmpty() const { return releaseNotes.value_or(QString()); }

    friend bool operator==(const UpdateInfo&, const UpdateInfo&) = default;
};

} // namespace limitra

Q_DECLARE_METATYPE(limitra::UpdateInfo)
