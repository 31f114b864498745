#include "scriptedbroker.h"

#include <QMqttClient>
#include <QMqttSubscription>
#include <QMqttTopicFilter>
#include <QMqttTopicName>

#include <QDir>
#include <QElapsedTimer>
#include <QIODevice>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <ctime>
#include <functional>
#include <memory>

#include <sys/socket.h>

using Broker = ScriptedBroker;

namespace
{
/**
 * A client whose signals become words, in the order of their emission: s0 s1 s2 (states), up, down, e256
 * (errors) and m:topic=payload. onWord runs inside the slot that noted the word.
 */
struct Session {
    std::unique_ptr<QMqttClient> client = std::make_unique<QMqttClient>();
    QString trace;
    QMqttClient::ClientError errorInStateSlot = QMqttClient::NoError;
    std::function<void(const QString& word)> onWord = [](const QString&) {};

    explicit Session(quint16 port, const QString& host = QStringLiteral("127.0.0.1"))
    {
        QMqttClient* const c = client.get();
        c->setHostname(host);
        c->setPort(port);
        QObject::connect(c, &QMqttClient::stateChanged, [this, c](QMqttClient::ClientState state) {
            errorInStateSlot = c->error();
            note(QStringLiteral("s%1").arg(state));
        });
        QObject::connect(c, &QMqttClient::connected, [this] { note(QStringLiteral("up")); });
        QObject::connect(c, &QMqttClient::disconnected, [this] { note(QStringLiteral("down")); });
        QObject::connect(c, &QMqttClient::errorChanged,
                         [this](QMqttClient::ClientError error) { note(QStringLiteral("e%1").arg(error)); });
        QObject::connect(
            c, &QMqttClient::messageReceived, [this](const QByteArray& m, const QMqttTopicName& topic) {
                note(QStringLiteral("m:%1=%2").arg(topic.name(), m.isNull() ? "null" : QString::fromUtf8(m)));
            });
    }

    void note(const QString& word)
    {
        trace += (trace.isEmpty() ? QString() : QStringLiteral(" ")) + word;
        onWord(word);
    }
};
} // namespace

class QMqttClientTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void attemptEndsAsAnswered_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<int>("ending");
        QTest::addColumn<QString>("trace");
        const auto row
            = [](const char* name, const QByteArray& answer, Broker::Ending ending, const char* trace) {
                  QTest::newRow(name) << answer << int(ending) << QString::fromLatin1(trace);
              };
        const auto ok = Broker::connack();
        const auto garbage = QByteArray::fromHex("ffffffffffff");
        const auto two = Broker::message("a", "1") + Broker::message("b", "2");
        row("silent", {}, Broker::KeepOpen, "s1");
        for (const int code : {1, 2, 3, 4, 5, 6, 128}) {
            const QByteArray trace = "s1 s0 down e" + QByteArray::number(code);
            row(trace.constData(), Broker::connack(code), Broker::KeepOpen, trace.constData());
        }
        row("refused and closed", Broker::connack(5), Broker::CloseAfterAnswer, "s1 s0 down e5");
        row("closed at once", {}, Broker::CloseAtOnce, "s1 s0 down e256");
        row("end within CONNACK", ok.left(2), Broker::CloseAfterAnswer, "s1 s0 down e256");
        row("garbage", garbage, Broker::KeepOpen, "s1 s0 down e257");
        row("messages behind", ok + two, Broker::KeepOpen, "s1 s2 up m:a=1 m:b=2");
        row("messages, end", ok + two, Broker::CloseAfterAnswer, "s1 s2 up m:a=1 m:b=2 s0 down e256");
        row("end within message", ok + two.chopped(1), Broker::CloseAfterAnswer,
            "s1 s2 up m:a=1 s0 down e256");
        row("no payload", ok + Broker::message("a", ""), Broker::KeepOpen,
            "s1 s2 up m:a="); // empty, but not null
        row("garbage in session", ok + garbage, Broker::KeepOpen, "s1 s2 up s0 down e257");
        row("not UTF-8", ok + Broker::message("\xc0\xaf", ""), Broker::KeepOpen, "s1 s2 up s0 down e257");
        row("DISCONNECT", ok + QByteArray("\xe0\0", 2), Broker::KeepOpen, "s1 s2 up s0 down e257");
    }

    void attemptEndsAsAnswered()
    {
        QFETCH(QByteArray, answer);
        QFETCH(int, ending);
        QFETCH(QString, trace);
        for (const bool byteByByte : {false, true}) {
            Broker broker;
            broker.answer = answer;
            broker.ending = static_cast<Broker::Ending>(ending);
            broker.byteByByte = byteByByte;
            Session session(broker.serverPort());
            session.client->connectToHost();
            QCOMPARE(session.trace, QStringLiteral("s1")); // the rest comes from the event loop
            QTRY_COMPARE(session.trace, trace);
            QTRY_COMPARE(broker.sessions, 1);
            QTest::qWait(20);
            QCOMPARE(session.trace, trace);
            QCOMPARE(session.errorInStateSlot, QMqttClient::NoError); // set after the state's slots
        }
    }

    void hostAndPort_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<bool>("portIsOpen");
        QTest::addColumn<QString>("atOnce");
        QTest::addColumn<QString>("atLast");
        QTest::newRow("no host") << QString() << true << "e256"
                                 << "e256";
        QTest::newRow("refused") << "127.0.0.1" << false << "s1"
                                 << "s1 s0 down e256";
        QTest::newRow("refused at all addresses") << "localhost" << false << "s1"
                                                  << "s1 s0 down e256";
        QTest::newRow("not a name") << "a..b" << true << "s1"
                                    << "s1 s0 down e256";
        // Where the name stands for ::1 too, that is refused first: the broker listens at the IPv4 address
        // only.
        QTest::newRow("second address") << "localhost" << true << "s1"
                                        << "s1 s2 up";
    }

    void hostAndPort()
    {
        QFETCH(QString, host);
        QFETCH(bool, portIsOpen);
        QFETCH(QString, atLast);
        Broker broker;
        Session session(broker.serverPort(), host);
        if (!portIsOpen)
            broker.close();
        session.client->connectToHost();
        QTEST(session.trace, "atOnce");
        QTRY_COMPARE(session.trace, atLast);

        Session portless(0, host);
        portless.client->connectToHost();
        QCOMPARE(portless.trace, QStringLiteral("e256"));
        QVERIFY(portless.client->transport() == nullptr);
    }

    void endingInEachPhase_data()
    {
        QTest::addColumn<QString>("phase");
        QTest::addColumn<bool>("byClose"); // of the transport, else by disconnectFromHost()
        QTest::addColumn<QString>("trace");
        for (const bool byClose : {true, false}) {
            for (const char* phase : {"slot", "resolving", "starting", "tcp", "connack"})
                QTest::addRow("%s %d", phase, byClose) << phase << byClose << "s1 s0 down e256";
            QTest::addRow("connected %d", byClose)
                << "connected" << byClose << (byClose ? "s1 s2 up s0 down e256" : "s1 s2 up s0 down");
        }
    }

    void endingInEachPhase()
    {
        QFETCH(QString, phase);
        QFETCH(bool, byClose);
        Broker broker;
        if (phase == "connack")
            broker.answer.clear();
        QTcpSocket fillers[2];
        if (phase == "tcp") { // a full queue: the kernel leaves the next SYN unanswered
            broker.pauseAccepting();
            ::listen(static_cast<int>(broker.socketDescriptor()), 0);
            for (QTcpSocket& filler : fillers)
                filler.connectToHost(QHostAddress::LocalHost, broker.serverPort());
            QTest::qWait(20);
        }

        Session session(broker.serverPort(), phase == "resolving" ? "localhost" : "127.0.0.1");
        const auto finish = [&] {
            QVERIFY(session.client->transport()->isOpen());
            if (byClose)
                session.client->transport()->close();
            else
                session.client->disconnectFromHost();
            QTEST(session.trace, "trace"); // within the call
        };
        if (phase == "slot")
            session.onWord = [&](const QString& word) { word == "s1" ? finish() : void(); };
        session.client->connectToHost();
        if (phase == "connack")
            QTRY_COMPARE(broker.count(Broker::Connect), 1);
        else if (phase == "connected")
            QTRY_VERIFY(session.trace.endsWith("up"));
        else if (phase == "tcp")
            QTest::qWait(20);
        if (phase != "slot")
            finish();

        session.client->transport()->close();
        session.client->disconnectFromHost();
        QTest::qWait(20);
        QTEST(session.trace, "trace");
        QTRY_VERIFY(broker.clientIsGone());
        QCOMPARE(broker.count(Broker::Disconnect), phase == "connected" && !byClose ? 1 : 0);
    }

    void deletionInOwnSlot()
    {
        for (const QString word : {"s1", "s2", "up", "m:a=1", "s0", "down", "e257"}) {
            Broker broker;
            broker.answer += Broker::message("a", "1") + Broker::message("b", "2");
            const bool afterTheEnd = QStringList({"s0", "down", "e257"}).contains(word);
            if (afterTheEnd)
                broker.answer += QByteArray("\xe0\0", 2);
            Session session(broker.serverPort());
            session.onWord = [&](const QString& seen) { seen == word ? session.client.reset() : void(); };
            session.client->connectToHost();
            QTRY_VERIFY2(session.client == nullptr, qPrintable(word));
            QTest::qWait(20);
            QCOMPARE(session.trace.section(' ', -1), word);
            QTRY_VERIFY(broker.clientIsGone());
            QCOMPARE(broker.count(Broker::Disconnect), afterTheEnd || word == "s1" ? 0 : 1);
        }
    }

    void reconnectInDisconnectedSlot()
    {
        Broker broker;
        broker.ending = Broker::CloseAfterAnswer;
        Session session(broker.serverPort());
        session.onWord = [&](const QString& word) {
            if (word == "s0" && broker.ending != Broker::KeepOpen) {
                broker.ending = Broker::KeepOpen;
                session.client->connectToHost();
            }
        };
        session.client->connectToHost();
        QTRY_COMPARE(broker.sessions, 2);
        QTest::qWait(20);
        // The first session's error is of no interest once the second one has begun.
        QCOMPARE(session.trace, QStringLiteral("s1 s2 up s0 s1 s2 up"));
        QCOMPARE(session.client->error(), QMqttClient::NoError);
    }

    void nestedEventLoopKeepsMessages()
    {
        Broker broker;
        broker.answer += Broker::message("a", "1") + Broker::message("a", "2");
        Session session(broker.serverPort());
        session.onWord = [&](const QString& word) {
            if (word == "m:a=1") {
                broker.send(Broker::message("a", "3") + Broker::message("a", "4"));
                QTest::qWait(50);
                session.note(QStringLiteral("returned"));
            }
        };
        session.client->connectToHost();
        QTRY_COMPARE(session.trace, QStringLiteral("s1 s2 up m:a=1 returned m:a=2 m:a=3 m:a=4"));
    }

    void burstStaysWithinWindow()
    {
        for (const int size : {25, 300}) {
            Broker broker;
            Session session(broker.serverPort());
            QMqttClient& client = *session.client;
            QList<qint32> ids;
            QList<qint32> confirmed;
            QByteArrayList documents;
            connect(&client, &QMqttClient::messageSent, [&](qint32 id) { confirmed.append(id); });
            connect(&client, &QMqttClient::connected, [&] {
                QCOMPARE(client.publish(QStringLiteral("q0"), "x", 0), 0); // never confirmed
                ids.append(client.publish(QStringLiteral("q1"), "x", 1));
                for (int i = 0; i < size; ++i) {
                    documents.append(QByteArray::number(i));
                    ids.append(client.publish(QStringLiteral("doc"), documents.last(), 2, true));
                }
            });
            client.connectToHost();
            QTRY_COMPARE(confirmed.size(), size + 1);
            QCOMPARE(confirmed, ids);
            QCOMPARE(broker.documents, documents);
            QCOMPARE(broker.packets.at(3).flags, 5); // QoS 2, retain
            // Brokers acknowledge and discard what exceeds their own window, usually 20.
            QVERIFY2(broker.mostUnfinished <= 20, qPrintable(QString::number(broker.mostUnfinished)));
        }
    }

    void refusedPublishLeavesNothingBehind()
    {
        Broker broker;
        broker.answer.clear();
        Session session(broker.serverPort());
        QMqttClient& client = *session.client;
        const auto publish
            = [&](const char* topic, quint8 qos) { return client.publish(QLatin1String(topic), "x", qos); };
        QCOMPARE(publish("never connected", 2), -1);
        client.connectToHost();
        QCOMPARE(publish("starting", 2), -1);
        QTRY_COMPARE(broker.count(Broker::Connect), 1);
        QCOMPARE(publish("connecting", 2), -1);
        broker.send(Broker::connack());
        QTRY_COMPARE(client.state(), QMqttClient::Connected);
        QCOMPARE(publish("a/+", 2), -1);
        QCOMPARE(publish("", 2), -1);
        QCOMPARE(publish("qos", 3), -1);
        QVERIFY(publish("good", 1) > 0);
        QTRY_VERIFY(broker.count(Broker::Publish) > 0);
        QTest::qWait(20);
        QCOMPARE(broker.count(Broker::Publish), 1);
        client.disconnectFromHost();
        QCOMPARE(publish("disconnected", 2), -1);
    }

    void subscriptions()
    {
        Broker broker;
        Session session(broker.serverPort());
        QMqttClient& client = *session.client;
        QVERIFY(client.subscribe(QStringLiteral("a/#")) == nullptr); // not connected
        client.connectToHost();
        QTRY_COMPARE(client.state(), QMqttClient::Connected);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("not valid")));
        QVERIFY(client.subscribe(QString()) == nullptr);

        QMqttSubscription* const first = client.subscribe(QStringLiteral("a/+/get"));
        QMqttSubscription* const second = client.subscribe(QStringLiteral("a/#"), 2);
        QCOMPARE(first->state(), QMqttSubscription::SubscriptionPending);
        QCOMPARE(client.subscribe(QStringLiteral("a/+/get")), first);
        QTRY_COMPARE(second->state(), QMqttSubscription::Subscribed);
        QCOMPARE(client.subscribe(QStringLiteral("a/+/get")), first);
        QCOMPARE(int(second->qos()), 0); // granted
        client.unsubscribe(QStringLiteral("a/#"));
        QTRY_COMPARE(second->state(), QMqttSubscription::Unsubscribed);
        QCOMPARE(broker.count(Broker::Subscribe), 2);

        broker.granted = '\x80';
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("refused")));
        QCOMPARE(client.subscribe(QStringLiteral("a/#")), second);
        QTRY_COMPARE(second->state(), QMqttSubscription::Error);
        client.disconnectFromHost();
        QCOMPARE(session.trace, QStringLiteral("s1 s2 up s0 down"));
        QCOMPARE(first->state(), QMqttSubscription::Unsubscribed);

        broker.granted = 0;
        client.connectToHost();
        QTRY_COMPARE(client.state(), QMqttClient::Connected);
        QVERIFY(client.subscribe(QStringLiteral("a/+/get")) != nullptr);
        QTRY_COMPARE(broker.count(Broker::Subscribe), 4); // not remembered from the last session
    }

    void connectPacket_data()
    {
        QTest::addColumn<QString>("username");
        QTest::addColumn<QString>("password");
        QTest::addColumn<int>("keepAlive");
        QTest::addColumn<QByteArray>("fields"); // level, flags, keep-alive, then what follows the client id
        QTest::newRow("none") << ""
                              << "" << 60 << QByteArray("0402003c");
        QTest::newRow("user") << "u"
                              << "" << 0 << QByteArray("04820000000175");
        QTest::newRow("both") << "u"
                              << "p" << 3 << QByteArray("04c20005000175000170"); // 5 is the shortest
        QTest::newRow("password") << ""
                                  << "p" << 65535 << QByteArray("04c2ffff0000000170");
    }

    void connectPacket()
    {
        QFETCH(QString, username);
        QFETCH(QString, password);
        QFETCH(int, keepAlive);
        Broker broker;
        Session session(broker.serverPort());
        QMqttClient& client = *session.client;
        client.setUsername(username);
        client.setPassword(password);
        QSignalSpy changes(&client, &QMqttClient::keepAliveChanged);
        for (int i = 0; i < 2; ++i)
            client.setKeepAlive(static_cast<quint16>(keepAlive));
        QCOMPARE(changes.count(), keepAlive == 60 ? 0 : 1); // silent when equal
        client.connectToHost();
        client.setHostname(QStringLiteral("elsewhere")); // ignored now
        client.connectToHost();
        QTRY_COMPARE(client.state(), QMqttClient::Connected);
        QCOMPARE(client.hostname(), QStringLiteral("127.0.0.1"));
        QCOMPARE(broker.sessions, 1);

        constexpr int idAt = 12;
        constexpr int idSize = 23;
        const QByteArray body = broker.packets.first().body;
        QCOMPARE(body.left(6), QByteArray("\0\4MQTT", 6));
        QCOMPARE(body.mid(idAt, idSize), client.clientId().toLatin1());
        QTEST((body.mid(6, 4) + body.mid(idAt + idSize)).toHex(), "fields");
    }

    void topics()
    {
        const QString longest(65535, 'a');
        for (const QString& both : {QStringLiteral("/a//ü/"), longest})
            QVERIFY2(QMqttTopicName(both).isValid() && QMqttTopicFilter(both).isValid(), qPrintable(both));
        for (const QString filter : {"#", "+", "a/#", "+/+", "/+/#"})
            QVERIFY2(!QMqttTopicName(filter).isValid() && QMqttTopicFilter(filter).isValid(),
                     qPrintable(filter));
        for (const QString& none :
             QStringList({"", longest + 'a', QString(1, QChar::Null), "a#", "#/a", "a+", "+a/b", "##"}))
            QVERIFY2(!QMqttTopicName(none).isValid() && !QMqttTopicFilter(none).isValid(), qPrintable(none));
    }

    void stuckBrokerHoldsUpBriefly()
    {
        for (const bool byDeletion : {false, true}) {
            Broker broker;
            broker.readsAfterConnect = false;
            Session session(broker.serverPort());
            session.client->connectToHost();
            QTRY_COMPARE(session.client->state(), QMqttClient::Connected);
            const QByteArray moreThanBuffersHold(30 << 20, 'x');
            QCOMPARE(session.client->publish(QStringLiteral("a"), moreThanBuffersHold), 0);
            QTest::qWait(20);
            QElapsedTimer duration;
            duration.start();
            if (byDeletion)
                session.client.reset();
            else
                session.client->disconnectFromHost();
            QVERIFY2(duration.elapsed() < 1000, qPrintable(QString::number(duration.elapsed())));
            QCOMPARE(session.trace, QString(byDeletion ? "s1 s2 up" : "s1 s2 up s0 down"));
        }
    }

    void descriptorsAreReturned()
    {
        const auto openDescriptors = [] { return QDir(QStringLiteral("/proc/self/fd")).count(); };
        Broker broker;
        Session session(broker.serverPort());
        uint before = 0;
        for (int round = 0; round < 50; ++round) {
            session.client->connectToHost();
            if (round % 2 == 0)
                QTRY_COMPARE(session.client->state(), QMqttClient::Connected);
            session.client->transport()->close();
            QTRY_VERIFY(broker.clientIsGone());
            if (round == 2)
                before = openDescriptors();
        }
        QTRY_COMPARE(openDescriptors(), before);
    }

    void unansweredKeepAliveEndsSession()
    {
        Broker broker; // answers no PINGREQ
        Session session(broker.serverPort());
        session.client->setKeepAlive(5); // seconds, the shortest; the end comes after two of them
        const std::clock_t processorTime = std::clock();
        session.client->connectToHost();
        QTRY_COMPARE_WITH_TIMEOUT(session.trace, QStringLiteral("s1 s2 up s0 down e3"), 14000);
        QCOMPARE(broker.count(Broker::PingReq), 1);
        QVERIFY(std::clock() - processorTime < CLOCKS_PER_SEC); // idle: no notifier fires without need
    }
};

QTEST_GUILESS_MAIN(QMqttClientTest)
#include "qmqttclienttest.moc"
