// SPDX-License-Identifier: MIT
#include "change.h"

#include "merge.h"
#include "outcome.h"
#include "prompt.h"
#include "session.h"
#include "views.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QSettings>

#include <algorithm>
#include <cmath>

namespace Ctl
{

namespace
{

struct VerdictRow {
    const char* word; // in the JSON output
    Verdict verdict;
    Exit status;
};

constexpr VerdictRow verdicts[] = {
    {"connected", Verdict::Connected, Done},   {"unchanged", Verdict::Unchanged, Done},
    {"refused", Verdict::Refused, Refused},    {"failed", Verdict::Failed, Refused},
    {"unfinished", Verdict::Waiting, Refused},
};

const VerdictRow& rowOf(Verdict verdict)
{
    for (const VerdictRow& row : verdicts) {
        if (row.verdict == verdict)
            return row;
    }
    return verdicts[0]; // not reached: each verdict has its row
}

/** Text that is not the result: beside the JSON value it goes to standard error. */
void tell(const Context& context, const QString& text)
{
    if (context.options.json)
        fputs(qPrintable(text), stderr);
    else
        put(text);
}

QString valueText(const Field& field, const QString& value)
{
    if (value.isEmpty())
        return "(none)";
    return field.secret && value != "?" ? QString("******") : printable(value);
}

const Field& fieldNamed(const QString& kind, const QString& name)
{
    const QVector<Field>& fields = fieldsOf(kind);
    return *std::find_if(fields.begin(), fields.end(),
                         [&](const Field& field) { return name == field.name; });
}

void tellChanges(const Context& context, const QString& kind, const QString& interface, const Merged& merged)
{
    const QString arrow = context.look.utf8 ? " → " : " -> ";
    QString text = merged.changes.isEmpty() ? QString("No setting of %1 changes.\n").arg(printable(interface))
                                            : printable(interface) + ":\n";
    for (const Change& change : merged.changes) {
        const Field& field = fieldNamed(kind, change.field);
        text += "  " + change.field.leftJustified(10) + valueText(field, change.from) + arrow
            + valueText(field, change.to) + '\n';
    }
    tell(context, text);
}

QJsonArray changesOf(const QString& kind, const Merged& merged)
{
    QJsonArray array;
    for (const Change& change : merged.changes) {
        const bool hidden = fieldNamed(kind, change.field).secret;
        const auto shown
            = [&](const QString& value) { return hidden && !value.isEmpty() ? QString("******") : value; };
        array.append(
            QJsonObject {{"field", change.field}, {"from", shown(change.from)}, {"to", shown(change.to)}});
    }
    return array;
}

/** Follows a command from its sending to its outcome. */
class Follower
{
public:
    Follower(Context& context_, const QString& interface_, const Wanted& wanted_)
        : context(context_)
        , session(context_.session)
        , interface(interface_)
        , wanted(wanted_)
        , topic(wanted_.kind + "/state")
    {
    }

    Judgement run()
    {
        session.subscribe({topic, "error", "info"});
        const auto listening
            = QObject::connect(&session, &Session::arrived, [this](const Message& m) { take(m); });
        QJsonObject command = {{"interface", interface}};
        for (auto field = wanted.record.begin(); field != wanted.record.end(); ++field)
            command.insert(field.key(), field.value());
        total.start();
        sinceMove.start();
        session.send(wanted.kind + "/config/set", command);
        session.send("info/get");
        askState();
        Judgement judgement = follow();
        QObject::disconnect(listening);
        return judgement;
    }

    const Story& told() const { return story; }
    double seconds() const { return std::round(static_cast<double>(total.elapsed()) / 100) / 10; }

private:
    void askState() { session.send(topic + "/get", {{"interface", interface}}); }

    Judgement follow()
    {
        constexpr int askAgainMs = 1000;
        constexpr int settledMs = 8000; // NetworkManager begins to move long before, on a slow machine too
        const auto judged = [this] { return judge(wanted, story).verdict; };
        while (true) {
            const auto left = context.options.outcomeMs - total.elapsed();
            const int ms = static_cast<int>(std::clamp<qint64>(left, 0, askAgainMs));
            const bool isDecided = session.wait(ms, [&] { return judged() != Verdict::Waiting; });
            if ((isDecided && judged() != Verdict::Connected) || left <= 0 || !session.isOpen())
                return judge(wanted, story);
            const bool isQuiet = story.carriedOut && sinceMove.hasExpired(settledMs);
            const int heard = story.states.size();
            askState();
            const bool isAnswered = session.wait(askAgainMs, [&] { return story.states.size() > heard; });
            // The document of the very moment may still show the address from before.
            if (isDecided && judged() == Verdict::Connected)
                return judge(wanted, story);
            story.settled = isAnswered && isQuiet && sinceMove.hasExpired(settledMs);
        }
    }

    void take(const Message& message)
    {
        if (message.retained)
            return;
        if (message.topic == "info")
            story.carriedOut = true;
        // For a device that is missing the service names the question, not the command.
        const QString command = message.document["command"].toString();
        const QString error = message.document["error"].toString();
        if (message.topic == "error" && command.startsWith(wanted.kind + "/config/")
            && (!error.startsWith("Invalid device") || error.endsWith(": " + interface)))
            story.refusal = error;
        if (message.topic == topic && message.document["interface"] == QJsonValue(interface))
            takeState(message.document);
    }

    void takeState(const QJsonObject& state)
    {
        const QString word = textAt(state, "stateStr");
        const bool isMove = story.states.isEmpty() || story.states.last()["state"] != state["state"];
        if (isMove) {
            sinceMove.start();
            story.settled = false;
        }
        if (isMove && word.endsWith("ing") && !context.options.json)
            put(painted(word, toneOf(word), context.look) + (context.look.utf8 ? " … " : " ... "));
        story.states.append(state);
    }

    Context& context;
    Session& session;
    const QString interface;
    const Wanted wanted;
    const QString topic;
    Story story;
    QElapsedTimer total;
    QElapsedTimer sinceMove;
};

Exit report(Context& context, const QString& interface, const QJsonArray& changes, const Follower& follower,
            Judgement judgement)
{
    const Story& story = follower.told();
    if (judgement.verdict == Verdict::Waiting && !context.session.isOpen())
        return fail(NoBroker, "The session with the broker was lost after the command was sent.");
    if (judgement.verdict == Verdict::Waiting && !story.carriedOut)
        return failUnanswered(context);
    const QJsonObject state = story.states.isEmpty() ? QJsonObject() : story.states.last();
    if (judgement.verdict == Verdict::Waiting)
        judgement.text = "Not finished in time: " + textAt(state, "stateStr");
    const VerdictRow& row = rowOf(judgement.verdict);
    if (context.options.json)
        put({{"interface", interface},
             {"outcome", row.word},
             {"text", judgement.text},
             {"changes", changes},
             {"state", state.isEmpty() ? QJsonValue() : state},
             {"seconds", follower.seconds()}});
    else
        put(painted(printable(judgement.text), row.status == Done ? Tone::Good : Tone::Bad, context.look)
            + QString(" after %1 s\n").arg(follower.seconds(), 0, 'f', 0));
    return row.status;
}

} // namespace

QString readFields(const QString& kind, const QStringList& arguments, Record& given)
{
    for (const QString& argument : arguments) {
        const int equals = argument.indexOf('=');
        const QString name = argument.left(equals);
        const QVector<Field>& fields = fieldsOf(kind);
        const auto field
            = std::find_if(fields.begin(), fields.end(), [&](const Field& f) { return name == f.name; });
        if (equals < 0 || field == fields.end())
            return QString("'%1' sets no field of %2.").arg(name, kind);
        QString value = argument.mid(equals + 1);
        QString problem;
        if (value == "-" && !canAsk())
            problem = QString("There is no terminal to ask for %1 on; use %1=@FILE.").arg(name);
        else if (value == "-")
            value = askSecret(name + ": ");
        else if (value.startsWith('@'))
            problem = readFirstLine(value.mid(1), value);
        else if (field->secret && !value.isEmpty())
            problem = QString("%1 on the command line can be seen by everybody here; use %1=- or %1=@FILE.")
                          .arg(name);
        if (!problem.isEmpty())
            return problem;
        given[name] = value;
    }
    return {};
}

Exit changeConfiguration(Context& context, const QString& kind, const QString& device, const Record& given)
{
    const QVector<Answer> answers
        = context.session.ask({{kind + "/state", device}, {kind + "/config", device}, {"status", {}}});
    const Answer& state = answers.first();
    if (!state.came)
        return failUnanswered(context);
    if (!state.error.isEmpty())
        return fail(Refused, state.error);
    const QString interface = state.document["interface"].toString();

    Present present = presentOf(kind, answers.at(1).document, state.document, answers.at(2).document,
                                given.value("ssid"));
    if (!context.options.configFile.isEmpty())
        present = presentOf(kind, QSettings(context.options.configFile, QSettings::IniFormat));
    const Merged merged = merge(kind, present, given, context.options.replace);
    if (!merged.problem.isEmpty())
        return fail(Usage, merged.problem);

    tellChanges(context, kind, interface, merged);
    if (!present.note.isEmpty() && !given.contains("pin") && !given.contains("password"))
        tell(context, present.note + '\n');
    if (!context.options.yes && !askConsent("Change this?"))
        return fail(Refused, "Nothing was changed.");

    Follower follower(context, interface, {kind, merged.record, !merged.changes.isEmpty()});
    const Judgement judgement = follower.run();
    return report(context, interface, changesOf(kind, merged), follower, judgement);
}

Exit set(Context& context)
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
    return changeConfiguration(context, kind, context.options.interface, given);
}

} // namespace Ctl
