// SPDX-License-Identifier: MIT
#include "qmqttclient.h"

#include "mqttconnection.h"

#include <QMap>
#include <QPointer>
#include <QUuid>

struct QMqttClient::Private {
    MqttConnection::Settings settings;
    ClientState state = Disconnected;
    ClientError error = NoError;
    quint32 transitions = 0; // counted, to notice a transition that a slot starts
    MqttConnection* connection = nullptr; // of the current or last attempt; a child of the client
    QMap<QString, QMqttSubscription*> subscriptions; // by filter
};

QMqttClient::QMqttClient(QObject* parent)
    : QObject(parent)
    , d(new Private)
{
    constexpr int longestClientId = 23; // what every broker has to accept
    d->settings.clientId = QUuid::createUuid().toString(QUuid::Id128).left(longestClientId);
}

QMqttClient::~QMqttClient()
{
    delete d->connection;
}

QIODevice* QMqttClient::transport() const
{
    return d->connection;
}

QMqttSubscription* QMqttClient::subscribe(const QMqttTopicFilter& topic, quint8 qos)
{
    if (d->state != Connected || d->connection == nullptr)
        return nullptr;
    if (!topic.isValid() || qos > 2) {
        qWarning("MQTT: no subscription, the topic filter or the quality of service is not valid.");
        return nullptr;
    }

    QMqttSubscription*& subscription = d->subscriptions[topic.filter()];
    if (subscription == nullptr)
        subscription = new QMqttSubscription(topic, this);
    if (subscription->state() == QMqttSubscription::Subscribed
        || subscription->state() == QMqttSubscription::SubscriptionPending)
        return subscription;

    const int packetId = d->connection->subscribe(topic.filter(), qos);
    if (packetId == -1)
        return nullptr;
    QMqttSubscription* const result = subscription;
    result->level = qos;
    result->packetId = packetId;
    result->setState(QMqttSubscription::SubscriptionPending);
    return result;
}

void QMqttClient::unsubscribe(const QMqttTopicFilter& topic)
{
    QMqttSubscription* const subscription = d->subscriptions.value(topic.filter());
    if (d->state != Connected || d->connection == nullptr || subscription == nullptr)
        return;
    if (subscription->state() != QMqttSubscription::Subscribed
        && subscription->state() != QMqttSubscription::SubscriptionPending)
        return;
    subscription->packetId = d->connection->unsubscribe(topic.filter());
    if (subscription->packetId != -1)
        subscription->setState(QMqttSubscription::UnsubscriptionPending);
}

qint32 QMqttClient::publish(const QMqttTopicName& topic, const QByteArray& message, quint8 qos, bool retain)
{
    // Refused here: the library would keep some of these and send them later.
    if (d->state != Connected || d->connection == nullptr || qos > 2 || !topic.isValid())
        return -1;
    const int packetId = d->connection->publish(topic.name(), message, qos, retain);
    return qos == 0 && packetId != -1 ? 0 : packetId;
}

void QMqttClient::connectToHost()
{
    if (d->state != Disconnected)
        return;
    d->error = NoError; // not announced: only failures are
    if (d->settings.host.isEmpty() || d->settings.port == 0) {
        setError(TransportInvalid);
        return;
    }

    if (d->connection != nullptr) {
        d->connection->disconnect(this);
        d->connection->deleteLater(); // this call may come from one of its signals
    }
    auto* const connection = new MqttConnection(d->settings, this);
    d->connection = connection;
    connect(connection, &MqttConnection::accepted, this, [this] { enter(Connected); });
    connect(connection, &MqttConnection::messageArrived, this, &QMqttClient::onMessageArrived);
    connect(connection, &MqttConnection::messageSent, this, &QMqttClient::messageSent);
    connect(connection, &MqttConnection::subscribeAnswered, this, &QMqttClient::onSubscribeAnswered);
    connect(connection, &MqttConnection::unsubscribed, this, &QMqttClient::onUnsubscribed);
    connect(connection, &MqttConnection::closed, this, &QMqttClient::onClosed);
    connection->open(QIODevice::ReadWrite | QIODevice::Unbuffered);

    const QPointer<MqttConnection> attempt(connection);
    enter(Connecting);
    if (!attempt.isNull() && attempt->isOpen())
        attempt->start();
}

void QMqttClient::disconnectFromHost()
{
    if (d->state == Disconnected)
        return;
    if (d->connection == nullptr || !d->connection->isOpen())
        enter(Disconnected);
    else if (d->state == Connected)
        d->connection->leave();
    else
        d->connection->close();
}

/**
 * Announces a transition.
 *
 * @return false when a slot deleted the client or started another transition, which makes the rest of this
 * one stale
 */
bool QMqttClient::enter(ClientState state)
{
    if (d->state == state)
        return true;
    const QPointer<QMqttClient> self(this);
    const quint32 transition = ++d->transitions;
    const auto isCurrent = [&] { return !self.isNull() && d->transitions == transition; };

    d->state = state;
    Q_EMIT stateChanged(state);
    if (!isCurrent())
        return false;
    if (state == Connected)
        Q_EMIT connected();
    else if (state == Disconnected)
        Q_EMIT disconnected();
    return isCurrent();
}

void QMqttClient::onMessageArrived(const QMqttMessage& message)
{
    const QPointer<QMqttClient> self(this);
    const QMap<QString, QMqttSubscription*> subscriptions = d->subscriptions;
    Q_EMIT messageReceived(message.payload(), message.topic());
    for (QMqttSubscription* subscription : subscriptions) {
        if (self.isNull())
            return;
        if (subscription->topic().match(message.topic()))
            Q_EMIT subscription->messageReceived(message);
    }
}

QMqttSubscription* QMqttClient::findPending(int packetId) const
{
    for (QMqttSubscription* subscription : qAsConst(d->subscriptions)) {
        if (subscription->packetId == packetId)
            return subscription;
    }
    return nullptr;
}

void QMqttClient::onSubscribeAnswered(int packetId, int granted)
{
    QMqttSubscription* const subscription = findPending(packetId);
    if (subscription == nullptr)
        return;
    subscription->packetId = -1;
    if (granted > 2) {
        qWarning("MQTT: the broker refused a subscription.");
        subscription->setState(QMqttSubscription::Error);
        return;
    }
    subscription->level = static_cast<quint8>(granted);
    subscription->setState(QMqttSubscription::Subscribed);
}

void QMqttClient::onUnsubscribed(int packetId)
{
    QMqttSubscription* const subscription = findPending(packetId);
    if (subscription == nullptr)
        return;
    subscription->packetId = -1;
    subscription->setState(QMqttSubscription::Unsubscribed);
}

void QMqttClient::onClosed(ClientError error)
{
    const QPointer<QMqttClient> self(this);
    const QMap<QString, QMqttSubscription*> subscriptions = d->subscriptions;
    for (QMqttSubscription* subscription : subscriptions) {
        subscription->packetId = -1;
        subscription->setState(QMqttSubscription::Unsubscribed);
        if (self.isNull())
            return;
    }
    if (enter(Disconnected) && error != NoError)
        setError(error);
}

QString QMqttClient::hostname() const
{
    return d->settings.host;
}

quint16 QMqttClient::port() const
{
    return d->settings.port;
}

QString QMqttClient::clientId() const
{
    return d->settings.clientId;
}

quint16 QMqttClient::keepAlive() const
{
    return d->settings.keepAlive;
}

QMqttClient::ProtocolVersion QMqttClient::protocolVersion() const
{
    return static_cast<ProtocolVersion>(d->settings.protocolVersion);
}

QMqttClient::ClientState QMqttClient::state() const
{
    return d->state;
}

QMqttClient::ClientError QMqttClient::error() const
{
    return d->error;
}

QString QMqttClient::username() const
{
    return d->settings.username;
}

QString QMqttClient::password() const
{
    return d->settings.password;
}

bool QMqttClient::cleanSession() const
{
    return d->settings.cleanSession;
}

bool QMqttClient::autoKeepAlive() const
{
    return true;
}

template<typename T> bool QMqttClient::change(T& property, const T& value)
{
    if (d->state != Disconnected || property == value)
        return false;
    property = value;
    return true;
}

void QMqttClient::setHostname(const QString& hostname)
{
    if (change(d->settings.host, hostname))
        Q_EMIT hostnameChanged(hostname);
}

void QMqttClient::setPort(quint16 port)
{
    if (change(d->settings.port, port))
        Q_EMIT portChanged(port);
}

void QMqttClient::setClientId(const QString& clientId)
{
    if (change(d->settings.clientId, clientId))
        Q_EMIT clientIdChanged(clientId);
}

void QMqttClient::setKeepAlive(quint16 keepAlive)
{
    if (change(d->settings.keepAlive, keepAlive))
        Q_EMIT keepAliveChanged(keepAlive);
}

void QMqttClient::setProtocolVersion(ProtocolVersion protocolVersion)
{
    if (change(d->settings.protocolVersion, static_cast<int>(protocolVersion)))
        Q_EMIT protocolVersionChanged(protocolVersion);
}

void QMqttClient::setState(ClientState state)
{
    enter(state);
}

void QMqttClient::setError(ClientError error)
{
    if (d->error == error)
        return;
    d->error = error;
    Q_EMIT errorChanged(error);
}

void QMqttClient::setUsername(const QString& username)
{
    if (change(d->settings.username, username))
        Q_EMIT usernameChanged(username);
}

void QMqttClient::setPassword(const QString& password)
{
    if (change(d->settings.password, password))
        Q_EMIT passwordChanged(password);
}

void QMqttClient::setCleanSession(bool cleanSession)
{
    if (change(d->settings.cleanSession, cleanSession))
        Q_EMIT cleanSessionChanged(cleanSession);
}
