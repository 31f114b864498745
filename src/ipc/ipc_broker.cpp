// SPDX-License-Identifier: MIT
#include "ipc.h"

#include "config/config.h"
#include "types/lanvoytypes.h"

#include <QMqttTopicFilter>

#include <QIODevice>
#include <QJsonDocument>
#include <QTimer>

#include <cstdarg>
#include <utility>

namespace Lanvoy
{

namespace
{
constexpr quint16 keepAliveSec = 60;
constexpr int connectTimeoutMs = 10000;
constexpr int reconnectDelayMs = 3000;
} // namespace

IPC::IPC(Config* configuration, QObject* parent)
    : QObject(parent)
    , config(configuration)
    , client(new QMqttClient(this))
{
}

void IPC::connect()
{
    const Config::Mqtt& mqtt = config->mqtt();
    lastPublished.clear();
    delete std::exchange(client, new QMqttClient(this));
    client->setHostname(mqtt.url);
    client->setPort(mqtt.port);
    client->setUsername(mqtt.user);
    client->setPassword(mqtt.pass);
    client->setKeepAlive(keepAliveSec);
    QObject::connect(client, &QMqttClient::stateChanged, this, &IPC::onMqttStateChanged);
    QObject::connect(client, &QMqttClient::messageReceived, this, &IPC::onMqttMessage);
    QObject::connect(client, &QMqttClient::errorChanged, this, &IPC::onMqttErrorChanged);

    delete std::exchange(connectTimer, new QTimer(this));
    QObject::connect(connectTimer, &QTimer::timeout, this, &IPC::onConnectTimeout);

    client->connectToHost();
}

void IPC::disconnect()
{
    log(Log::Info, "Disconnecting from broker.");
    client->disconnectFromHost();
}

void IPC::onConnectTimeout()
{
    log(Log::Error, "MQTT broker not available.");
    // Closing the transport ends the attempt: the client returns to Disconnected.
    if (QIODevice* transport = client->transport())
        transport->close();
}

bool IPC::hasSession() const
{
    return client->state() == QMqttClient::Connected;
}

void IPC::onMqttStateChanged(QMqttClient::ClientState state)
{
    switch (state) {
    case QMqttClient::Connecting:
        log(Log::Info, "Connecting to %s:%u", qPrintable(client->hostname()), client->port());
        connectTimer->start(connectTimeoutMs);
        break;
    case QMqttClient::Connected:
        connectTimer->stop();
        log(Log::Info, "Connected.");
        subscribe(QStringLiteral("+/get"));
        subscribe(QStringLiteral("+/+/get"));
        subscribe(QStringLiteral("+/+/set"));
        Q_EMIT connected(client->hostname());
        break;
    case QMqttClient::Disconnected:
        log(Log::Info, "Disconnected.");
        Q_EMIT disconnected();
        // Deferred: the client must not be replaced from inside its own signal.
        QTimer::singleShot(reconnectDelayMs, this, SLOT(connect()));
        break;
    }
}

void IPC::onMqttErrorChanged(QMqttClient::ClientError err)
{
    log(Log::Error, "ERROR: %s (%d).", qPrintable(mqttErrorToString(err)), err);
}

void IPC::onMqttMessage(const QByteArray& message, const QMqttTopicName& topic)
{
    log(Log::Info, "Message Received [%s]", qPrintable(topic.name()));
    // Compatibility: every occurrence of the base topic is removed, not only the leading one.
    const QString command = topic.name().remove(topicBase() + QLatin1Char('/'));
    log(Log::Debug, "Command : %s", qPrintable(command));
    log(Log::Debug, "Data    : %s", message.constData());

    QJsonObject data;
    if (!message.isEmpty()) {
        QJsonParseError result;
        data = QJsonDocument::fromJson(message, &result).object();
        if (result.error != QJsonParseError::NoError) {
            log(Log::Error, "Json parse error: %s", qPrintable(result.errorString()));
            publishError(command, QLatin1String("Json parse error: ") + result.errorString());
            return;
        }
    }
    Q_EMIT commandReceived(command, data);
}

void IPC::publish(const QString& topic, const QByteArray& data, int qos, bool retain)
{
    const QString fullTopic = topicBase() + QLatin1Char('/') + topic;
    log(Log::Debug, "Publishing Message");
    log(Log::Debug, "Topic: [%s]", qPrintable(fullTopic));
    log(Log::Debug, "QoS  : %d", qos);
    log(Log::Debug, "Retn : %s", retain ? "true" : "false");
    log(Log::Debug, "Data : [%s]", data.constData());
    client->publish(QMqttTopicName(fullTopic), data, static_cast<quint8>(qos), retain);
}

void IPC::subscribe(const QString& topic)
{
    const QString filter = topicBase() + QLatin1Char('/') + topic;
    log(Log::Info, "Subscribing to topic [%s].", qPrintable(filter));
    client->subscribe(QMqttTopicFilter(filter), 0);
}

QString IPC::topicBase() const
{
    return config->mqtt().base;
}

void IPC::log(Log::Level level, const char* format, ...)
{
    if (!logEnabled)
        return;
    va_list args;
    va_start(args, format);
    Log::vprint(level, "[IPC] ", format, args);
    va_end(args);
}

} // namespace Lanvoy
