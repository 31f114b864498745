// SPDX-License-Identifier: MIT
#include "mqttconnection.h"

#include <mosquitto.h>

#include <algorithm>

namespace
{
MqttConnection* connectionOf(void* object)
{
    return static_cast<MqttConnection*>(object);
}
} // namespace

// A new handle for each address: a used one would send the unfinished messages of its last session again.
int MqttConnection::createHandle()
{
    // Never cleaned up: it holds nothing that the end of the process does not free, and clients may outlive
    // statics.
    static const int ready = mosquitto_lib_init();
    if (ready != MOSQ_ERR_SUCCESS)
        return ready;

    const QByteArray id = settings.clientId.toUtf8();
    handle = mosquitto_new(id.isEmpty() ? nullptr : id.constData(), settings.cleanSession, this);
    if (handle == nullptr)
        return MOSQ_ERR_INVAL;

    // The window of 20 unfinished messages stays as it is: brokers silently discard what exceeds theirs,
    // also 20.
    int result = mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION, settings.protocolVersion);
    // Packets are written one by one; with Nagle's algorithm the second of two waits for a delayed
    // acknowledgement.
    if (result == MOSQ_ERR_SUCCESS)
        result = mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1);
    if (result == MOSQ_ERR_SUCCESS)
        result = setCredentials();
    setCallbacks();
    return result;
}

void MqttConnection::destroyHandle()
{
    dropNotifiers();
    if (handle != nullptr)
        mosquitto_destroy(handle);
    handle = nullptr;
}

int MqttConnection::setCredentials()
{
    if (settings.username.isEmpty() && settings.password.isEmpty())
        return MOSQ_ERR_SUCCESS;
    const QByteArray username = settings.username.toUtf8();
    const QByteArray password = settings.password.toUtf8();
    // An empty text would be sent as an empty password; null sends none.
    return mosquitto_username_pw_set(handle, username.constData(),
                                     password.isEmpty() ? nullptr : password.constData());
}

int MqttConnection::libraryKeepAlive() const
{
    constexpr int shortest = 5; // seconds; the library refuses less, except 0 for none
    return settings.keepAlive == 0 ? 0 : std::max<int>(settings.keepAlive, shortest);
}

void MqttConnection::setCallbacks()
{
    mosquitto_connect_callback_set(handle, [](mosquitto*, void* object, int code) {
        if (code == 0)
            connectionOf(object)->events.enqueue({Event::Accepted, 0, 0, {}, {}});
        else
            connectionOf(object)->refusal = code; // the disconnect callback follows, with a less exact result
    });
    mosquitto_disconnect_callback_set(
        handle, [](mosquitto*, void* object, int result) { connectionOf(object)->noteLost(result); });
    mosquitto_message_callback_set(handle, [](mosquitto*, void* object, const mosquitto_message* message) {
        // An empty payload comes as a null pointer; receivers get an empty text, not a null one.
        const char* payload = message->payload == nullptr ? "" : static_cast<const char*>(message->payload);
        connectionOf(object)->events.enqueue({Event::Message, 0, message->retain ? 1 : 0,
                                              QByteArray(payload, message->payloadlen),
                                              QString::fromUtf8(message->topic)});
    });
    mosquitto_publish_callback_set(handle, [](mosquitto*, void* object, int id) {
        MqttConnection* const connection = connectionOf(object);
        const auto confirmed = connection->unconfirmed.constFind(id);
        if (confirmed != connection->unconfirmed.constEnd()) {
            connection->unconfirmedBytes -= *confirmed;
            if (connection->unconfirmedBytes <= unconfirmedLimit)
                connection->overfull.stop();
            connection->unconfirmed.erase(confirmed);
            connection->sinceConfirmation.start();
            connection->events.enqueue({Event::Sent, id, 0, {}, {}});
        }
    });
    mosquitto_subscribe_callback_set(
        handle, [](mosquitto*, void* object, int id, int count, const int* granted) {
            constexpr int refused = 128;
            connectionOf(object)->events.enqueue(
                {Event::SubscribeAnswered, id, count > 0 ? granted[0] : refused, {}, {}});
        });
    mosquitto_unsubscribe_callback_set(handle, [](mosquitto*, void* object, int id) {
        connectionOf(object)->events.enqueue({Event::Unsubscribed, id, 0, {}, {}});
    });
}
