// SPDX-License-Identifier: MIT
#include "commands.h"
#include "session.h"
#include "views.h"

#include <QMap>
#include <QTime>

#include <csignal>

namespace Ctl
{

namespace
{

using Members = QMap<QString, Difference>; // by path

/** Enters the texts of a document's members as what they change from or to. */
void flatten(const QJsonValue& value, const QString& path, QString Difference::*side, Members& members)
{
    const QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString name = member.key();
        const bool isTold = object.contains(name + "Str") // its word is enough
            || name == "accessPoints" || name == "referenceAP"; // these are in "wifi/aps"
        if (!isTold)
            flatten(member.value(), path.isEmpty() ? name : path + '.' + name, side, members);
    }
    const bool isList = value[0].isObject();
    for (const QJsonValue& entry : isList ? entriesOf(value) : QJsonArray()) {
        const QString name = entry["hardwareAddress"].toString(entry["ssid"].toString());
        flatten(entry, path + '[' + name + ']', side, members);
    }
    if (!value.isObject() && !isList) {
        members[path].member = printable(path);
        members[path].*side = textOf(value);
    }
}

volatile std::sig_atomic_t interrupted = 0;

QString lineOf(const QString& topic, const QJsonObject& document, const QJsonObject& before, const Look& look)
{
    const QString head = painted(QTime::currentTime().toString("hh:mm:ss"), Tone::Dim, look) + ' '
        + painted(textAt(document, "interface").leftJustified(9), Tone::Bold, look) + ' '
        + topic.leftJustified(15) + ' ';
    if (topic == "error") {
        const QString text = textAt(document, "command") + ": " + textAt(document, "error");
        return head + painted(text, Tone::Bad, look) + '\n';
    }
    const auto shown = [](const QString& value) { return value.isEmpty() ? QString("-") : value; };
    QString lines;
    for (const Difference& difference : differences(before, document)) {
        const Tone tone = difference.member == "stateStr" ? toneOf(difference.to) : Tone::Plain;
        lines += head + difference.member + ": " + shown(difference.from) + arrow(look)
            + painted(shown(difference.to), tone, look) + '\n';
    }
    return lines;
}

} // namespace

QVector<Difference> differences(const QJsonObject& before, const QJsonObject& now)
{
    Members members;
    flatten(before, {}, &Difference::from, members);
    flatten(now, {}, &Difference::to, members);
    QVector<Difference> result;
    for (const Difference& member : qAsConst(members)) {
        if (member.from != member.to)
            result.append(member);
    }
    return result;
}

Exit watch(Context& context, QJsonObject&)
{
    const QStringList watched = documentTopics() + QStringList {"error"};
    const QStringList topics = context.options.arguments.isEmpty() ? watched : context.options.arguments;
    for (const QString& topic : topics) {
        if (!watched.contains(topic))
            return fail(Usage, QString("There is no document '%1'.").arg(topic));
    }
    QMap<QString, QJsonObject> last; // by topic and device
    QObject::connect(&context.session, &Session::arrived, [&](const Message& message) {
        const QJsonObject document = shown(context, message.document);
        QJsonObject& before = last[message.topic + ' ' + document["interface"].toString()];
        // The retained ones are what the first change is measured by.
        const bool isNew = !message.retained && (document != before || message.topic == "error");
        if (isNew && context.options.json)
            put(jsonText({{"time", QTime::currentTime().toString("hh:mm:ss")},
                          {"topic", message.topic},
                          {"document", document}},
                         QJsonDocument::Compact));
        else if (isNew)
            put(lineOf(message.topic, document, before, context.look).toLocal8Bit());
        before = document;
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
