#pragma once

#include <QHash>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <algorithm>

/** A broker end for one client at a time, on a free port of 127.0.0.1, that does as told and notes what it
 * gets. */
class ScriptedBroker : public QTcpServer
{
public:
    enum Type {
        Connect = 1,
        Publish = 3,
        PubRel = 6,
        Subscribe = 8,
        Unsubscribe = 10,
        PingReq = 12,
        Disconnect = 14
    };
    enum Ending { KeepOpen, CloseAfterAnswer, CloseAtOnce };
    struct Packet {
        int type;
        int flags; // lower half of the first byte
        QByteArray body;
    };

    // The script
    QByteArray answer = connack(); // to CONNECT
    Ending ending = KeepOpen;
    bool byteByByte = false;
    bool readsAfterConnect = true;
    char granted = 0; // in SUBACK

    // The notes
    int sessions = 0;
    QList<Packet> packets;
    QByteArrayList documents; // payloads of QoS 2 messages, in the order of their release
    int mostUnfinished = 0; // QoS 2 messages at one time

    ScriptedBroker()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, &ScriptedBroker::onNewClient);
    }

    static QByteArray connack(int code = 0)
    {
        return QByteArray("\x20\x02\x00", 3) + static_cast<char>(code);
    }

    static QByteArray message(const QByteArray& topic, const QByteArray& payload) // below 128 bytes
    {
        const auto topicSize = static_cast<char>(topic.size());
        return '\x30' + QByteArray(1, static_cast<char>(2 + topic.size() + payload.size())) + '\0' + topicSize
            + topic + payload;
    }

    void send(const QByteArray& bytes)
    {
        const int piece = byteByByte ? 1 : bytes.size();
        for (int at = 0; at < bytes.size(); at += piece) {
            socket->write(bytes.mid(at, piece));
            socket->flush();
        }
    }

    int count(int type) const
    {
        const auto isOfType = [type](const Packet& packet) { return packet.type == type; };
        return static_cast<int>(std::count_if(packets.begin(), packets.end(), isOfType));
    }

    bool clientIsGone() const
    {
        return socket.isNull() || socket->state() == QAbstractSocket::UnconnectedState;
    }

private:
    void onNewClient()
    {
        ++sessions;
        socket = nextPendingConnection();
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        received.clear();
        unfinished.clear();
        connect(socket, &QTcpSocket::readyRead, this, &ScriptedBroker::onBytes);
        connect(socket, &QTcpSocket::disconnected, socket, &QTcpSocket::deleteLater);
        if (ending == CloseAtOnce)
            socket->close();
    }

    void onBytes()
    {
        if (!readsAfterConnect && !packets.isEmpty())
            return;
        received += socket->readAll();
        while (takePacket()) { }
    }

    bool takePacket()
    {
        int length = 0;
        int head = 1;
        do {
            if (head >= received.size())
                return false;
            length |= (received.at(head) & 0x7f) << (7 * (head - 1));
        } while ((received.at(head++) & 0x80) != 0);
        if (received.size() < head + length)
            return false;
        packets.append({received.at(0) >> 4 & 0x0f, received.at(0) & 0x0f, received.mid(head, length)});
        received.remove(0, head + length);
        react(packets.last());
        return true;
    }

    void react(const Packet& packet)
    {
        const QByteArray id = packet.body.left(2); // of most types
        if (packet.type == Connect) {
            if (!readsAfterConnect)
                socket->setReadBufferSize(1);
            send(answer);
            if (ending == CloseAfterAnswer)
                socket->close();
        } else if (packet.type == Publish && (packet.flags & 6) != 0) {
            const int idAt = 2 + packet.body.at(1); // topics below 128 bytes
            const QByteArray messageId = packet.body.mid(idAt, 2);
            if ((packet.flags & 4) != 0) {
                unfinished.insert(messageId, packet.body.mid(idAt + 2));
                mostUnfinished = qMax(mostUnfinished, unfinished.size());
            }
            send(((packet.flags & 4) != 0 ? "\x50\x02" : "\x40\x02") + messageId);
        } else if (packet.type == PubRel) {
            documents.append(unfinished.take(id));
            send("\x70\x02" + id);
        } else if (packet.type == Subscribe) {
            send("\x90\x03" + id + granted);
        } else if (packet.type == Unsubscribe) {
            send("\xb0\x02" + id);
        }
    }

    QPointer<QTcpSocket> socket;
    QByteArray received;
    QHash<QByteArray, QByteArray> unfinished; // QoS 2 payload by packet id
};
