// SPDX-License-Identifier: MIT
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 0;
    static const QCoreApplication app(argc, nullptr);
    static Config config(QStringLiteral("/dev/null/lanvoy.conf"), nullptr); // cannot be read: the defaults
    IPC ipc(&config, nullptr);
    QList<QPair<QString, QJsonObject>> commands;
    QObject::connect(&ipc, &IPC::commandReceived, &ipc, [&](const QString& name, const QJsonObject& members) {
        commands.append({name, members});
    });
    Log::setLevel(Log::Debug);
    const QString base = config.mqtt().base + QLatin1Char('/');
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const int end = input.indexOf('\n');
    const QString topic = base + QString::fromUtf8(input.left(end));
    const QByteArray payload = end < 0 ? QByteArray() : input.mid(end + 1);
    const bool called = QMetaObject::invokeMethod(&ipc, "onMqttMessage", Q_ARG(QByteArray, payload),
                                                  Q_ARG(QMqttTopicName, QMqttTopicName(topic)));

    // One command for each readable message, none for others; topic and object arrive unchanged.
    const QJsonDocument document = QJsonDocument::fromJson(payload);
    const bool readable = payload.isEmpty() || !document.isNull();
    if (!called || commands.size() != (readable ? 1 : 0)
        || (readable && commands[0].second != document.object())
        || (readable && topic.count(base) == 1 && base + commands[0].first != topic))
        std::abort(); // which keeps the input
    return 0;
}
