// The credential store on Linux: one Secret Service item per (service, account), through libsecret.
// Every call is bounded in time: a keyring that is missing, locked behind a prompt nobody can
// answer, or stuck must not hang the caller.

#include "platform/credential_store.h"

#include <libsecret/secret.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace velmora::platform {

namespace {

constexpr auto callTimeout = std::chrono::seconds(5);

const SecretSchema* loginSchema() {
    static const SecretSchema schema = {
        "com.velmora.app.Credential",
        SECRET_SCHEMA_DONT_MATCH_NAME,
        {
            {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
        0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    return &schema;
}

// Cancels `cancellable` when the deadline passes before the guarded call returns.
class Deadline {
public:
    Deadline() : cancellable_(g_cancellable_new()), watcher_([this] { watch(); }) {}
    ~Deadline() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        changed_.notify_all();
        watcher_.join();
        g_object_unref(cancellable_);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    GCancellable* cancellable() const { return cancellable_; }

private:
    void watch() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, callTimeout, [this] { return finished_; }))
            g_cancellable_cancel(cancellable_);
    }
    GCancellable* cancellable_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool finished_ = false;
    std::thread watcher_;
};

GHashTable* attributesFor(const std::string& service, const std::string& account) {
    GHashTable* attributes = g_hash_table_new(g_str_hash, g_str_equal);
    g_hash_table_insert(attributes, const_cast<char*>("service"), const_cast<char*>(service.c_str()));
    g_hash_table_insert(attributes, const_cast<char*>("account"), const_cast<char*>(account.c_str()));
    return attributes;
}

int statusOf(GError* error) {
    if (!error) return secretSuccess;
    g_error_free(error);
    return secretUnavailable;
}

SecretService* connect(GCancellable* cancellable) {
    GError* error = nullptr;
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, cancellable, &error);
    if (error) g_error_free(error);
    return service;
}

// The matching items, unlocked (with their secrets loaded when `withSecrets`); status in `status`.
GList* findItems(SecretService* service, const std::string& name, const std::string& account, bool withSecrets,
                 GCancellable* cancellable, int& status) {
    GHashTable* attributes = attributesFor(name, account);
    GError* error = nullptr;
    int flags = SECRET_SEARCH_UNLOCK | (withSecrets ? SECRET_SEARCH_LOAD_SECRETS : 0);
    GList* items = secret_service_search_sync(service, loginSchema(), attributes,
                                              static_cast<SecretSearchFlags>(flags), cancellable, &error);
    g_hash_table_unref(attributes);
    status = statusOf(error);
    if (status == secretSuccess && !items) status = secretItemNotFound;
    return items;
}

void freeItems(GList* items) { g_list_free_full(items, g_object_unref); }

SecretValue* valueFor(const std::string& data) {
    return secret_value_new(data.data(), static_cast<gssize>(data.size()), "application/octet-stream");
}

}  // namespace

SecretReading readSecret(const std::string& name, const std::string& account) {
    Deadline deadline;
    SecretService* service = connect(deadline.cancellable());
    if (!service) return {secretUnavailable, {}};
    SecretReading reading;
    GList* items = findItems(service, name, account, true, deadline.cancellable(), reading.status);
    if (items) {
        SecretItem* item = SECRET_ITEM(items->data);
        if (secret_item_get_locked(item)) {
            reading.status = secretUnavailable;
        } else if (SecretValue* value = secret_item_get_secret(item)) {
            gsize length = 0;
            const gchar* bytes = secret_value_get(value, &length);
            reading.data.assign(bytes, length);
            reading.status = secretSuccess;
            secret_value_unref(value);
        } else {
            reading.status = secretUnavailable;
        }
        freeItems(items);
    }
    g_object_unref(service);
    return reading;
}

int updateSecret(const std::string& name, const std::string& account, const std::string& data) {
    Deadline deadline;
    SecretService* service = connect(deadline.cancellable());
    if (!service) return secretUnavailable;
    int status = secretSuccess;
    GList* items = findItems(service, name, account, false, deadline.cancellable(), status);
    if (items) {
        SecretValue* value = valueFor(data);
        GError* error = nullptr;
        secret_item_set_secret_sync(SECRET_ITEM(items->data), value, deadline.cancellable(), &error);
        status = statusOf(error);
        secret_value_unref(value);
        freeItems(items);
    }
    g_object_unref(service);
    return status;
}

int addSecret(const std::string& name, const std::string& account, const std::string& data) {
    Deadline deadline;
    SecretService* service = connect(deadline.cancellable());
    if (!service) return secretUnavailable;
    GHashTable* attributes = attributesFor(name, account);
    SecretValue* value = valueFor(data);
    GError* error = nullptr;
    secret_service_store_sync(service, loginSchema(), attributes, SECRET_COLLECTION_DEFAULT, "Velmora Windows login",
                              value, deadline.cancellable(), &error);
    secret_value_unref(value);
    g_hash_table_unref(attributes);
    g_object_unref(service);
    return statusOf(error);
}

int deleteSecret(const std::string& name, const std::string& account) {
    Deadline deadline;
    SecretService* service = connect(deadline.cancellable());
    if (!service) return secretUnavailable;
    GHashTable* attributes = attributesFor(name, account);
    GError* error = nullptr;
    secret_service_clear_sync(service, loginSchema(), attributes, deadline.cancellable(), &error);
    g_hash_table_unref(attributes);
    g_object_unref(service);
    return statusOf(error);
}

}  // namespace velmora::platform
