// SPDX-License-Identifier: MIT
#include "commands.h"
#include "session.h"
#include "views.h"

#include <QMap>
#include <QPair>

#include <algorithm>

namespace Ctl
{

namespace
{

const char* const retainedOnly = "modem/signal"; // no command asks for it

} // namespace

const QStringList& documentTopics()
{
    static const QStringList topics
        = {"info",     "status",        "ethernet/state", "ethernet/config", "wifi/state",  "wifi/config",
           "wifi/aps", "wifi/networks", "modem/state",    "modem/config",    "modem/stats", retainedOnly};
    return topics;
}

const QStringList& kinds()
{
    static const QStringList names = {"ethernet", "wifi", "modem"};
    return names;
}

QString kindOf(const QJsonObject& state)
{
    return state["typeStr"].toString().toLower();
}

QJsonObject shown(const Context& context, const QJsonObject& document)
{
    return context.options.secrets ? document : withoutSecrets(document);
}

Exit askOverview(Context& context, QJsonObject& overview, const QString& interface)
{
    Session& session = context.session;
    QVector<Query> queries = {{"info"}, {"status"}};
    for (const QString& kind : kinds())
        queries.append({kind + "/state", interface});
    QMap<QPair<int, QString>, QJsonObject> devices; // by kind and interface
    const auto keyOf = [](const QJsonObject& device) {
        return QPair(kinds().indexOf(kindOf(device)), device["interface"].toString());
    };
    const auto ask = [&] {
        const QVector<Answer> answers = session.ask(queries);
        for (const Answer& answer : answers) {
            if (kinds().contains(kindOf(answer.document)))
                devices.insert(keyOf(answer.document), answer.document);
        }
        return answers;
    };
    const QVector<Answer> first = ask();
    if (std::none_of(first.begin(), first.end(), [](const Answer& answer) { return answer.came; }))
        return failUnanswered(context);

    queries.clear();
    const QJsonObject status = first.at(1).document;
    QVector<QJsonObject> others = {status["primaryConnection"].toObject()};
    for (const QString& kind : kinds())
        others += session.documents(kind + "/state", true);
    for (const QJsonObject& device : qAsConst(others)) {
        if (interface.isEmpty() && kinds().contains(kindOf(device)) && !devices.contains(keyOf(device)))
            queries.append({kindOf(device) + "/state", device["interface"].toString()});
    }
    if (!queries.isEmpty())
        ask();
    QJsonArray list;
    for (const QJsonObject& device : qAsConst(devices))
        list.append(device);
    overview = {{"info", first.first().document}, {"status", status}, {"devices", list}};
    return list.isEmpty() && !interface.isEmpty()
        ? fail(Refused, QString("There is no device '%1'.").arg(interface))
        : Done;
}

Exit showStatus(Context& context, QJsonObject& value)
{
    return askOverview(context, value);
}

Exit showDevices(Context& context, QJsonObject& value)
{
    QJsonObject overview;
    if (const Exit status = askOverview(context, overview, context.options.arguments.value(0)))
        return status;
    const QJsonArray states = overview["devices"].toArray();
    QVector<Query> queries;
    for (const QJsonValue& state : states)
        queries.append({kindOf(state.toObject()) + "/config", state["interface"].toString()});
    QJsonArray devices;
    for (const Answer& answer : context.session.ask(queries)) {
        const QJsonObject config = shown(context, answer.document);
        devices.append(QJsonObject {{"state", states.at(devices.size())},
                                    {"config", config.isEmpty() ? QJsonValue() : config}});
    }
    value = {{"devices", devices}};
    return Done;
}

Exit showNetworks(Context& context, QJsonObject& value)
{
    QJsonObject overview;
    if (const Exit status = askOverview(context, overview, context.options.interface))
        return status;
    QJsonArray networks;
    for (const QJsonValue& state : entriesOf(overview["devices"])) {
        if (kindOf(state.toObject()) != "wifi")
            continue;
        const Query query = {"wifi/networks", state["interface"].toString()};
        const QJsonObject found = context.session.ask({query}).first().document;
        for (const QJsonValue& network : entriesOf(networksOf(found, state.toObject())))
            networks.append(network);
    }
    value = {{"networks", networks}};
    return Done;
}

Exit showSignal(Context& context, QJsonObject& value)
{
    QJsonObject overview;
    if (const Exit status = askOverview(context, overview))
        return status;
    QJsonArray modems;
    for (const QJsonValue& state : entriesOf(overview["devices"])) {
        if (kindOf(state.toObject()) == "modem")
            modems.append(signalOf(state.toObject()));
    }
    if (modems.isEmpty())
        return fail(Refused, "There is no modem.");
    value = {{"modems", modems}};
    return Done;
}

Exit showUsage(Context& context, QJsonObject& value)
{
    const Answer answer = context.session.ask({{"modem/stats"}}).first();
    if (!answer.came)
        return failUnanswered(context);
    if (!answer.error.isEmpty())
        return fail(Refused, "There is no modem.");
    value = usageOf(answer.document);
    return Done;
}

Exit getDocument(Context& context, QJsonObject&)
{
    Session& session = context.session;
    const QString topic = context.options.arguments.first();
    if (!documentTopics().contains(topic))
        return fail(Usage, QString("There is no document '%1'.").arg(topic));
    if (topic == retainedOnly) {
        session.subscribe({topic});
        const auto stored = [&] { return session.documents(topic, true); };
        if (!session.wait(context.options.answerMs, [&] { return !stored().isEmpty(); }))
            return fail(NoAnswer, QString("The broker has no '%1' in store.").arg(topic));
        fail(Done,
             QString("'%1' cannot be asked for: this is the retained document, as old as the last change.")
                 .arg(topic));
        put(jsonText(stored().last()));
        return Done;
    }
    const Answer answer = session.ask({{topic, context.options.arguments.value(1)}}).first();
    if (!answer.error.isEmpty())
        return fail(Refused, answer.error);
    if (!answer.came)
        return failUnanswered(context);
    put(jsonText(shown(context, answer.document)));
    return Done;
}

Exit complete(Context& context, QJsonObject&)
{
    const QString what = context.options.arguments.first();
    Session& session = context.session;
    QStringList words;
    if (what == "topics") {
        const QStringList& topics = documentTopics();
        session.subscribe(topics);
        session.ask({});
        std::copy_if(topics.begin(), topics.end(), std::back_inserter(words),
                     [&](const QString& topic) { return !session.documents(topic, true).isEmpty(); });
    } else if (what == "networks") {
        const QJsonObject networks = session.ask({{"wifi/networks"}}).first().document;
        for (const QJsonValue& network : entriesOf(networksOf(networks, {})))
            words.append(network["ssid"].toString());
    } else if (what == "devices") {
        QJsonObject overview;
        askOverview(context, overview);
        for (const QJsonValue& state : entriesOf(overview["devices"]))
            words.append(state["interface"].toString());
    }
    for (const QString& word : qAsConst(words)) {
        if (word == printable(word)) // others cannot be typed either
            put(word.toLocal8Bit() + '\n');
    }
    return Done;
}

} // namespace Ctl
