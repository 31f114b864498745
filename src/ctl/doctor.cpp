// SPDX-License-Identifier: MIT
#include "doctor.h"

#include "session.h"

#include <QElapsedTimer>
#include <QRandomGenerator>

#include <algorithm>

namespace Ctl
{

namespace
{

struct Mark {
    const char* result;
    const char* sign;
    const char* plainSign; // where the locale is not UTF-8
    Tone tone;
};

constexpr Mark marks[]
    = {{"ok", "✓", "+", Tone::Good}, {warning, "!", "!", Tone::Busy}, {failure, "✗", "x", Tone::Bad}};

/** Counts the services by a question that only we ask; each says that it has no such device, in its log too.
 */
int countServices(Session& session, int straggleMs)
{
    const QString nobody = QString("doctor-%1").arg(QRandomGenerator::global()->generate());
    session.send("ethernet/state/get", {{"interface", nobody}});
    session.wait(straggleMs, [] { return false; });
    const QVector<QJsonObject> errors = session.documents("error", false);
    return static_cast<int>(std::count_if(errors.begin(), errors.end(), [&](const QJsonObject& error) {
        return error["error"].toString().endsWith(nobody);
    }));
}

/** @return whether anybody answers */
bool checkService(Context& context, QJsonArray& checks)
{
    Session& session = context.session;
    const auto answers = [&] { return session.documents("info", false); };
    QElapsedTimer waited;
    session.subscribe({"+/get", "+/+/get", "+/+/set", "info", "error"});
    waited.start();
    session.send("info/get");
    const bool isThere = session.wait(context.options.answerMs, [&] { return !answers().isEmpty(); });
    const int ms = static_cast<int>(waited.elapsed());
    int services = 1;
    if (isThere) {
        // Others may be slower.
        const int straggleMs = std::clamp(3 * ms, 1000, std::max(1000, context.options.answerMs));
        session.wait(straggleMs, [] { return false; });
        if (answers().size() > 1)
            services = countServices(session, straggleMs);
    }
    const QString text = isThere
        ? QString("Version %1 answers after %2 ms").arg(textAt(answers().last(), "service.version")).arg(ms)
        : QString();
    const QString base = context.options.base;
    const bool isPassedOn = !session.documents("info/get", false).isEmpty();
    report(
        checks, "service",
        {{!isThere, failure, QString("Nobody answers below '%1'").arg(base),
          isPassedOn ? "Start lanvoy; compare its Mqtt/base and the broker's access list for its user."
                     : "Start lanvoy; look whether the access list lets your user ask (the question did not "
                       "come back)."},
         {services > 1, failure, QString("%1 services answer below '%2'").arg(services).arg(base),
          "Give each gateway a base topic of its own (Mqtt/base), or stop one."}},
        text);
    return isThere;
}

void checkRetained(const Context& context, QJsonArray& checks)
{
    std::vector<Finding> findings;
    for (const Message& message : context.session.messages()) {
        const bool isSet = message.topic.endsWith("/set");
        // The empty message that clears the store is a command as well, one that empties the configuration.
        const QString topic = context.options.base + '/' + message.topic;
        const QString clear = QString("mosquitto_pub -h %1 -p %2 -t '%3' -r -n")
                                  .arg(context.options.host, QString::number(context.options.port),
                                       QString(topic).replace("'", "'\\''")); // to be pasted into a shell
        findings.push_back(
            {message.retained && (isSet || message.topic.endsWith("/get")), isSet ? failure : warning,
             QString("'%1' is retained: it is carried out at every connection").arg(message.topic),
             isSet ? "Stop lanvoy, " + clear + ", start it" : clear});
    }
    report(checks, "retained", findings, "No command is retained");
}

void checkDevices(Context& context, QJsonArray& checks)
{
    QJsonObject overview;
    if (askOverview(context, overview) != Done)
        return;
    QVector<Query> queries;
    for (const QJsonValue& state : entriesOf(overview["devices"])) {
        const QString interface = state["interface"].toString();
        const QString text = QString("%1: %2").arg(interface, state["stateStr"].toString());
        report(checks, "device",
               {{state["stateStr"] != "Connected", warning, text + ", " + state["reasonStr"].toString()}},
               text);
        queries.append({kindOf(state.toObject()) + "/config", interface});
    }
    QStringList silent;
    const QVector<Answer> answers = context.session.ask(queries);
    for (int i = 0; i < answers.size(); ++i) {
        if (!answers.at(i).came)
            silent.append(queries.at(i).topic);
    }
    report(checks, "access",
           {{!silent.isEmpty(), warning, "No answer to questions for " + silent.join(", "),
             "The broker's access list keeps them from you or the service, or NetworkManager is slow."}});
}

} // namespace

void report(QJsonArray& checks, const char* name, const std::vector<Finding>& findings,
            const QString& wellText)
{
    const int before = checks.size();
    const auto add = [&](const char* result, const QString& text, const QString& mend) {
        checks.append(QJsonObject {{"name", name}, {"result", result}, {"text", text}, {"mend", mend}});
    };
    for (const Finding& finding : findings) {
        if (finding.applies)
            add(finding.result, finding.text, finding.mend);
    }
    if (checks.size() == before && !wellText.isEmpty())
        add("ok", wellText, {});
}

Exit doctor(Context& context, QJsonObject& value)
{
    const Options& options = context.options;
    const QString problem = context.session.open();
    QJsonArray checks;
    report(checks, "broker",
           {{!problem.isEmpty(), failure, problem,
             "Look at the broker's log; options -H, -p, -u say where and who."}},
           QString("Session with %1:%2").arg(options.host).arg(options.port));
    if (context.session.isOpen()) {
        const bool isThere = checkService(context, checks);
        checkRetained(context, checks);
        if (isThere)
            checkDevices(context, checks);
    }
    if (options.isLocal)
        checkGateway(checks, options.serviceFile);
    const bool isHealthy = std::none_of(checks.begin(), checks.end(),
                                        [](const QJsonValue& check) { return check["result"] == failure; });
    value = {{"checks", checks}, {"healthy", isHealthy}};
    return isHealthy ? Done : Refused;
}

QString checksText(const QJsonObject& checks, const Look& look)
{
    QString text;
    for (const QJsonValue& check : entriesOf(checks["checks"])) {
        const Mark& mark = *std::find_if(std::begin(marks), std::end(marks),
                                         [&](const Mark& one) { return check["result"] == one.result; });
        text += painted(look.utf8 ? mark.sign : mark.plainSign, mark.tone, look) + ' '
            + check["name"].toString().leftJustified(9) + textOf(check["text"]) + '\n';
        const QString mend = textOf(check["mend"]);
        if (!mend.isEmpty())
            text += QString(10, ' ') + painted(arrow(look) + mend, Tone::Dim, look) + '\n';
    }
    return text;
}

} // namespace Ctl
