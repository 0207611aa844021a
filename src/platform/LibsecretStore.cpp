#include "platform/LibsecretStore.h"

#include "platform/BusAddressProbe.h"

#include <libsecret/secret.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace limitra::platform {

namespace {
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
        : m_cancellable(g_cancellable_new())
        , m_watch([this, budget] {
            std::unique_lock lock(m_mutex);
            if (!m_cv.wait_for(lock, budget, [this] { return m_done; })) {
                lock.unlock();
                g_cancellable_cancel(m_cancellable);
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
        g_object_unref(m_cancellable);
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
    ~ErrorSlot() { g_clear_error(&error); }
    GError** out()
    {
        g_clear_error(&error);
        return &error;
    }
};

struct Attributes
{
    GHashTable* table = g_hash_table_new(g_str_hash, g_str_equal);
    QByteArray service;
    QByteArray account;

    Attributes(const QString& serviceName, const QString* accountName)
        : service(serviceName.toUtf8())
    {
        g_hash_table_insert(table, const_cast<char*>("service"), service.data());
        if (accountName) {
            account = accountName->toUtf8();
            g_hash_table_insert(table, const_cast<char*>("account"), account.data());
        }
    }
    ~Attributes() { g_hash_table_unref(table); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
};

struct ItemList
{
    GList* items = nullptr;
    ~ItemList() { g_list_free_full(items, g_object_unref); }
};

// GLib would end the whole process when the shared session connection
// closes; losing the keyring must only make the secrets unavailable.
bool connectSessionBus(GCancellable* cancellable)
{
    ErrorSlot error;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, error.out());
    if (!bus)
        return false;
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    const bool open = !g_dbus_connection_is_closed(bus);
    g_object_unref(bus);
    return open;
}

// Searches by attributes; locked items come back without their secret.
void search(ItemList& out, const Attributes& attributes, int flags, GCancellable* cancellable)
{
    ErrorSlot error;
    out.items = secret_service_search_sync(nullptr, genericSchema(), attributes.table,
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | flags), cancellable, error.out());
}

QString accountOf(::SecretItem* item)
{
    GHashTable* attributes = secret_item_get_attributes(item);
    if (!attributes)
        return {};
    const auto* account = static_cast<const char*>(g_hash_table_lookup(attributes, "account"));
    QString result = account ? QString::fromUtf8(account) : QString();
    g_hash_table_unref(attributes);
    return result;
}
} // namespace

LibsecretStore::LibsecretStore(std::chrono::milliseconds budget)
    : m_budget(budget)
{
}

std::optional<SecretItem> LibsecretStore::findFirst(const QString& service)
{
    if (!BusAddressProbe::sessionBusAccepts())
        return std::nullopt;
    Deadline deadline(m_budget);
    if (!connectSessionBus(deadline.cancellable()))
        return std::nullopt;

    ItemList found;
    search(found, Attributes(service, nullptr), SECRET_SEARCH_LOAD_SECRETS, deadline.cancellable());
    for (GList* node = found.items; node; node = node->next) {
        auto* item = static_cast<::SecretItem*>(node->data);
        if (secret_item_get_locked(item))
            continue;
        SecretValue* value = secret_item_get_secret(item);
        if (!value)
            continue;
        gsize length = 0;
        const gchar* bytes = secret_value_get(value, &length);
        SecretItem result { accountOf(item), QByteArray(bytes, qsizetype(length)) };
        secret_value_unref(value);
        return result;
    }
    return std::nullopt;
}

bool LibsecretStore::replace(const QString& service, const QString& account, const QByteArray& data)
{
    if (!BusAddressProbe::sessionBusAccepts())
        return false;
    Deadline deadline(m_budget);
    if (!connectSessionBus(deadline.cancellable()))
        return false;

    ItemList found;
    search(found, Attributes(service, &account), SECRET_SEARCH_NONE, deadline.cancellable());
    bool matched = false;
    bool allSet = true;
    // Every unlocked item of that service and account gets the value, as a
    // keychain update changes every item its query matches.
    for (GList* node = found.items; node; node = node->next) {
        auto* item = static_cast<::SecretItem*>(node->data);
        if (secret_item_get_locked(item))
            continue;
        matched = true;
        SecretValue* value = secret_value_new(data.constData(), data.size(), "text/plain");
        ErrorSlot error;
        allSet = secret_item_set_secret_sync(item, value, deadline.cancellable(), error.out()) && allSet;
        secret_value_unref(value);
    }
    return matched && allSet;
}

bool LibsecretStore::add(const QString& service, const QString& account, const QByteArray& data)
{
    if (!BusAddressProbe::sessionBusAccepts())
        return false;
    Deadline deadline(m_budget);
    if (!connectSessionBus(deadline.cancellable()))
        return false;

    // Only an existing, unlocked default collection takes the item: creating or
    // unlocking one would ask the user for a password.
    ErrorSlot error;
    SecretService* secrets
        = secret_service_get_sync(SECRET_SERVICE_NONE, deadline.cancellable(), error.out());
    if (!secrets)
        return false;
    SecretCollection* collection = secret_collection_for_alias_sync(
        secrets, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, deadline.cancellable(), error.out());
    g_object_unref(secrets);
    if (!collection)
        return false;
    bool stored = false;
    if (!secret_collection_get_locked(collection)) {
        const Attributes attributes(service, &account);
        const QByteArray label = service.toUtf8();
        SecretValue* value = secret_value_new(data.constData(), data.size(), "text/plain");
        ::SecretItem* item = secret_item_create_sync(collection, genericSchema(), attributes.table,
            label.constData(), value, SECRET_ITEM_CREATE_NONE, deadline.cancellable(), error.out());
        secret_value_unref(value);
        if (item) {
            stored = true;
            g_object_unref(item);
        }
    }
    g_object_unref(collection);
    return stored;
}

std::shared_ptr<SecretStore> SecretStore::system()
{
    static const std::shared_ptr<SecretStore> store = std::make_shared<LibsecretStore>();
    return store;
}

} // namespace limitra::platform
