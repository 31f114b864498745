// SPDX-License-Identifier: MIT
#include "doctor.h"

#include "session.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QRandomGenerator>

#include <algorithm>

namespace Ctl
{

namespace
{

struct HealthRow {
    const char* word;
    const char* mark;
    const char* plainMark; // where the locale is not UTF-8
    Tone tone;
};

constexpr HealthRow healths[] = {
    {"ok", "✓", "+", Tone::Good},
    {"warning", "!", "!", Tone::Busy},
    {"failure", "✗", "x", Tone::Bad},
};

const HealthRow& rowOf(const Check& check)
{
    return healths[static_cast<int>(check.health)];
}

int countOf(const Session& session, const QString& topic)
{
    const QVector<Message>& messages = session.messages();
    return static_cast<int>(std::count_if(messages.begin(), messages.end(), [&](const Message& message) {
        return message.topic == topic && !message.retained;
    }));
}

Check checkBroker(const Context& context, const QString& problem)
{
    if (!problem.isEmpty())
        return {"broker", Health::Failure, problem,
                "Look at the broker's log; options -H, -p, -u say where and who."};
    return {"broker",
            Health::Ok,
            QString("Session with %1:%2").arg(context.options.host).arg(context.options.port),
            {}};
}

/** Counts the services by a question that only we ask; each says that it has no such device, in its log too.
 */
int countServices(Session& session, int straggleMs)
{
    const QString nobody = QString("doctor-%1").arg(QRandomGenerator::global()->generate());
    session.send("ethernet/state/get", {{"interface", nobody}});
    session.wait(straggleMs, [] { return false; });
    const QVector<Message>& messages = session.messages();
    return static_cast<int>(std::count_if(messages.begin(), messages.end(), [&](const Message& message) {
        return message.topic == "error" && message.document["error"].toString().endsWith(nobody);
    }));
}

Check checkService(Context& context)
{
    Session& session = context.session;
    session.subscribe({"+/get", "+/+/get", "+/+/set", "info", "error"});
    QElapsedTimer waited;
    waited.start();
    session.send("info/get");
    const QString base = context.options.base;
    if (!session.wait(context.options.answerMs, [&] { return countOf(session, "info") > 0; })) {
        const bool isPassedOn = countOf(session, "info/get") > 0;
        return {"service", Health::Failure, QString("Nobody answers below '%1'").arg(base),
                isPassedOn ? "Start lanvoy; compare its Mqtt/base and the broker's access list for its user."
                           : "Start lanvoy; look whether the access list lets your user ask (the question "
                             "did not come back)."};
    }
    const int ms = static_cast<int>(waited.elapsed());
    const int straggleMs
        = std::clamp(3 * ms, 1000, std::max(1000, context.options.answerMs)); // others may be slower
    session.wait(straggleMs, [] { return false; });
    const int services = countOf(session, "info") > 1 ? countServices(session, straggleMs) : 1;
    if (services > 1)
        return {"service", Health::Failure, QString("%1 services answer below '%2'").arg(services).arg(base),
                "Give each gateway a base topic of its own (Mqtt/base), or stop one."};
    QString version;
    for (const Message& message : session.messages()) {
        if (message.topic == "info")
            version = textAt(message.document, "service.version");
    }
    constexpr int slowMs = 1000;
    return {"service", ms > slowMs ? Health::Warning : Health::Ok,
            QString("Version %1 answers after %2 ms").arg(version).arg(ms),
            ms > slowMs ? "It waits for NetworkManager: look at both logs." : ""};
}

QVector<Check> checkRetained(const Context& context)
{
    QVector<Check> checks;
    for (const Message& message : context.session.messages()) {
        const bool isSet = message.topic.endsWith("/set");
        if (!message.retained || message.payload.isEmpty() || (!isSet && !message.topic.endsWith("/get")))
            continue;
        // The empty message that clears the store is a command as well, one that empties the configuration.
        const QString topic = context.options.base + '/' + message.topic;
        const QString clear = QString("mosquitto_pub -h %1 -p %2 -t '%3' -r -n")
                                  .arg(context.options.host, QString::number(context.options.port),
                                       QString(topic).replace("'", "'\\''")); // to be pasted into a shell
        checks.append({"retained", isSet ? Health::Failure : Health::Warning,
                       QString("'%1' is retained: it is carried out at every connection").arg(message.topic),
                       isSet ? "Stop lanvoy, " + clear + ", start it" : clear});
    }
    if (checks.isEmpty())
        checks.append({"retained", Health::Ok, "No command is retained", {}});
    return checks;
}

QVector<Check> checkDevices(Context& context)
{
    Overview overview;
    if (ask(context, overview) != Done)
        return {};
    QVector<Check> checks;
    QVector<Query> queries;
    for (const QJsonObject& state : overview.devices) {
        const QString word = textAt(state, "stateStr");
        const QString interface = state["interface"].toString();
        queries.append({kindOf(state) + "/config", interface});
        const bool isConnected = word == "Connected";
        checks.append({"device",
                       isConnected ? Health::Ok : Health::Warning,
                       isConnected ? QString("%1: %2").arg(interface, word)
                                   : QString("%1: %2, %3").arg(interface, word, textAt(state, "reasonStr")),
                       {}});
    }
    QStringList silent;
    const QVector<Answer> answers = context.session.ask(queries);
    for (int i = 0; i < answers.size(); ++i) {
        if (!answers.at(i).came)
            silent.append(queries.at(i).topic);
    }
    if (!silent.isEmpty())
        checks.append(
            {"access", Health::Warning, "No answer to questions for " + silent.join(", "),
             "The broker's access list keeps them from you or the service, or NetworkManager is slow."});
    return checks;
}

QString textOf(const Check& check, const Look& look)
{
    const HealthRow& row = rowOf(check);
    QString text = painted(look.utf8 ? row.mark : row.plainMark, row.tone, look) + ' '
        + QString(check.name).leftJustified(9) + printable(check.text) + '\n';
    if (!check.mend.isEmpty())
        text += QString(11, ' ')
            + painted((look.utf8 ? "→ " : "-> ") + printable(check.mend), Tone::Dim, look) + '\n';
    return text;
}

} // namespace

Exit doctor(Context& context)
{
    QVector<Check> checks = {checkBroker(context, context.session.open())};
    if (context.session.isOpen()) {
        checks.append(checkService(context));
        checks += checkRetained(context);
        if (countOf(context.session, "info") > 0)
            checks += checkDevices(context);
    }
    if (context.options.isLocal && isOnGateway())
        checks += checkGateway(context.options.serviceFile);

    QJsonArray array;
    QString text;
    bool isHealthy = true;
    for (const Check& check : checks) {
        isHealthy = isHealthy && check.health != Health::Failure;
        array.append(QJsonObject {
            {"name", check.name}, {"result", rowOf(check).word}, {"text", check.text}, {"mend", check.mend}});
        text += textOf(check, context.look);
    }
    if (context.options.json)
        put({{"checks", array}, {"healthy", isHealthy}});
    else
        put(text);
    return isHealthy ? Done : Refused;
}

} // namespace Ctl
