// SPDX-License-Identifier: MIT
#pragma once

#include "qmqttclient.h"

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QIODevice>
#include <QList>
#include <QQueue>
#include <QTimer>

class QHostInfo;
class QSocketNotifier;
struct mosquitto;

/**
 * One connection attempt and the session it leads to: name lookup, one libmosquitto handle per address tried,
 * socket notifiers. Used once: the next attempt is a new object, which no leftover of the old one can reach.
 *
 * libmosquitto's callbacks only append to a queue. Signals are emitted from that queue after the library has
 * returned, so a slot may publish, close, run an event loop or delete this object.
 */
class MqttConnection final : public QIODevice
{
    Q_OBJECT
public:
    struct Settings {
        QString host;
        quint16 port = 0;
        QString clientId;
        quint16 keepAlive = 60; // seconds
        int protocolVersion = 4;
        bool cleanSession = true;
        QString username;
        QString password;
    };

    MqttConnection(const Settings& settings, QObject* parent);
    /** Like leave(), but without signals. */
    ~MqttConnection() override;

    /** Starts the lookup of an open connection; everything that follows comes from the event loop. */
    void start();
    /** Sends the waiting data and DISCONNECT, which takes at most 250 ms, then closes with NoError. */
    void leave();
    /** Closes the socket at once, in whatever phase it is, with TransportInvalid. */
    void close() override;
    bool isSequential() const override { return true; }

    /** @return the packet id, -1 when it was refused */
    int publish(const QString& topic, const QByteArray& message, quint8 qos, bool retain);
    /** @return the packet id, -1 when it was refused */
    int subscribe(const QString& filter, quint8 qos);
    /** @return the packet id, -1 when it was refused */
    int unsubscribe(const QString& filter);

Q_SIGNALS:
    void accepted();
    void messageArrived(const QMqttMessage& message);
    void messageSent(qint32 id);
    void subscribeAnswered(int packetId, int granted); // granted: quality of service, 128 for refused
    void unsubscribed(int packetId);
    void closed(QMqttClient::ClientError error); // last signal of the object

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64) override { return -1; }

private Q_SLOTS:
    void onLookedUp(const QHostInfo& info);

private:
    enum class Phase { Resolving, TcpConnecting, AwaitingConnack, Accepted };
    struct Event {
        enum Kind { Accepted, Message, Sent, SubscribeAnswered, Unsubscribed, Lost } kind;
        int id = 0; // packet id
        int value = 0; // granted quality of service, error, or retain flag
        QByteArray message;
        QString topic;
    };

    // mqttconnection.cpp: phases, socket events, delivery
    void onWakeUp();
    void tryNextAddress(int result);
    bool tcpEstablished();
    void onReadable();
    void onWritable();
    void onKeepAlive();
    void watchSocket();
    void dropNotifiers();
    void afterLoop(int result);
    int afterRequest(int result, int id);
    void noteLost(int result);
    void deliver();
    void emitEvent(const Event& event);
    void sayGoodbye();
    void release();
    void end(QMqttClient::ClientError error);

    // mqttconnection_handle.cpp: the library's handle and its callbacks
    int createHandle();
    void destroyHandle();
    int setCredentials();
    int libraryKeepAlive() const;
    void setCallbacks();

    const Settings settings;
    Phase phase = Phase::Resolving;
    int lookupId = -1;
    QList<QHostAddress> addresses; // not tried yet
    mosquitto* handle = nullptr;
    QSocketNotifier* readNotifier = nullptr;
    QSocketNotifier* writeNotifier = nullptr;
    QTimer keepAliveTimer;
    QTimer wakeUp; // for what must not happen within the call of the client's user
    QQueue<Event> events;
    /** Sizes in bytes by id of QoS 1 and 2 messages; QoS 0 is reported by the library, but not by Qt. */
    QHash<int, int> unconfirmed;
    static constexpr qint64 unconfirmedLimit = 16LL * 1024 * 1024;
    qint64 unconfirmedBytes = 0;
    QTimer overfull; // runs while more than the limit is unconfirmed
    QElapsedTimer sinceConfirmation; // or, where nothing was to be confirmed, since the first message
    int refusal = 0; // return code of a CONNACK that refused
    bool lost = false; // the last event is in the queue
    bool delivering = false;
};
