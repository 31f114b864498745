// SPDX-License-Identifier: MIT
#include "scriptedbroker.h"

#include <QMqttClient>
#include <QMqttMessage>
#include <QMqttSubscription>
#include <QMqttTopicName>

#include <QIODevice>
#include <QTest>

#include <ctime>
#include <memory>

#include <sys/socket.h>

using Broker = ScriptedBroker;

namespace
{
/**
 * A client whose signals become words, in the order of their emission: s0 s1 s2 (states), up, down, e256
 * (errors) and m:topic=payload.
 */
struct Session {
    std::unique_ptr<QMqttClient> client = std::make_unique<QMqttClient>();
    QString trace;

    explicit Session(const Broker& broker, const QString& host = "127.0.0.1")
    {
        auto* const c = client.get();
        c->setHostname(host);
        c->setPort(broker.serverPort());
        QObject::connect(c, &QMqttClient::stateChanged, [this](int state) { note("s", state); });
        QObject::connect(c, &QMqttClient::connected, [this] { note("up"); });
        QObject::connect(c, &QMqttClient::disconnected, [this] { note("down"); });
        QObject::connect(c, &QMqttClient::errorChanged, [this](int error) { note("e", error); });
        const auto noteMessage = [this](const QByteArray& message, const QMqttTopicName& topic) {
            note("m:" + topic.name() + '=' + (message.isNull() ? "null" : message));
        };
        QObject::connect(c, &QMqttClient::messageReceived, noteMessage);
    }

    void note(const QString& word, int number = -1)
    {
        trace += (trace.isEmpty() ? "" : " ") + word + (number < 0 ? "" : QString::number(number));
    }
};

const QByteArray garbage = QByteArray::fromHex("ffffffffffff");
} // namespace

class QMqttClientTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void attemptEndsAsAnswered()
    {
        const auto ok = Broker::connack();
        const auto two = Broker::message("a", "1") + Broker::message("b", "");
        const struct {
            QByteArray answer;
            bool closes;
            QString trace;
            QString host = "127.0.0.1";
        } rows[] = {
            {ok, false, "e256", ""},
            {ok, false, "s1 s0 down e256", "a..b"}, // not a name
            // Where the name stands for ::1 too, that is refused first: the broker listens at IPv4 only.
            {ok, false, "s1 s2 up", "localhost"},
            {Broker::connack(1), false, "s1 s0 down e1"},
            {Broker::connack(5), true, "s1 s0 down e5"},
            {"", true, "s1 s0 down e256"},
            {ok.left(2), true, "s1 s0 down e256"},
            {garbage, false, "s1 s0 down e257"},
            {ok + two, true, "s1 s2 up m:a=1 m:b= s0 down e256"},
            {ok + two.chopped(1), true, "s1 s2 up m:a=1 s0 down e256"},
            {ok + garbage, false, "s1 s2 up s0 down e257"},
            {ok + Broker::message("\xff", "1"), false, "s1 s2 up s0 down e257"}, // no UTF-8
        };
        for (const auto& row : rows) {
            Broker broker;
            broker.answer = row.answer;
            broker.closesAfterAnswer = row.closes;
            Session session(broker, row.host);
            session.client->connectToHost();
            QCOMPARE(session.trace, row.host.isEmpty() ? "e256" : "s1"); // the rest comes from the event loop
            QTRY_COMPARE(session.trace, row.trace);
            QTest::qWait(20);
            QCOMPARE(session.trace, row.trace);
        }
    }

    void sessionEndsWithinTheCall()
    {
        const struct {
            QString host, reached; // the latter when the session is ended
            bool answered;
        } rows[] = {
            {"localhost", "s1", true}, // in the lookup of the name
            {"127.0.0.1", "s1", true},
            {"127.0.0.1", "s1", false},
            {"127.0.0.1", "s1 s2 up", true},
        };
        for (int i = 0; i < 8; ++i) {
            const auto& row = rows[i / 2];
            const bool byClose = i % 2 == 0; // of the transport, else by disconnectFromHost()
            Broker broker;
            broker.answer = row.answered ? Broker::connack() : "";
            Session session(broker, row.host);
            session.client->connectToHost();
            QTRY_VERIFY(row.answered || broker.count(Broker::Connect) == 1);
            QTRY_COMPARE(session.trace, row.reached);
            const bool orderly = row.reached.endsWith("up") && !byClose;
            const QString trace = row.reached + " s0 down" + (orderly ? "" : " e256");
            if (byClose)
                session.client->transport()->close();
            else
                session.client->disconnectFromHost();
            QCOMPARE(session.trace, trace); // within the call
            session.client->transport()->close(); // once more is nothing
            session.client->disconnectFromHost();
            QTest::qWait(20);
            QCOMPARE(session.trace, trace);
            QTRY_VERIFY(broker.clientIsGone());
            QCOMPARE(broker.count(Broker::Disconnect), orderly ? 1 : 0);
        }
    }

    void subscriptionGetsWhatFits()
    {
        const auto retained = [](QByteArray message) { return message.replace(0, 1, "\x31"); };
        Broker broker;
        Session session(broker);
        QStringList seen;
        QObject::connect(session.client.get(), &QMqttClient::connected, [&] {
            const QMqttSubscription* const subscription = session.client->subscribe(QString("a/+"));
            QObject::connect(subscription, &QMqttSubscription::messageReceived,
                             [&](const QMqttMessage& message) {
                                 seen.append(message.topic().name() + '=' + message.payload()
                                             + (message.retain() ? " retained" : ""));
                             });
            broker.send(retained(Broker::message("a/x", "1")) + Broker::message("a", "2")
                        + Broker::message("a/y", "3"));
        });
        session.client->connectToHost();
        QTRY_VERIFY(session.trace.endsWith("m:a/y=3"));
        QCOMPARE(seen, QStringList({"a/x=1 retained", "a/y=3"}));
    }

    void burstStaysWithinWindow()
    {
        Broker broker;
        Session session(broker);
        QMqttClient& client = *session.client;
        QList<qint32> ids, confirmed;
        client.setUsername("u");
        client.setPassword("p");
        client.setKeepAlive(3); // 5 is the shortest
        connect(&client, &QMqttClient::messageSent, [&](qint32 id) { confirmed.append(id); });
        connect(&client, &QMqttClient::connected, [&] {
            QCOMPARE(client.publish(QString("q0"), "x", 0), 0); // never confirmed
            ids.append(client.publish(QString("q1"), "x", 1));
            for (int i = 0; i < 300; ++i)
                ids.append(client.publish(QString("doc"), QByteArray::number(i), 2, true));
        });
        client.connectToHost();
        QTRY_COMPARE(confirmed.size(), 301);
        QCOMPARE(confirmed, ids);
        const QByteArray connect
            = broker.packets.first().body; // level, flags, keep-alive; id; user, password
        QCOMPARE((connect.mid(6, 4) + connect.mid(35)).toHex(), "04c20005000175000170");
        QCOMPARE(connect.mid(12, 23), client.clientId()); // every broker takes so many characters
        for (const auto& [packet, flags] : {QPair(1, 0), QPair(2, 2), QPair(3, 5)}) // QoS 0; 1; 2 and retain
            QCOMPARE(broker.packets.at(packet).flags, flags);
        int next = 0;
        for (const Broker::Packet& packet : qAsConst(broker.packets))
            QVERIFY(packet.type != Broker::Publish || packet.flags != 5
                    || packet.body.mid(7) == QByteArray::number(next++));
        // Brokers acknowledge and discard what exceeds their own window, usually 20.
        QVERIFY(broker.mostUnfinished <= 20);
    }

    void refusedPublishLeavesNothingBehind()
    {
        Broker broker;
        broker.answer.clear();
        Session session(broker);
        QMqttClient& client = *session.client;
        client.connectToHost();
        QTRY_COMPARE(broker.count(Broker::Connect), 1);
        QCOMPARE(client.publish(QString("connecting"), "x", 2), -1);
        broker.send(Broker::connack());
        QTRY_COMPARE(client.state(), QMqttClient::Connected);
        for (const QString& topic : {QString("a/+"), QString("a/#"), QString(), QString(65536, 'a')})
            QCOMPARE(client.publish(topic, "x", 2), -1);
        QVERIFY(client.publish(QString("/a//\u00fc/"), "x", 2) > 0);
        QTRY_VERIFY(broker.count(Broker::Publish) > 0);
        QTest::qWait(20);
        QCOMPARE(broker.count(Broker::Publish), 1);
    }

    void stuckBrokerCannotHoldUpTheEnd()
    {
        Broker broker;
        broker.readsAfterConnect = false;
        Session session(broker);
        session.client->connectToHost();
        QTRY_COMPARE(session.client->state(), QMqttClient::Connected);
        const QByteArray moreThanBuffersHold(30 << 20, 'x');
        QCOMPARE(session.client->publish(QString("a"), moreThanBuffersHold), 0);
        QTest::qWait(20);
        session.client.reset(); // comes back, or this test's time runs out
        QCOMPARE(broker.count(Broker::Publish), 0);
    }

    void unconfirmedMessagesEndSession()
    {
        Broker stuck;
        stuck.answersMessages = false;
        Session session(stuck);
        session.client->connectToHost();
        QTRY_COMPARE(session.trace, "s1 s2 up");
        for (int megabytes = 0; megabytes < 16; ++megabytes)
            QVERIFY(session.client->publish(QString("a"), QByteArray(1 << 20, 'x'), 2) > 0);
        QTest::qWait(20);
        session.client->publish(QString("a"), "x", 2);
        QCOMPARE(session.trace, "s1 s2 up"); // the broker may yet confirm
        QTRY_COMPARE_WITH_TIMEOUT(session.trace, "s1 s2 up s0 down e3", 60000);
    }

    void unansweredKeepAliveEndsSession()
    {
        Broker silent, stuck;
        stuck.answersPings = true;
        stuck.answersMessages = false;
        Session session(silent), second(stuck);
        const std::clock_t processorTime = std::clock();
        for (const auto& client : {session.client.get(), second.client.get()}) {
            client->setKeepAlive(5); // seconds, the shortest; the end comes after two of them
            client->connectToHost();
        }
        QTRY_COMPARE(second.trace, "s1 s2 up");
        second.client->publish(QString("a"), "x", 2);
        QTRY_COMPARE_WITH_TIMEOUT(session.trace, "s1 s2 up s0 down e3", 60000);
        QTRY_COMPARE_WITH_TIMEOUT(second.trace, "s1 s2 up s0 down e3", 60000);
        QCOMPARE(silent.count(Broker::PingReq), 1);
        QVERIFY(std::clock() - processorTime < CLOCKS_PER_SEC); // idle: no notifier fires without need
    }
};

QTEST_GUILESS_MAIN(QMqttClientTest)
#include "qmqttclienttest.moc"
