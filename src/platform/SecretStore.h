#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

namespace limitra::platform {

struct SecretItem
{
    QString account; // empty when the item carries no account attribute
    QByteArray data;
};

// The three primitives the program needs from a desktop secret store. Every
// call blocks, so callers run on worker threads. An unavailable or locked store
// answers nothing/false quickly and never prompts the user.
class SecretStore
{
public:
    virtual ~SecretStore() = default;

    // The first item of a service, whatever its account.
    virtual std::optional<SecretItem> findFirst(const QString& service) = 0;
    // Replaces the secret of the item (service, account), where an empty account
    // also matches an item without one; false when none matches.
    virtual bool replace(const QString& service, const QString& account, const QByteArray& data) = 0;
    // Adds a new item (service, account) to the default collection.
    virtual bool add(const QString& service, const QString& account, const QByteArray& data) = 0;

    // The session's Secret Service (libsecret).
    static std::shared_ptr<SecretStore> system();
};

} // namespace limitra::platform
