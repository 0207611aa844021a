#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace limitra {

namespace platform {
class SecretStore;
}

// Generic-password items of the secret store, addressed by service and
// account. Stateless; every failure, a locked or missing store included, comes
// back as nothing or false.
namespace KeychainHelper {
struct Item
{
    QString account; // empty when the item has no account
    QByteArray data;
};

// The first item of the service, whatever its account.
std::optional<Item> read(platform::SecretStore& store, const QString& service);
// Replaces the value of the item (service, account); never creates one.
bool update(
    platform::SecretStore& store, const QString& service, const QString& account, const QByteArray& data);
// Updates, then reads the service back: true when it now holds exactly `data`.
bool saveVerified(
    platform::SecretStore& store, const QString& service, const QString& account, const QByteArray& data);
// Updates the item when the service has one (under any account), else adds it.
bool upsertOwn(
    platform::SecretStore& store, const QString& service, const QString& account, const QByteArray& data);
} // namespace KeychainHelper

} // namespace limitra
