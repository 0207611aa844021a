#include "services/claude/KeychainHelper.h"

#include "platform/SecretStore.h"

namespace limitra::KeychainHelper {

std::optional<Item> read(platform::SecretStore& store, const QString& service)
{
    const std::optional<platform::SecretItem> found = store.findFirst(service);
    if (!found)
        return std::nullopt;
    return Item { found->account, found->data };
}

bool update(
    platform::SecretStore& store, const QString& service, const QString& account, const QByteArray& data)
{
    return store.replace(service, account, data);
}

bool saveVerified(
    platform::SecretStore& store, const QString& service, const QString& account, const QByteArray& data)
{
    // The update's own answer is not trusted: only what reads back counts.
    update(store, service, account, data);
    const std::optional<Item> stored = read(store, service);
    return stored && stored->data == data;
}

bool upsertOwn(
    platform::SecretStore& store, const QString& service, const QString& account, const QByteArray& data)
{
    // An item under another account is addressed by the given account and so
    // not matched; adding a second item of the service is never done.
    if (read(store, service))
        return update(store, service, account, data);
    return store.add(service, account, data);
}

} // namespace limitra::KeychainHelper
