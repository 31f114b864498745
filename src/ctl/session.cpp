// SPDX-License-Identifier: MIT
#include "session.h"

#include <QMqttSubscription>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QMap>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

namespace Ctl
{

bool mayConcern(const QJsonObject& error, const QString& interface)
{
    const QString text = error["error"].toString();
    return !text.startsWith("Invalid device") || text.endsWith(": " + interface);
}

Session::Session(const Options& options_, QObject* parent)
    : QObject(parent)
    , options(options_)
{
    client.setHostname(options.host);
    client.setPort(options.port);
    client.setUsername(options.user);
    client.setPassword(options.password);
    client.setKeepAlive(60);
}

bool Session::isOpen() const
{
    return client.state() == QMqttClient::Connected;
}

QString Session::open()
{
    client.connectToHost();
    wait(options.answerMs, [this] { return client.state() != QMqttClient::Connecting; });
    if (isOpen())
        return {};
    const QString broker = QString("%1:%2").arg(options.host).arg(options.port);
    return QString("No session with the broker %1: %2.").arg(broker, explain());
}

QString Session::explain() const
{
    if (client.state() == QMqttClient::Connecting)
        return "it does not answer";
    static const QMap<QMqttClient::ClientError, QString> refusals = {
        {QMqttClient::BadUsernameOrPassword, "user name or password is wrong"},
        {QMqttClient::NotAuthorized, "not authorised"},
        {QMqttClient::ServerUnavailable, "it is not available"},
    };
    if (client.error() != QMqttClient::TransportInvalid)
        return refusals.value(client.error(), "it does not speak MQTT 3.1.1");
    // The client does not say why; the system does, when it is asked once more.
    QTcpSocket socket;
    socket.connectToHost(options.host, options.port);
    if (socket.waitForConnected(options.answerMs))
        return "it closed the connection";
    return socket.errorString().toLower();
}

void Session::subscribe(const QStringList& topics)
{
    QVector<QMqttSubscription*> subscriptions;
    const QString base = options.base + '/';
    for (const QString& topic : topics) {
        QMqttSubscription* const subscription = client.subscribe(base + topic);
        if (subscription == nullptr || subscription->state() == QMqttSubscription::Subscribed)
            continue;
        subscriptions.append(subscription);
        connect(subscription, &QMqttSubscription::messageReceived, this,
                [this, base](const QMqttMessage& message) {
                    const Message copy
                        = {message.topic().name().mid(base.size()),
                           QJsonDocument::fromJson(message.payload()).object(), message.retain()};
                    received.append(copy);
                    Q_EMIT arrived(copy);
                });
    }
    wait(options.answerMs, [&subscriptions] {
        return std::none_of(subscriptions.begin(), subscriptions.end(),
                            [](const QMqttSubscription* subscription) {
                                return subscription->state() == QMqttSubscription::SubscriptionPending;
                            });
    });
}

void Session::send(const QString& topic, const QJsonObject& payload)
{
    client.publish(options.base + '/' + topic,
                   payload.isEmpty() ? QByteArray() : QJsonDocument(payload).toJson(QJsonDocument::Compact));
}

bool Session::wait(int ms, const std::function<bool()>& condition)
{
    QElapsedTimer waited;
    waited.start();
    QTimer wakeUp;
    wakeUp.start(ms);
    const auto state = client.state();
    while (!condition()) {
        if (waited.hasExpired(ms) || (state == QMqttClient::Connected && !isOpen()))
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

QVector<Answer> Session::ask(const QVector<Query>& queries)
{
    const Query last = {"info"};
    QStringList topics = {"error", last.topic};
    for (const Query& query : queries)
        topics.append(query.topic);
    subscribe(topics);

    const int from = received.size();
    for (const Query& query : queries) {
        if (query.topic != last.topic)
            send(query.topic + "/get",
                 query.interface.isEmpty() ? QJsonObject() : QJsonObject {{"interface", query.interface}});
    }
    send(last.topic + "/get");

    QVector<Answer> answers;
    const auto complete = [&] {
        answers.clear();
        for (const Query& query : queries)
            answers.append(find(query, from));
        return std::all_of(answers.begin(), answers.end(), [](const Answer& answer) { return answer.came; });
    };
    const auto handled = [&] { return find(last, from).came; };
    // A document that the access list keeps from us would never come.
    constexpr int straggleMs = 1000;
    if (wait(options.answerMs, [&] { return complete() || handled(); }))
        wait(straggleMs, complete);
    return answers;
}

Answer Session::find(const Query& query, int from) const
{
    for (int i = from; i < received.size(); ++i) {
        const auto& [topic, document, retained] = received.at(i);
        const QString interface = document["interface"].toString();
        const bool isItsDevice
            = query.interface.isEmpty() || interface.isEmpty() || interface == query.interface;
        if (!retained && topic == query.topic && isItsDevice)
            return {true, document, {}};
        if (!retained && topic == "error" && document["command"] == query.topic + "/get"
            && mayConcern(document, query.interface))
            return {true, {}, document["error"].toString()};
    }
    return {};
}

QVector<QJsonObject> Session::documents(const QString& topic, bool retained) const
{
    QVector<QJsonObject> documents;
    for (const Message& message : received) {
        if (message.retained == retained && message.topic == topic)
            documents.append(message.document);
    }
    return documents;
}

} // namespace Ctl
