// SPDX-License-Identifier: MIT
#pragma once

#include "buswatch.h"
#include "log/log.h"

#include <NetworkManagerQt/ModemDevice>
#include <NetworkManagerQt/WiredDevice>
#include <NetworkManagerQt/WirelessDevice>
#include <QMqttClient>
#include <QMqttTopicName>

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>

#include <cstddef>
#include <functional>

class QTimer;

namespace Lanvoy
{

class Config;
struct Topic;

/**
 * The broker session: keeps it up, turns incoming messages into commands and publishes the documents.
 *
 * Three seconds after a session or an attempt ends, whatever the reason, a new client tries again, without
 * limit. A document published while no session is up is lost.
 */
class IPC : public QObject
{
    Q_OBJECT

public:
    /** Does not connect yet. @p configuration must outlive the object; its base topic is read at each use. */
    IPC(Config* configuration, QObject* parent);

    /** The watch over the system bus that the documents use; the engine starts it. */
    BusWatch& bus() { return watch; }

    /** Whether documents reach the broker now. */
    bool hasSession() const;

    /** Has the object remember what it publishes, as publishChanges() needs. */
    void rememberPublished() { remembers = true; }

    /**
     * Calls @p publish, and publishes of its retained documents only those that differ from the last one that
     * this session has seen on the same topic for the same interface.
     *
     * @return how many documents were published
     */
    int publishChanges(const std::function<void()>& publish);

Q_SIGNALS:
    // The order of signals and slots is part of the interface: it is the order of the method table.

    /** The session is up and the command topics are subscribed; @p url is the broker's host. */
    void connected(const QString& url);
    /** The session or an attempt has ended. */
    void disconnected();
    /** Never emitted, broker errors are only logged; kept as part of the interface. */
    void error(int code, const QString& descr);
    /** A message arrived on a command topic; @p data is empty for an empty payload and for an array. */
    void commandReceived(const QString& command, const QJsonObject& data);

public Q_SLOTS:
    /** Starts a session with a new client. The retry timer calls this slot by its name. */
    void connect();
    /** Ends the session; the retry follows as after any other end. */
    void disconnect();

    // Each builds its document from the libraries' present values and publishes it under the base topic.
    void publishNetworkStatus();
    void publishNetworkInfo();
    /** Publishes the state document of the device's kind; nothing for null and for other kinds. */
    void publishDeviceState(NetworkManager::Device::Ptr dev);
    /** Publishes the configuration document of the device's kind; nothing for null and for other kinds. */
    void publishDeviceConfig(NetworkManager::Device::Ptr dev);
    void publishEthernetState(NetworkManager::WiredDevice::Ptr dev);
    void publishEthernetConfig(NetworkManager::WiredDevice::Ptr dev);
    void publishWifiState(NetworkManager::WirelessDevice::Ptr dev);
    /** Asks NetworkManager for the key and blocks the event loop until it answers. */
    void publishWifiConfig(NetworkManager::WirelessDevice::Ptr dev);
    void publishWifiAccessPoints(NetworkManager::WirelessDevice::Ptr dev);
    void publishWifiNetworks(NetworkManager::WirelessDevice::Ptr dev);
    void publishModemState(NetworkManager::ModemDevice::Ptr modem);
    /** @param stats megabytes by month ("yyyy-MM") and then by "rxbytes" and "txbytes" */
    void publishModemStats(QMap<QString, QMap<QString, double>> stats);
    /** Asks NetworkManager for password and PIN and blocks the event loop until it answers. */
    void publishModemConfig(NetworkManager::ModemDevice::Ptr dev);
    void publishDeviceModemSignal(NetworkManager::ModemDevice::Ptr modem);
    /** Publishes what went wrong with @p command. */
    void publishError(const QString& command, const QString& error);

private Q_SLOTS:
    void onMqttStateChanged(QMqttClient::ClientState state);
    void onMqttErrorChanged(QMqttClient::ClientError err);
    void onMqttMessage(const QByteArray& message, const QMqttTopicName& topic = QMqttTopicName());

private:
    void onConnectTimeout();
    void publish(const QString& topic, const QByteArray& data, int qos, bool retain);
    void publish(const Topic& topic, const QByteArray& data, const QString& interface = QString());
    void publish(const Topic& topic, const QJsonObject& document, const QString& interface = QString());
    bool isRepetition(const Topic& topic, const QByteArray& data, const QString& interface);
    void subscribe(const QString& topic);
    QString topicBase() const;
    void log(Log::Level level, const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(3, 4);

    Config* config;
    QMqttClient* client; // a child of this object, replaced by every connect()
    QTimer* connectTimer = nullptr; // likewise; null until the first connect()
    bool logEnabled = true;
    BusWatch watch;
    bool remembers = false;
    bool changesOnly = false; // what is published as it was is left out
    int publishedCount = 0;
    QHash<QString, std::size_t> lastPublished; // hashes of this session's documents, by topic and interface
};

} // namespace Lanvoy
