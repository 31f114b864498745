// SPDX-License-Identifier: MIT
#include "commands.h"
#include "session.h"
#include "views.h"

#include <QMap>
#include <QTime>

#include <csignal>
#include <limits>

namespace Ctl
{

namespace
{

volatile std::sig_atomic_t interrupted = 0;

const QStringList watched
    = {"info",         "status",       "error",      "ethernet/state", "ethernet/config",
       "wifi/state",   "wifi/config",  "wifi/aps",   "wifi/networks",  "modem/state",
       "modem/config", "modem/signal", "modem/stats"};

QString valueText(const QString& value)
{
    return value.isEmpty() ? QString("-") : value;
}

void show(const Context& context, const QString& topic, const QJsonObject& document,
          const QJsonObject& before)
{
    const QString now = QTime::currentTime().toString("hh:mm:ss");
    if (context.options.json) {
        const QByteArray line
            = jsonText({{"time", now}, {"topic", topic}, {"document", document}}, QJsonDocument::Compact);
        fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
        fflush(stdout);
        return;
    }
    const QString head = painted(now, Tone::Dim, context.look) + ' '
        + painted(textAt(document, "interface").leftJustified(9), Tone::Bold, context.look) + ' '
        + topic.leftJustified(15) + ' ';
    if (topic == "error") {
        put(head
            + painted(textAt(document, "command") + ": " + textAt(document, "error"), Tone::Bad, context.look)
            + '\n');
        return;
    }
    const QString arrow = context.look.utf8 ? " → " : " -> ";
    for (const Difference& difference : differences(before, document)) {
        const Tone tone = difference.member == "stateStr" ? toneOf(difference.to) : Tone::Plain;
        put(head + difference.member + ": " + valueText(difference.from) + arrow
            + painted(valueText(difference.to), tone, context.look) + '\n');
    }
}

} // namespace

Exit watch(Context& context)
{
    const QStringList topics = context.options.arguments.isEmpty() ? watched : context.options.arguments;
    for (const QString& topic : topics) {
        if (!watched.contains(topic))
            return fail(Usage, QString("There is no document '%1'.").arg(topic));
    }
    QMap<QString, QJsonObject> last; // by topic and device
    QObject::connect(&context.session, &Session::arrived, [&](const Message& message) {
        const QString key = message.topic + ' ' + message.document["interface"].toString();
        const QJsonObject document
            = context.options.secrets ? message.document : withoutSecrets(message.document);
        const QJsonObject before = last.value(key);
        last[key] = document;
        // The retained ones are what the first change is measured by.
        if (!message.retained && (document != before || message.topic == "error"))
            show(context, message.topic, document, before);
    });
    for (const int number : {SIGINT, SIGTERM})
        signal(number, [](int) { interrupted = 1; });
    context.session.subscribe(topics);
    constexpr int lookMs = 500; // a signal wakes up nobody by itself
    while (interrupted == 0 && context.session.isOpen())
        context.session.wait(lookMs, [] { return interrupted != 0; });
    return interrupted != 0 ? Done : fail(NoBroker, "The session with the broker was lost.");
}

} // namespace Ctl
