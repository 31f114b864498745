// SPDX-License-Identifier: MIT
#include "commands.h"
#include "prompt.h"
#include "session.h"
#include "views.h"

#include <algorithm>

namespace Ctl
{

namespace
{

/** @return why the key cannot be that of a network, empty when it can */
QString keyProblem(const QString& key, const QString& security)
{
    const int size = key.toUtf8().size();
    const bool isWpa = security.startsWith("wpa");
    if (isWpa && (size < 8 || size > 64))
        return QString("A WPA key has 8 to 63 characters, or 64 hexadecimal digits; this one has %1.")
            .arg(size);
    if (security == "wep" && size != 5 && size != 13 && size != 10 && size != 26)
        return QString("A WEP key has 5 or 13 characters, or 10 or 26 hexadecimal digits; this one has %1.")
            .arg(size);
    return {};
}

/** Reads the key of a network from its file or the terminal. @return the problem, empty for none */
QString readKey(const Options& options, const QString& ssid, const QString& security, QString& key)
{
    if (security == "none")
        return {};
    if (options.keyFile.isEmpty() && !canAsk())
        return "There is no terminal to ask for the key on; use --key-file.";
    QString problem;
    if (options.keyFile.isEmpty())
        key = askSecret(QString("Key of '%1': ").arg(printable(ssid)));
    else
        problem = readFirstLine(options.keyFile, key);
    return problem.isEmpty() ? keyProblem(key, security) : problem;
}

} // namespace

Exit showNetworks(Context& context, QJsonObject& value)
{
    QJsonObject overview;
    if (const Exit status = askOverview(context, overview))
        return status;
    QJsonArray networks;
    const QString wanted = context.options.interface;
    for (const QJsonValue& state : entriesOf(overview["devices"])) {
        const QString interface = state["interface"].toString();
        if (kindOf(state.toObject()) != "wifi" || (!wanted.isEmpty() && wanted != interface))
            continue;
        const QJsonObject found = context.session.ask({{"wifi/networks", interface}}).first().document;
        for (const QJsonValue& network : networksOf(found, state.toObject()))
            networks.append(network);
    }
    value = {{"networks", networks}};
    return Done;
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
    problem = readKey(options, ssid, (*network)["security"].toString(), given["key"]);
    if (!problem.isEmpty())
        return fail(Usage, problem);
    given["ssid"] = ssid;
    if (options.replace && !given.contains("method"))
        given["method"] = "auto";
    return change(context, "wifi", (*network)["interface"].toString(), given, value);
}

} // namespace Ctl
