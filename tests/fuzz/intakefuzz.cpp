// Untrusted messages on their way from the broker to a command. Input: topic, line feed, payload.

#include "config/config.h"
#include "ipc/ipc.h"

#include <QCoreApplication>
#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>

#include <syslog.h>

using namespace Lanvoy;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Stands in for the C library's: every line is put together, and goes nowhere.
extern "C" void vsyslog(int /*priority*/, const char* format, va_list args)
{
    static char line[65536];
#pragma clang diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(line, sizeof line, format, args);
}

namespace
{

/** Ends the run, which keeps the input, when a rule does not hold. */
void require(bool holds, const char* rule)
{
    if (holds)
        return;
    std::fprintf(stderr, "Does not hold: %s\n", rule);
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 0;
    static const QCoreApplication app(argc, nullptr);
    static Config config(QStringLiteral("/dev/null/lanvoy.conf"), nullptr); // cannot be read: the defaults
    static IPC ipc(&config, nullptr);
    static int commands;
    static QString command;
    static QJsonObject object;
    static const auto connection = QObject::connect(&ipc, &IPC::commandReceived, &ipc,
                                                    [](const QString& name, const QJsonObject& members) {
                                                        ++commands;
                                                        command = name;
                                                        object = members;
                                                    });
    Log::setLevel(Log::Debug);
    commands = 0;
    const QString base = config.mqtt().base + QLatin1Char('/');
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const int end = input.indexOf('\n');
    const QString topic = base + QString::fromUtf8(input.left(end));
    const QByteArray payload = end < 0 ? QByteArray() : input.mid(end + 1);
    require(QMetaObject::invokeMethod(&ipc, "onMqttMessage", Q_ARG(QByteArray, payload),
                                      Q_ARG(QMqttTopicName, QMqttTopicName(topic))),
            "the intake is a slot of this name");

    const QJsonDocument document = QJsonDocument::fromJson(payload);
    const bool readable = payload.isEmpty() || !document.isNull();
    require(commands == (readable ? 1 : 0), "one command for each readable message, none for others");
    require(!readable || object == document.object(), "the command carries the payload's object");
    require(topic.count(base) != 1 || !readable || base + command == topic,
            "the command is what follows the base topic");
    return 0;
}
