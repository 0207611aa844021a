// The version feed's body, then two version texts, separated by lines of "%%".
#include "FuzzCheck.h"

#include "support/TestEnv.h"
#include "update/UpdateChecker.h"

using namespace limitra;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static test::TestEnv t(fuzz::kNow, std::chrono::milliseconds(2000));
    const QList<QByteArray> parts = fuzz::split(data, size, 3);
    t.peer.clear();
    t.peer.on("GET", "/api/version.json", test::answer(200, parts[0]));
    if (const auto info = UpdateChecker::check(t.env)) {
        fuzz::require(UpdateChecker::isNewer(info->version, UpdateChecker::currentVersion()),
            "an announced version is newer", info->version);
        const QString scheme = info->downloadURL.scheme();
        fuzz::require(scheme == u"https" || scheme == u"http", "the download is a web address",
            info->downloadURL.toString());
    }

    const QString a = QString::fromUtf8(parts[1]);
    const QString b = QString::fromUtf8(parts[2]);
    fuzz::require(!UpdateChecker::isNewer(a, a), "a version is not newer than itself", a);
    fuzz::require(!(UpdateChecker::isNewer(a, b) && UpdateChecker::isNewer(b, a)),
        "of two versions at most one is newer", a + QStringLiteral(" | ") + b);
    // A version with ".0" added names the same release.
    fuzz::require(!UpdateChecker::isNewer(a + QStringLiteral(".0"), a)
            && !UpdateChecker::isNewer(a, a + QStringLiteral(".0")),
        "trailing zero components change nothing", a);
    return 0;
}
