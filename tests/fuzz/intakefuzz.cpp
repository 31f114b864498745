// Untrusted messages on their way from the broker to a command. Input: topic, line feed, payload.

#include "fuzz.h"

#include "config/config.h"
#include "ipc/ipc.h"

#include <QJsonDocument>

using namespace Lanvoy;

namespace
{

const QString base = QStringLiteral("vexo/network");

IPC& intake()
{
    // A file that cannot be written: the defaults, in memory.
    static Config config(QStringLiteral("/dev/null/lanvoy.conf"), nullptr);
    static IPC ipc(&config, nullptr);
    return ipc;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const int end = input.indexOf('\n');
    const QString topic = base + QLatin1Char('/') + QString::fromUtf8(input.left(end));
    const QByteArray payload = end < 0 ? QByteArray() : input.mid(end + 1);

    int commands = 0;
    QString command;
    QJsonObject object;
    const auto connection = QObject::connect(&intake(), &IPC::commandReceived, &intake(),
                                             [&](const QString& c, const QJsonObject& o) {
                                                 ++commands;
                                                 command = c;
                                                 object = o;
                                             });
    const bool called = QMetaObject::invokeMethod(&intake(), "onMqttMessage", Q_ARG(QByteArray, payload),
                                                  Q_ARG(QMqttTopicName, QMqttTopicName(topic)));
    QObject::disconnect(connection);

    const QJsonDocument document = QJsonDocument::fromJson(payload);
    const bool readable = payload.isEmpty() || !document.isNull();
    require(called, "the intake is a slot of this name");
    require(commands == (readable ? 1 : 0), "one command for each readable message, none for others");
    require(!readable || object == document.object(), "the command carries the payload's object");
    require(topic.count(base + QLatin1Char('/')) != 1 || !readable
                || base + QLatin1Char('/') + command == topic,
            "the command is what follows the base topic");
    return 0;
}
