// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <algorithm>

/** A broker end for one client, on a free port of 127.0.0.1: does as told and notes. */
class ScriptedBroker : public QTcpServer
{
public:
    enum Type { Connect = 1, Publish = 3, PubRel = 6, PingReq = 12, Disconnect = 14 };
    struct Packet {
        int type, flags; // the halves of the first byte
        QByteArray body;
    };

    // The script
    QByteArray answer = connack(); // to CONNECT
    bool closesAfterAnswer = false;
    bool readsAfterConnect = true;
    bool answersPings = false;
    bool answersMessages = true;

    // The notes
    QList<Packet> packets;
    int mostUnfinished = 0; // QoS 2 messages at one time

    ScriptedBroker()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, &ScriptedBroker::onNewClient);
    }

    static QByteArray connack(char code = 0) { return QByteArray("\x20\x02\x00", 3) + code; }

    static QByteArray message(const QByteArray& topic, const QByteArray& payload) // below 100 bytes
    {
        const auto length = static_cast<char>(2 + topic.size() + payload.size());
        return QByteArray("\x30") + length + '\0' + static_cast<char>(topic.size()) + topic + payload;
    }

    void send(const QByteArray& bytes) { socket->write(bytes); }

    int count(int type) const
    {
        return static_cast<int>(std::count_if(packets.begin(), packets.end(),
                                              [type](const Packet& packet) { return packet.type == type; }));
    }

    bool clientIsGone() const { return socket.isNull() || !socket->isValid(); }

private:
    void onNewClient()
    {
        socket = nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, this, &ScriptedBroker::onBytes);
        connect(socket, &QTcpSocket::disconnected, socket, &QTcpSocket::deleteLater);
    }

    void onBytes()
    {
        if (!readsAfterConnect && !packets.isEmpty())
            return;
        received += socket->readAll();
        while (received.size() >= 2 && received.size() >= 2 + received.at(1)) { // packets below 128 bytes
            const QByteArray body = received.mid(2, received.at(1));
            packets.append({received.at(0) >> 4 & 0x0f, received.at(0) & 0x0f, body});
            received.remove(0, 2 + body.size());
            react(packets.last());
        }
    }

    void react(const Packet& packet)
    {
        if (packet.type == Connect) {
            if (!readsAfterConnect)
                socket->setReadBufferSize(1);
            send(answer);
            if (closesAfterAnswer)
                socket->close();
        } else if (packet.type == PingReq && answersPings) {
            send(QByteArray("\xd0\0", 2));
        } else if (packet.type == Publish && (packet.flags & 6) != 0 && answersMessages) {
            const bool inTwoSteps = (packet.flags & 4) != 0;
            unfinished += inTwoSteps ? 1 : 0;
            mostUnfinished = qMax(mostUnfinished, unfinished);
            send((inTwoSteps ? "\x50\x02" : "\x40\x02") + packet.body.mid(2 + packet.body.at(1), 2));
        } else if (packet.type == PubRel) {
            --unfinished;
            send("\x70\x02" + packet.body);
        }
    }

    QPointer<QTcpSocket> socket;
    QByteArray received;
    int unfinished = 0;
};
