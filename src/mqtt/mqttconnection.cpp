// SPDX-License-Identifier: MIT
#include "mqttconnection.h"

#include <QHostInfo>
#include <QPointer>
#include <QSocketNotifier>

#include <algorithm>

#include <mosquitto.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace
{
constexpr int overfullLimitMs = 5000; // a burst is confirmed by then
constexpr int goodbyeLimitMs = 250; // the longest that a broker which reads nothing may block the event loop

QMqttClient::ClientError errorFor(int result)
{
    switch (result) {
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:
    case MOSQ_ERR_MALFORMED_UTF8:
        return QMqttClient::ProtocolViolation;
    case MOSQ_ERR_KEEPALIVE:
        return QMqttClient::ServerUnavailable;
    default:
        return QMqttClient::TransportInvalid;
    }
}
} // namespace

MqttConnection::MqttConnection(const Settings& settings_, QObject* parent)
    : QIODevice(parent)
    , settings(settings_)
{
    connect(&keepAliveTimer, &QTimer::timeout, this, &MqttConnection::onKeepAlive);
    overfull.setSingleShot(true);
    connect(&overfull, &QTimer::timeout, this, [this] { afterLoop(MOSQ_ERR_KEEPALIVE); });
    wakeUp.setSingleShot(true);
    connect(&wakeUp, &QTimer::timeout, this, &MqttConnection::onWakeUp);
}

MqttConnection::~MqttConnection()
{
    sayGoodbye();
    release();
}

void MqttConnection::start()
{
    // A numeric address skips the lookup, which would ask name servers for the name that belongs to it.
    const QHostAddress numeric(settings.host);
    if (numeric.isNull()) {
        lookupId = QHostInfo::lookupHost(settings.host, this, SLOT(onLookedUp(QHostInfo)));
    } else {
        addresses.append(numeric);
        wakeUp.start();
    }
}

void MqttConnection::onLookedUp(const QHostInfo& info)
{
    lookupId = -1;
    if (!isOpen())
        return;
    addresses = info.addresses();
    tryNextAddress(MOSQ_ERR_LOOKUP);
}

void MqttConnection::onWakeUp()
{
    if (phase == Phase::Resolving)
        tryNextAddress(MOSQ_ERR_LOOKUP);
    else
        deliver();
}

// The library would stop at the first address and would block on a name, so it gets one numeric address at a
// time. "result" is why the previous address failed. The last one is reported.
void MqttConnection::tryNextAddress(int result)
{
    while (!addresses.isEmpty()) {
        destroyHandle();
        phase = Phase::TcpConnecting;
        const QByteArray address = addresses.takeFirst().toString().toLatin1();
        result = createHandle();
        if (result == MOSQ_ERR_SUCCESS)
            result = mosquitto_connect_async(handle, address.constData(), settings.port, libraryKeepAlive());
        if (result == MOSQ_ERR_SUCCESS) {
            watchSocket();
            return;
        }
    }
    noteLost(result);
    deliver();
}

// The socket becomes ready once the TCP connect has succeeded or failed. Unlike a later error, a failure here
// moves on to the next address.
bool MqttConnection::tcpEstablished()
{
    if (phase != Phase::TcpConnecting)
        return true;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(mosquitto_socket(handle), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        tryNextAddress(MOSQ_ERR_ERRNO);
        return false;
    }
    phase = Phase::AwaitingConnack;
    return true;
}

void MqttConnection::onReadable()
{
    if (!tcpEstablished())
        return;
    // One packet per call, however many are allowed; the notifier fires again for the rest.
    const int result = mosquitto_loop_read(handle, 1);
    const int socket = mosquitto_socket(handle);
    if (socket != -1) {
        // The kernel falls back to delayed acknowledgements (40 ms) after each read, and a broker with
        // Nagle's algorithm holds its next packet until then.
        const int on = 1;
        setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
    }
    afterLoop(result);
}

void MqttConnection::onWritable()
{
    if (tcpEstablished())
        afterLoop(mosquitto_loop_write(handle, 1));
}

void MqttConnection::onKeepAlive()
{
    // A broker that answers pings but confirms no message would keep all later documents waiting behind the
    // send window.
    const bool stuck = !unconfirmed.isEmpty() && sinceConfirmation.hasExpired(2000LL * libraryKeepAlive());
    afterLoop(stuck ? MOSQ_ERR_KEEPALIVE : mosquitto_loop_misc(handle));
}

void MqttConnection::watchSocket()
{
    const int socket = mosquitto_socket(handle);
    readNotifier = new QSocketNotifier(socket, QSocketNotifier::Read, this);
    writeNotifier = new QSocketNotifier(socket, QSocketNotifier::Write, this);
    connect(readNotifier, &QSocketNotifier::activated, this, &MqttConnection::onReadable);
    connect(writeNotifier, &QSocketNotifier::activated, this, &MqttConnection::onWritable);
}

// Call this before anything can open a descriptor, which might get the number of the closed socket.
void MqttConnection::dropNotifiers()
{
    for (QSocketNotifier** notifier : {&readNotifier, &writeNotifier}) {
        if (*notifier == nullptr)
            continue;
        (*notifier)->setEnabled(false);
        (*notifier)->deleteLater(); // it may be the one whose signal is being handled
        *notifier = nullptr;
    }
}

void MqttConnection::afterLoop(int result)
{
    if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(handle) == -1)
        noteLost(result);
    if (writeNotifier != nullptr)
        writeNotifier->setEnabled(mosquitto_want_write(handle)); // left on, it would fire all the time
    deliver();
}

// Runs inside a public call, which must not emit signals. A dead socket seen here is left for the read
// notifier to report.
int MqttConnection::afterRequest(int result, int id)
{
    if (mosquitto_socket(handle) == -1)
        noteLost(result);
    if (writeNotifier != nullptr)
        writeNotifier->setEnabled(mosquitto_want_write(handle));
    if (!events.isEmpty() && !delivering)
        wakeUp.start();
    return result == MOSQ_ERR_SUCCESS ? id : -1;
}

// The first reason counts; the library may report one end twice.
void MqttConnection::noteLost(int result)
{
    dropNotifiers();
    if (lost)
        return;
    lost = true;
    events.enqueue({Event::Lost, 0, refusal != 0 ? refusal : errorFor(result), {}, {}});
}

// Any slot may delete this object, or run an event loop in which new events arrive. New events wait their
// turn.
void MqttConnection::deliver()
{
    if (delivering)
        return;
    delivering = true;
    const QPointer<MqttConnection> self(this);
    while (!events.isEmpty()) {
        emitEvent(events.dequeue());
        if (self.isNull())
            return;
    }
    delivering = false;
}

void MqttConnection::emitEvent(const Event& event)
{
    switch (event.kind) {
    case Event::Accepted:
        phase = Phase::Accepted;
        // The library pings after one keep-alive time and gives up after two, if it is called often enough.
        if (settings.keepAlive != 0)
            keepAliveTimer.start(std::clamp(settings.keepAlive / 12, 1, 5) * 1000);
        Q_EMIT accepted();
        break;
    case Event::Message:
        Q_EMIT messageArrived({event.topic, event.message, event.value != 0});
        break;
    case Event::Sent:
        Q_EMIT messageSent(event.id);
        break;
    case Event::SubscribeAnswered:
        Q_EMIT subscribeAnswered(event.id, event.value);
        break;
    case Event::Unsubscribed:
        Q_EMIT unsubscribed(event.id);
        break;
    case Event::Lost:
        end(static_cast<QMqttClient::ClientError>(event.value));
        break;
    }
}

int MqttConnection::publish(const QString& topic, const QByteArray& message, quint8 qos, bool retain)
{
    if (handle == nullptr || lost)
        return -1;
    int id = -1;
    const int result = mosquitto_publish(handle, &id, topic.toUtf8().constData(), message.size(),
                                         message.constData(), qos, retain);
    if (result == MOSQ_ERR_SUCCESS && qos > 0) {
        if (unconfirmed.isEmpty())
            sinceConfirmation.start();
        unconfirmed.insert(id, message.size());
        unconfirmedBytes += message.size();
        // A broker that confirms nothing, or less than is published, would fill the memory.
        if (unconfirmedBytes > unconfirmedLimit && !overfull.isActive())
            overfull.start(overfullLimitMs);
    }
    return afterRequest(result, id);
}

int MqttConnection::subscribe(const QString& filter, quint8 qos)
{
    if (handle == nullptr || lost)
        return -1;
    int id = -1;
    const int result = mosquitto_subscribe(handle, &id, filter.toUtf8().constData(), qos);
    return afterRequest(result, id);
}

int MqttConnection::unsubscribe(const QString& filter)
{
    if (handle == nullptr || lost)
        return -1;
    int id = -1;
    const int result = mosquitto_unsubscribe(handle, &id, filter.toUtf8().constData());
    return afterRequest(result, id);
}

void MqttConnection::sayGoodbye()
{
    if (phase != Phase::Accepted || handle == nullptr || lost)
        return;
    QElapsedTimer waited;
    waited.start();
    int result = mosquitto_disconnect(handle); // closes the socket once DISCONNECT is written
    while (result == MOSQ_ERR_SUCCESS && mosquitto_socket(handle) != -1 && mosquitto_want_write(handle)) {
        const auto left = goodbyeLimitMs - waited.elapsed();
        pollfd socket = {mosquitto_socket(handle), POLLOUT, 0};
        if (left <= 0 || poll(&socket, 1, static_cast<int>(left)) == 0)
            break;
        result = mosquitto_loop_write(handle, 1);
    }
}

void MqttConnection::leave()
{
    if (!isOpen())
        return;
    sayGoodbye();
    end(QMqttClient::NoError);
}

void MqttConnection::close()
{
    if (isOpen())
        end(QMqttClient::TransportInvalid);
}

void MqttConnection::release()
{
    if (lookupId != -1)
        QHostInfo::abortHostLookup(lookupId);
    lookupId = -1;
    addresses.clear();
    keepAliveTimer.stop();
    overfull.stop();
    wakeUp.stop();
    destroyHandle();
    events.clear();
}

void MqttConnection::end(QMqttClient::ClientError error)
{
    release();
    QIODevice::close();
    Q_EMIT closed(error);
}
