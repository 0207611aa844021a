#include "platform/LibsecretStore.h"

#include "platform/BusAddressProbe.h"
#include "platform/LazyLibrary.h"

#include <libsecret/secret.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace limitra::platform {

namespace {
#define LIMITRA_SECRET_API(X)                                                                                \
    X(g_cancellable_new) X(g_cancellable_cancel) X(g_object_unref) X(g_clear_error) X(g_hash_table_new)       \
        X(g_hash_table_insert) X(g_hash_table_unref) X(g_hash_table_lookup) X(g_str_hash) X(g_str_equal)      \
            X(g_list_free_full) X(g_bus_get_sync) X(g_dbus_connection_set_exit_on_close)                     \
                X(g_dbus_connection_is_closed) X(secret_service_search_sync) X(secret_item_get_attributes)   \
                    X(secret_item_get_locked) X(secret_item_get_secret) X(secret_value_get)                  \
                        X(secret_value_unref) X(secret_value_new) X(secret_item_set_secret_sync)             \
                            X(secret_service_get_sync) X(secret_collection_for_alias_sync)                   \
                                X(secret_collection_get_locked) X(secret_item_create_sync)

struct Secret
{
    LIMITRA_SECRET_API(LIMITRA_LAZY_POINTER)
};

// libsecret (with GLib's D-Bus stack) is opened the first time a session bus
// is there to ask; nothing when it is not installed.
const Secret* loadSecret()
{
    static const Secret* const loaded = [] {
        static Secret api;
        return LazyLibrary::load("libsecret-1.so.0", { LIMITRA_SECRET_API(LIMITRA_LAZY_SLOT) }) ? &api : nullptr;
    }();
    return loaded;
}

// Only after a successful loadSecret().
const Secret& lib()
{
    return *loadSecret();
}

// Items are told apart by their attributes only, never by the schema name
// recorded with them.
const SecretSchema* genericSchema()
{
    static const SecretSchema schema = [] {
        SecretSchema s {};
        s.name = "org.freedesktop.Secret.Generic";
        s.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
        s.attributes[0] = { "service", SECRET_SCHEMA_ATTRIBUTE_STRING };
        s.attributes[1] = { "account", SECRET_SCHEMA_ATTRIBUTE_STRING };
        return s;
    }();
    return &schema;
}

// A cancellable that cancels itself when the budget runs out, so that a
// Secret Service that never answers cannot hold a fetch.
class Deadline
{
public:
    explicit Deadline(std::chrono::milliseconds budget)
        : m_cancellable(lib().g_cancellable_new())
        , m_watch([this, budget] {
            std::unique_lock lock(m_mutex);
            if (!m_cv.wait_for(lock, budget, [this] { return m_done; })) {
                lock.unlock();
                lib().g_cancellable_cancel(m_cancellable);
            }
        })
    {
    }
    ~Deadline()
    {
        {
            std::lock_guard lock(m_mutex);
            m_done = true;
        }
        m_cv.notify_one();
        m_watch.join();
        lib().g_object_unref(m_cancellable);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    GCancellable* cancellable() const { return m_cancellable; }

private:
    GCancellable* m_cancellable;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_done = false;
    std::thread m_watch;
};

struct ErrorSlot
{
    GError* error = nullptr;
    ~ErrorSlot() { lib().g_clear_error(&error); }
    GError** out()
    {
        lib().g_clear_error(&error);
        return &error;
    }
};

struct Attributes
{
    GHashTable* table = lib().g_hash_table_new(lib().g_str_hash, lib().g_str_equal);
    QByteArray service;
    QByteArray account;

    Attributes(const QString& serviceName, const QString* accountName)
        : service(serviceName.toUtf8())
    {
        lib().g_hash_table_insert(table, const_cast<char*>("service"), service.data());
        if (accountName) {
            account = accountName->toUtf8();
            lib().g_hash_table_insert(table, const_cast<char*>("account"), account.data());
        }
    }
    ~Attributes() { lib().g_hash_table_unref(table); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
};

struct ItemList
{
    GList* items = nullptr;
    ~ItemList() { lib().g_list_free_full(items, lib().g_object_unref); }
};

// GLib would end the whole process when the shared session connection
// closes; losing the keyring must only make the secrets unavailable.
bool connectSessionBus(GCancellable* cancellable)
{
    ErrorSlot error;
    GDBusConnection* bus = lib().g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, error.out());
    if (!bus)
        return false;
    lib().g_dbus_connection_set_exit_on_close(bus, FALSE);
    const bool open = !lib().g_dbus_connection_is_closed(bus);
    lib().g_object_unref(bus);
    return open;
}

// Searches by attributes; locked items come back without their secret.
void search(ItemList& out, const Attributes& attributes, int flags, GCancellable* cancellable)
{
    ErrorSlot error;
    out.items = lib().secret_service_search_sync(nullptr, genericSchema(), attributes.table,
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | flags), cancellable, error.out());
}

QString accountOf(::SecretItem* item)
{
    GHashTable* attributes = lib().secret_item_get_attributes(item);
    if (!attributes)
        return {};
    const auto* account = static_cast<const char*>(lib().g_hash_table_lookup(attributes, "account"));
    QString result = account ? QString::fromUtf8(account) : QString();
    lib().g_hash_table_unref(attributes);
    return result;
}
} // namespace

LibsecretStore::LibsecretStore(std::chrono::milliseconds budget)
    : m_budget(budget)
{
}

std::optional<SecretItem> LibsecretStore::findFirst(const QString& service)
{
    if (!BusAddressProbe::sessionBusAccepts() || !loadSecret())
        return std::nullopt;
    Deadline deadline(m_budget);
    if (!connectSessionBus(deadline.cancellable()))
        return std::nullopt;

    ItemList found;
    search(found, Attributes(service, nullptr), SECRET_SEARCH_LOAD_SECRETS, deadline.cancellable());
    for (GList* node = found.items; node; node = node->next) {
        auto* item = static_cast<::SecretItem*>(node->data);
        if (lib().secret_item_get_locked(item))
            continue;
        SecretValue* value = lib().secret_item_get_secret(item);
        if (!value)
            continue;
        gsize length = 0;
        const gchar* bytes = lib().secret_value_get(value, &length);
        SecretItem result { accountOf(item), QByteArray(bytes, qsizetype(length)) };
        lib().secret_value_unref(value);
        return result;
    }
    return std::nullopt;
}

bool LibsecretStore::replace(const QString& service, const QString& account, const QByteArray& data)
{
    if (!BusAddressProbe::sessionBusAccepts() || !loadSecret())
        return false;
    Deadline deadline(m_budget);
    if (!connectSessionBus(deadline.cancellable()))
        return false;

    // An empty account names the items that read back with one: those whose
    // account is empty and those without an account attribute at all.
    const bool noAccount = account.isEmpty();
    ItemList found;
    search(found, Attributes(service, noAccount ? nullptr : &account), SECRET_SEARCH_NONE,
        deadline.cancellable());
    bool matched = false;
    bool allSet = true;
    // Every unlocked item of that service and account gets the value, as a
    // keychain update changes every item its query matches.
    for (GList* node = found.items; node; node = node->next) {
        auto* item = static_cast<::SecretItem*>(node->data);
        if (lib().secret_item_get_locked(item) || (noAccount && !accountOf(item).isEmpty()))
            continue;
        matched = true;
        SecretValue* value = lib().secret_value_new(data.constData(), data.size(), "text/plain");
        ErrorSlot error;
        allSet = lib().secret_item_set_secret_sync(item, value, deadline.cancellable(), error.out()) && allSet;
        lib().secret_value_unref(value);
    }
    return matched && allSet;
}

bool LibsecretStore::add(const QString& service, const QString& account, const QByteArray& data)
{
    if (!BusAddressProbe::sessionBusAccepts() || !loadSecret())
        return false;
    Deadline deadline(m_budget);
    if (!connectSessionBus(deadline.cancellable()))
        return false;

    // Only an existing, unlocked default collection takes the item: creating or
    // unlocking one would ask the user for a password.
    ErrorSlot error;
    SecretService* secrets
        = lib().secret_service_get_sync(SECRET_SERVICE_NONE, deadline.cancellable(), error.out());
    if (!secrets)
        return false;
    SecretCollection* collection = lib().secret_collection_for_alias_sync(
        secrets, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, deadline.cancellable(), error.out());
    lib().g_object_unref(secrets);
    if (!collection)
        return false;
    bool stored = false;
    if (!lib().secret_collection_get_locked(collection)) {
        const Attributes attributes(service, &account);
        const QByteArray label = service.toUtf8();
        SecretValue* value = lib().secret_value_new(data.constData(), data.size(), "text/plain");
        ::SecretItem* item = lib().secret_item_create_sync(collection, genericSchema(), attributes.table,
            label.constData(), value, SECRET_ITEM_CREATE_NONE, deadline.cancellable(), error.out());
        lib().secret_value_unref(value);
        if (item) {
            stored = true;
            lib().g_object_unref(item);
        }
    }
    lib().g_object_unref(collection);
    return stored;
}

std::shared_ptr<SecretStore> SecretStore::system()
{
    static const std::shared_ptr<SecretStore> store = std::make_shared<LibsecretStore>();
    return store;
}

} // namespace limitra::platform
