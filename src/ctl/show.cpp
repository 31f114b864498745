// SPDX-License-Identifier: MIT
#include "commands.h"
#include "session.h"
#include "views.h"

#include <QJsonArray>
#include <QSet>

#include <algorithm>

namespace Ctl
{

namespace
{

/** Every document, and whether there is a command that asks for it. */
struct Topic {
    const char* name;
    bool canBeAsked = true;
};

constexpr Topic topics[] = {
    {"info"},        {"status"},       {"ethernet/state"}, {"ethernet/config"},
    {"wifi/state"},  {"wifi/config"},  {"wifi/aps"},       {"wifi/networks"},
    {"modem/state"}, {"modem/config"}, {"modem/stats"},    {"modem/signal", false},
};

QJsonObject shown(const Context& context, const QJsonObject& document)
{
    return context.options.secrets ? document : withoutSecrets(document);
}

QJsonArray arrayOf(const QVector<QJsonObject>& rows)
{
    QJsonArray array;
    for (const QJsonObject& row : rows)
        array.append(row);
    return array;
}

/** State documents of the devices to show: the one that is named, or all. */
Exit askDevices(Context& context, QVector<QJsonObject>& devices)
{
    if (context.options.arguments.isEmpty()) {
        Overview overview;
        const Exit status = ask(context, overview);
        devices = overview.devices;
        return status;
    }
    const QString interface = context.options.arguments.first();
    QVector<Query> queries;
    for (const QString& kind : kinds())
        queries.append({kind + "/state", interface});
    for (const Answer& answer : context.session.ask(queries)) {
        if (!answer.document.isEmpty())
            devices.append(answer.document);
    }
    if (!context.session.heard())
        return failUnanswered(context);
    return devices.isEmpty() ? fail(Refused, QString("There is no device '%1'.").arg(interface)) : Done;
}

/** Shows the document in the broker's store, when nobody can be asked for it. */
Exit showRetained(Context& context, const QString& topic)
{
    context.session.subscribe({topic});
    context.session.wait(context.options.answerMs,
                         [&] { return !context.session.retained(topic).isEmpty(); });
    const QVector<QJsonObject> documents = context.session.retained(topic);
    if (documents.isEmpty())
        return fail(NoAnswer, QString("The broker has no '%1' in store.").arg(topic));
    fail(Done,
         QString("'%1' cannot be asked for: this is the retained document, as old as the last change.")
             .arg(topic));
    put(documents.last());
    return Done;
}

} // namespace

const QStringList& kinds()
{
    static const QStringList names = {"ethernet", "wifi", "modem"};
    return names;
}

QString kindOf(const QJsonObject& state)
{
    return state["typeStr"].toString().toLower();
}

Exit ask(Context& context, Overview& overview)
{
    Session& session = context.session;
    QVector<Query> queries = {{"info", {}}, {"status", {}}};
    for (const QString& kind : kinds())
        queries.append({kind + "/state", {}});
    QVector<Answer> answers = session.ask(queries);
    if (!session.heard())
        return failUnanswered(context);
    overview.info = answers.takeFirst().document;
    overview.status = answers.takeFirst().document;

    QSet<QString> known = {QString()};
    const auto add = [&](const QVector<Answer>& found) {
        for (const Answer& answer : found) {
            const QString interface = answer.document["interface"].toString();
            if (!known.contains(interface))
                overview.devices.append(answer.document);
            known.insert(interface);
        }
    };
    add(answers);
    QVector<Query> more;
    for (const QString& kind : kinds()) {
        for (const QJsonObject& document : session.retained(kind + "/state"))
            more.append({kind + "/state", document["interface"].toString()});
    }
    const QJsonObject primary = overview.status["primaryConnection"].toObject();
    if (kinds().contains(kindOf(primary)))
        more.append({kindOf(primary) + "/state", primary["interface"].toString()});
    more.erase(
        std::remove_if(more.begin(), more.end(), [&](const Query& q) { return known.contains(q.interface); }),
        more.end());
    if (!more.isEmpty())
        add(session.ask(more));
    const auto rank = [](const QJsonObject& d) {
        return std::tuple(kinds().indexOf(kindOf(d)), d["interface"].toString());
    };
    std::sort(overview.devices.begin(), overview.devices.end(),
              [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    return Done;
}

Exit showStatus(Context& context)
{
    Overview overview;
    const Exit status = ask(context, overview);
    if (status != Done)
        return status;
    if (context.options.json)
        put({{"info", overview.info}, {"status", overview.status}, {"devices", arrayOf(overview.devices)}});
    else
        put(statusText(overview.info, overview.status, overview.devices, context.look));
    return Done;
}

Exit showDevices(Context& context)
{
    QVector<QJsonObject> devices;
    const Exit status = askDevices(context, devices);
    if (status != Done)
        return status;
    QVector<Query> queries;
    for (const QJsonObject& state : devices)
        queries.append({kindOf(state) + "/config", state["interface"].toString()});
    const QVector<Answer> configs = context.session.ask(queries);
    QJsonArray array;
    QStringList texts;
    for (int i = 0; i < devices.size(); ++i) {
        const QJsonObject config = shown(context, configs.at(i).document);
        array.append(
            QJsonObject {{"state", devices.at(i)}, {"config", config.isEmpty() ? QJsonValue() : config}});
        texts.append(deviceText(devices.at(i), config, context.look));
    }
    if (context.options.json)
        put({{"devices", array}});
    else
        put(texts.join('\n'));
    return Done;
}

Exit showSignal(Context& context)
{
    Overview overview;
    const Exit status = ask(context, overview);
    if (status != Done)
        return status;
    QVector<QJsonObject> modems;
    for (const QJsonObject& state : overview.devices) {
        if (kindOf(state) == "modem")
            modems.append(signalOf(state));
    }
    if (modems.isEmpty())
        return fail(Refused, "There is no modem.");
    if (context.options.json)
        put({{"modems", arrayOf(modems)}});
    else
        put(signalText(modems, context.look));
    return Done;
}

Exit showUsage(Context& context)
{
    const Answer answer = context.session.ask({{"modem/stats", {}}}).first();
    if (!answer.came)
        return failUnanswered(context);
    if (!answer.error.isEmpty())
        return fail(Refused, "There is no modem.");
    const QJsonObject usage = usageOf(answer.document);
    if (context.options.json)
        put(usage);
    else
        put(usageText(usage, context.look));
    return Done;
}

Exit getDocument(Context& context)
{
    const QString name = context.options.arguments.first();
    const auto* const topic
        = std::find_if(std::begin(topics), std::end(topics), [&](const Topic& t) { return t.name == name; });
    if (topic == std::end(topics))
        return fail(Usage, QString("There is no document '%1'.").arg(name));
    if (!topic->canBeAsked)
        return showRetained(context, name);
    const Answer answer = context.session.ask({{name, context.options.arguments.value(1)}}).first();
    if (!answer.error.isEmpty())
        return fail(Refused, answer.error);
    if (!answer.came)
        return failUnanswered(context);
    put(shown(context, answer.document));
    return Done;
}

Exit complete(Context& context)
{
    const QString what = context.options.arguments.first();
    Session& session = context.session;
    QStringList words;
    if (what == "topics") {
        for (const Topic& topic : topics)
            words.append(topic.name);
        session.subscribe(words);
        session.ask({});
        words.erase(std::remove_if(words.begin(), words.end(),
                                   [&](const QString& t) { return session.retained(t).isEmpty(); }),
                    words.end());
    } else if (what == "networks") {
        for (const QJsonObject& network :
             networksOf(session.ask({{"wifi/networks", {}}}).first().document, {}))
            words.append(network["ssid"].toString());
    } else if (what == "devices") {
        Overview overview;
        ask(context, overview);
        for (const QJsonObject& state : overview.devices)
            words.append(state["interface"].toString());
    }
    words.erase(
        std::remove_if(words.begin(), words.end(), [](const QString& w) { return w != printable(w); }),
        words.end());
    put(words.join('\n') + (words.isEmpty() ? "" : "\n"));
    return Done;
}

} // namespace Ctl
