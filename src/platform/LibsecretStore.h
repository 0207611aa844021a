#pragma once

#include "platform/SecretStore.h"

#include <chrono>

namespace limitra::platform {

// Generic-password items of the session's Secret Service, through libsecret.
// Items are addressed by the string attributes "service" and "account" and
// matched whatever schema name they carry, so items written by other tools
// are found too. Nothing here ever unlocks a collection or creates one: a
// locked collection looks empty and refuses new items, so a background fetch
// never raises a password prompt. With no reachable session bus no call
// reaches libsecret at all, and every call is bounded by `budget`.
class LibsecretStore : public SecretStore
{
public:
    explicit LibsecretStore(std::chrono::milliseconds budget = std::chrono::seconds(3));

    std::optional<SecretItem> findFirst(const QString& service) override;
    bool replace(const QString& service, const QString& account, const QByteArray& data) override;
    bool add(const QString& service, const QString& account, const QByteArray& data) override;

private:
    std::chrono::milliseconds m_budget;
};

} // namespace limitra::platform
