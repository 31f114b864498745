// SPDX-License-Identifier: MIT
#pragma once

#include "qmqttsubscription.h"
#include "qmqtttopicfilter.h"
#include "qmqtttopicname.h"

#include <QByteArray>
#include <QObject>
#include <QScopedPointer>
#include <QString>

class QIODevice;

/**
 * MQTT client with the names, signatures and signal order of Qt 5 MQTT (the part of it that a service needs),
 * over libmosquitto and driven by the event loop of its thread.
 *
 * Every transition emits stateChanged(), then connected() or disconnected(), then errorChanged() when it was
 * a failure. Properties can be set only while disconnected; otherwise a setter is ignored. A setter that
 * changes nothing emits nothing.
 */
class QMqttClient : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(QMqttClient)
public:
    enum ClientState { Disconnected = 0, Connecting, Connected };
    Q_ENUM(ClientState)

    enum ClientError {
        // 0 to 5 are the return codes of the broker's CONNACK; other codes are passed on unchanged
        NoError = 0,
        InvalidProtocolVersion = 1,
        IdRejected = 2,
        ServerUnavailable = 3, // also: no answer to the keep-alive request, or too much unconfirmed
        BadUsernameOrPassword = 4,
        NotAuthorized = 5,
        TransportInvalid = 256,
        ProtocolViolation = 257,
        UnknownError = 258,
        Mqtt5SpecificError = 259
    };
    Q_ENUM(ClientError)

    enum ProtocolVersion { MQTT_3_1 = 3, MQTT_3_1_1 = 4, MQTT_5_0 = 5 };
    Q_ENUM(ProtocolVersion)

    explicit QMqttClient(QObject* parent = nullptr);
    /** Sends DISCONNECT if connected, waiting at most 250 ms for unsent data. Emits no signals. */
    ~QMqttClient() override;

    /**
     * @return the device of the current or last connection attempt, owned by the client; null before the
     * first. Closing it ends the attempt or the session at once, with TransportInvalid. It cannot be read or
     * written.
     */
    QIODevice* transport() const;

    /**
     * @param topic  filter; a second call with the filter of a live subscription returns that one
     * @param qos    highest quality of service wanted, 0 to 2
     * @return the subscription, owned by the client; null when not connected or when the filter is not valid
     */
    QMqttSubscription* subscribe(const QMqttTopicFilter& topic, quint8 qos = 0);
    /** Ends the subscription with this filter, if there is one. */
    void unsubscribe(const QMqttTopicFilter& topic);

    /**
     * @param message  payload, at most 256 MiB - 1
     * @param qos      quality of service, 0 to 2
     * @param retain   whether the broker keeps the message for later subscribers
     * @return 0 for QoS 0, else the id that messageSent() will carry; -1 when not connected or when an
     * argument is not valid: nothing is sent or kept then
     */
    Q_INVOKABLE qint32 publish(const QMqttTopicName& topic, const QByteArray& message = QByteArray(),
                               quint8 qos = 0, bool retain = false);

    /**
     * Starts an attempt; ignored unless disconnected. Emits Connecting inside the call and the outcome from
     * the event loop. With an empty host or port 0 there is no attempt, only errorChanged(TransportInvalid)
     * inside the call.
     */
    Q_INVOKABLE void connectToHost();
    /** Ends the session with DISCONNECT, or an attempt with TransportInvalid. Emits its signals inside the
     * call. */
    Q_INVOKABLE void disconnectFromHost();

    QString hostname() const;
    quint16 port() const;
    QString clientId() const;
    quint16 keepAlive() const; // seconds; 0 for none, 1 to 4 count as 5
    ProtocolVersion protocolVersion() const;
    ClientState state() const;
    ClientError error() const;
    QString username() const;
    QString password() const;
    bool cleanSession() const;
    bool autoKeepAlive() const;

public Q_SLOTS:
    void setHostname(const QString& hostname);
    void setPort(quint16 port);
    void setClientId(const QString& clientId);
    void setKeepAlive(quint16 keepAlive);
    void setProtocolVersion(ProtocolVersion protocolVersion);
    void setState(ClientState state); // changes what is reported, not the connection
    void setError(ClientError error); // as above
    void setUsername(const QString& username);
    void setPassword(const QString& password);
    void setCleanSession(bool cleanSession);

Q_SIGNALS:
    void connected();
    void disconnected();
    void messageReceived(const QByteArray& message, const QMqttTopicName& topic = QMqttTopicName());
    void messageSent(qint32 id);
    // Types unqualified, as in Qt's own header: it is what a string based connect would have to match.
    void stateChanged(ClientState state);
    void errorChanged(ClientError error);
    void hostnameChanged(QString hostname);
    void portChanged(quint16 port);
    void clientIdChanged(QString clientId);
    void keepAliveChanged(quint16 keepAlive);
    void protocolVersionChanged(ProtocolVersion protocolVersion);
    void usernameChanged(QString username);
    void passwordChanged(QString password);
    void cleanSessionChanged(bool cleanSession);

private:
    struct Private;

    template<typename T> bool change(T& property, const T& value);
    bool enter(ClientState state);
    QMqttSubscription* findPending(int packetId) const;
    void onMessageArrived(const QMqttMessage& message);
    void onSubscribeAnswered(int packetId, int granted);
    void onUnsubscribed(int packetId);
    void onClosed(ClientError error);

    const QScopedPointer<Private> d;
};

Q_DECLARE_METATYPE(QMqttClient::ClientState)
Q_DECLARE_METATYPE(QMqttClient::ClientError)
