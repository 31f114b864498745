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

/** State documents of the devices to show: the one that is named, or all. */
Exit askDevices(Context& context, QJsonArray& states)
{
    if (context.options.arguments.isEmpty()) {
        QJsonObject overview;
        const Exit status = askOverview(context, overview);
        states = overview["devices"].toArray();
        return status;
    }
    const QString interface = context.options.arguments.first();
    QVector<Query> queries;
    for (const QString& kind : kinds())
        queries.append({kind + "/state", interface});
    for (const Answer& answer : context.session.ask(queries)) {
        if (!answer.document.isEmpty())
            states.append(answer.document);
    }
    if (!context.session.heard())
        return failUnanswered(context);
    return states.isEmpty() ? fail(Refused, QString("There is no device '%1'.").arg(interface)) : Done;
}

/** Shows the document in the broker's store, when nobody can be asked for it. */
Exit showRetained(Context& context, const QString& topic)
{
    Session& session = context.session;
    session.subscribe({topic});
    if (!session.wait(context.options.answerMs, [&] { return !session.documents(topic, true).isEmpty(); }))
        return fail(NoAnswer, QString("The broker has no '%1' in store.").arg(topic));
    fail(Done,
         QString("'%1' cannot be asked for: this is the retained document, as old as the last change.")
             .arg(topic));
    put(jsonText(session.documents(topic, true).last()));
    return Done;
}

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

Exit askOverview(Context& context, QJsonObject& overview)
{
    Session& session = context.session;
    QMap<QPair<int, QString>, QJsonObject> devices; // by kind and interface
    const auto askStates = [&](QVector<Query> queries) {
        const QVector<Answer> answers = session.ask(queries);
        for (const Answer& answer : answers) {
            const QString interface = answer.document["interface"].toString();
            if (!interface.isEmpty())
                devices.insert({kinds().indexOf(kindOf(answer.document)), interface}, answer.document);
        }
        return answers;
    };
    const QVector<Answer> first
        = askStates({{"info"}, {"status"}, {"ethernet/state"}, {"wifi/state"}, {"modem/state"}});
    if (!session.heard())
        return failUnanswered(context);

    const QJsonObject status = first.at(1).document;
    QVector<Query> more;
    const auto add = [&](const QJsonObject& device) {
        const int kind = kinds().indexOf(kindOf(device));
        const QString interface = device["interface"].toString();
        if (kind >= 0 && !devices.contains({kind, interface}))
            more.append({kinds().at(kind) + "/state", interface});
    };
    for (const QString& kind : kinds()) {
        for (const QJsonObject& document : session.documents(kind + "/state", true))
            add(document);
    }
    add(status["primaryConnection"].toObject());
    if (!more.isEmpty())
        askStates(more);
    QJsonArray list;
    for (const QJsonObject& device : devices)
        list.append(device);
    overview = {{"info", first.first().document}, {"status", status}, {"devices", list}};
    return Done;
}

Exit showDevices(Context& context, QJsonObject& value)
{
    QJsonArray states;
    if (const Exit status = askDevices(context, states))
        return status;
    QVector<Query> queries;
    for (const QJsonValue& state : qAsConst(states))
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
    const QString topic = context.options.arguments.first();
    if (!documentTopics().contains(topic))
        return fail(Usage, QString("There is no document '%1'.").arg(topic));
    if (topic == retainedOnly)
        return showRetained(context, topic);
    const Answer answer = context.session.ask({{topic, context.options.arguments.value(1)}}).first();
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
        for (const QJsonValue& network : networksOf(networks, {}))
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
