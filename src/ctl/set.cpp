// SPDX-License-Identifier: MIT
#include "commands.h"
#include "outcome.h"
#include "prompt.h"
#include "session.h"

#include <QElapsedTimer>
#include <QSettings>

#include <algorithm>

namespace Ctl
{

namespace
{

constexpr const char* verdictWords[] = {"unfinished", "connected", "unchanged", "refused", "failed"};

/** Text that is not the result: beside the JSON value it goes to standard error. */
void tell(const Context& context, const QString& text)
{
    if (context.options.json)
        fputs(qPrintable(text), stderr);
    else
        put(text.toLocal8Bit());
}

void tellChanges(const Context& context, const QString& interface, const QJsonArray& changes)
{
    QString text = changes.isEmpty() ? QString("No setting of %1 changes.\n").arg(printable(interface))
                                     : printable(interface) + ":\n";
    const auto shown
        = [](const QJsonValue& value) { return value == "" ? QString("(none)") : textOf(value); };
    for (const QJsonValue& change : changes)
        text += "  " + change["field"].toString().leftJustified(10) + shown(change["from"])
            + arrow(context.look) + shown(change["to"]) + '\n';
    tell(context, text);
}

/** Sends the whole record and follows the device until the outcome is clear or the time is over. */
Judgement carryOut(Context& context, const Wanted& wanted, Story& story)
{
    constexpr int askAgainMs = 1000;
    constexpr int settledMs = 8000; // NetworkManager begins to move long before, on a slow machine too
    Session& session = context.session;
    const QString topic = wanted.kind + "/state";
    const auto askState = [&] { session.send(topic + "/get", {{"interface", wanted.interface}}); };
    QElapsedTimer total;
    QElapsedTimer sinceMove;
    total.start();
    sinceMove.start();
    QObject listener; // to its end
    session.subscribe({topic, "error", "info"});
    QObject::connect(&session, &Session::arrived, &listener, [&](const Message& message) {
        if (message.retained || !hear(wanted, message.topic, message.document, story))
            return;
        sinceMove.start();
        const QString word = textAt(message.document, "stateStr");
        if (word.endsWith("ing") && !context.options.json)
            put((painted(word, toneOf(word), context.look) + (context.look.utf8 ? " … " : " ... "))
                    .toLocal8Bit());
    });
    QJsonObject command = {{"interface", wanted.interface}};
    for (auto field = wanted.record.begin(); field != wanted.record.end(); ++field)
        command.insert(field.key(), field.value());
    session.send(wanted.kind + "/config/set", command);
    session.send("info/get");
    askState();

    while (true) {
        const auto left = context.options.outcomeMs - total.elapsed();
        const int ms = static_cast<int>(std::clamp<qint64>(left, 0, askAgainMs));
        session.wait(ms, [&] { return judge(wanted, story).verdict != Verdict::Waiting; });
        Judgement judgement = judge(wanted, story);
        const bool isConnected = judgement.verdict == Verdict::Connected;
        if ((judgement.verdict != Verdict::Waiting && !isConnected) || left <= 0 || !session.isOpen())
            return judgement;
        const bool isQuiet = story.carriedOut && sinceMove.hasExpired(settledMs);
        const int heard = story.states.size();
        askState();
        const bool isAnswered = session.wait(askAgainMs, [&] { return story.states.size() > heard; });
        // The document of the very moment may still show the address from before.
        if (isConnected && judge(wanted, story).verdict == Verdict::Connected)
            return judge(wanted, story);
        story.settled = isAnswered && isQuiet && sinceMove.hasExpired(settledMs);
    }
}

/** @return whether a key can be that of a network */
bool fits(const QString& key, const QString& security)
{
    const int size = key.toUtf8().size();
    return security == "wep" ? QVector<int> {5, 10, 13, 26}.contains(size)
                             : !security.startsWith("wpa") || (size >= 8 && size <= 64);
}

/** Reads the key of a network from its file or the terminal. @return the problem, empty for none */
QString readKey(const Options& options, const QJsonValue& network, QString& key)
{
    const QString security = network["security"].toString();
    if (security == "none")
        return {};
    const QString name = QString("Key of '%1'").arg(textOf(network["ssid"]));
    const QString problem = readSecret(options.keyFile, name, "--key-file", key);
    return !problem.isEmpty() || fits(key, security)
        ? problem
        : "A WPA key has 8 to 64 characters, a WEP key 5 or 13, or 10 or 26 hexadecimal digits.";
}

} // namespace

QString outcomeText(const QJsonObject& outcome, const Look& look)
{
    const QString word = outcome["outcome"].toString();
    const Tone tone = word == "connected" || word == "unchanged" ? Tone::Good : Tone::Bad;
    return painted(textAt(outcome, "text"), tone, look)
        + QString(" after %1 s\n").arg(outcome["seconds"].toDouble(), 0, 'f', 0);
}

QString readFields(const QString& kind, const QStringList& arguments, Record& given)
{
    const QVector<Field> fields = fieldsOf(kind);
    for (const QString& argument : arguments) {
        const QString name = argument.section('=', 0, 0);
        QString value = argument.section('=', 1);
        const auto field
            = std::find_if(fields.begin(), fields.end(), [&](const Field& f) { return name == f.name; });
        if (!argument.contains('=') || field == fields.end())
            return QString("'%1' sets no field of %2.").arg(name, kind);
        QString problem;
        if (value == "-" || value.startsWith('@'))
            problem = readSecret(value.mid(1), name, name + "=@FILE", value);
        else if (field->rule == Rule::Secret && !value.isEmpty())
            problem = QString("%1 on the command line can be seen by everybody here; use %1=- or %1=@FILE.")
                          .arg(name);
        if (!problem.isEmpty())
            return problem;
        given[name] = value;
    }
    return {};
}

Exit change(Context& context, const QString& kind, const QString& device, const Record& given,
            QJsonObject& outcome)
{
    const Options& options = context.options;
    const QVector<Answer> answers
        = context.session.ask({{kind + "/state", device}, {kind + "/config", device}, {"status"}});
    const Answer& before = answers.first();
    if (!before.came)
        return failUnanswered(context);
    if (!before.error.isEmpty())
        return fail(Refused, before.error);
    const QString interface = before.document["interface"].toString();

    const Present present = options.configFile.isEmpty()
        ? presentOf(kind, answers.at(1).document, before.document, answers.at(2).document,
                    given.value("ssid"))
        : presentOf(kind, QSettings(options.configFile, QSettings::IniFormat));
    const Merged merged = merge(kind, present, given, options.replace);
    if (!merged.problem.isEmpty())
        return fail(Usage, merged.problem);
    tellChanges(context, interface, merged.changes);
    if (!present.note.isEmpty() && !given.contains("pin") && !given.contains("password"))
        tell(context, present.note + '\n');
    if (!options.yes && !askConsent("Change this?"))
        return fail(Refused, "Nothing was changed.");

    QElapsedTimer total;
    total.start();
    Story story;
    Judgement judgement
        = carryOut(context, {kind, interface, merged.record, !merged.changes.isEmpty()}, story);
    const bool isUnfinished = judgement.verdict == Verdict::Waiting;
    if (isUnfinished && !context.session.isOpen())
        return fail(NoBroker, "The session with the broker was lost after the command was sent.");
    if (isUnfinished && !story.carriedOut)
        return failUnanswered(context);
    const QJsonObject state = story.states.isEmpty() ? QJsonObject() : story.states.last();
    if (isUnfinished)
        judgement.text = "Not finished in time: " + textAt(state, "stateStr");
    outcome = {{"interface", interface},
               {"outcome", verdictWords[static_cast<int>(judgement.verdict)]},
               {"text", judgement.text},
               {"changes", merged.changes},
               {"state", state.isEmpty() ? QJsonValue() : state},
               {"seconds", qRound(static_cast<double>(total.elapsed()) / 100) / 10.0}};
    return judgement.verdict == Verdict::Connected || judgement.verdict == Verdict::Unchanged ? Done
                                                                                              : Refused;
}

Exit set(Context& context, QJsonObject& value)
{
    QStringList arguments = context.options.arguments;
    const QString kind = arguments.takeFirst();
    if (!kinds().contains(kind))
        return fail(Usage, QString("'%1' is none of %2.").arg(kind, kinds().join(", ")));
    if (!context.options.yes && !canAsk())
        return fail(Usage, "There is no terminal to ask on; use -y to change without a question.");
    Record given;
    const QString problem = readFields(kind, arguments, given);
    if (!problem.isEmpty())
        return fail(Usage, problem);
    return change(context, kind, context.options.interface, given, value);
}

Exit connectWifi(Context& context, QJsonObject& value)
{
    const Options& options = context.options;
    const QString ssid = options.arguments.first();
    if (!options.yes && !canAsk())
        return fail(Usage, "There is no terminal to ask on; use -y and --key-file.");
    Record given;
    QString problem = readFields("wifi", options.arguments.mid(1), given);
    if (!problem.isEmpty())
        return fail(Usage, problem);
    QJsonObject inRange;
    if (const Exit status = showNetworks(context, inRange))
        return status;
    const QJsonArray networks = inRange["networks"].toArray();
    const auto network = std::find_if(networks.begin(), networks.end(),
                                      [&](const QJsonValue& n) { return n["ssid"] == ssid; });
    if (network == networks.end())
        return fail(Refused, QString("'%1' is not in range.").arg(ssid));
    problem = readKey(options, *network, given["key"]);
    if (!problem.isEmpty())
        return fail(Usage, problem);
    given["ssid"] = ssid;
    if (options.replace && !given.contains("method"))
        given["method"] = "auto";
    return change(context, "wifi", (*network)["interface"].toString(), given, value);
}

} // namespace Ctl
