// SPDX-License-Identifier: MIT
#include "change.h"
#include "prompt.h"
#include "session.h"
#include "views.h"

#include <QJsonArray>

#include <algorithm>

namespace Ctl
{

namespace
{

/** The networks that all wifi devices see. */
Exit askNetworks(Context& context, QVector<QJsonObject>& networks)
{
    Overview overview;
    const Exit status = ask(context, overview);
    if (status != Done)
        return status;
    for (const QJsonObject& state : overview.devices) {
        const QString interface = state["interface"].toString();
        if (kindOf(state) == "wifi"
            && (context.options.interface.isEmpty() || context.options.interface == interface))
            networks
                += networksOf(context.session.ask({{"wifi/networks", interface}}).first().document, state);
    }
    return Done;
}

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

Exit connectTo(Context& context, const QString& ssid)
{
    const Options& options = context.options;
    if (!options.yes && !canAsk())
        return fail(Usage, "There is no terminal to ask on; use -y and --key-file.");
    Record given;
    const QString wrongField = readFields("wifi", options.arguments.mid(2), given);
    if (!wrongField.isEmpty())
        return fail(Usage, wrongField);
    QVector<QJsonObject> networks;
    const Exit status = askNetworks(context, networks);
    if (status != Done)
        return status;
    const auto network = std::find_if(networks.begin(), networks.end(),
                                      [&](const QJsonObject& n) { return n["ssid"] == ssid; });
    if (network == networks.end())
        return fail(Refused, QString("'%1' is not in range.").arg(ssid));

    QString key;
    const QString security = (*network)["security"].toString();
    if (security != "none") {
        if (options.keyFile.isEmpty() && !canAsk())
            return fail(Usage, "There is no terminal to ask for the key on; use --key-file.");
        QString problem;
        if (options.keyFile.isEmpty())
            key = askSecret(QString("Key of '%1': ").arg(printable(ssid)));
        else
            problem = readFirstLine(options.keyFile, key);
        if (problem.isEmpty())
            problem = keyProblem(key, security);
        if (!problem.isEmpty())
            return fail(Usage, problem);
    }
    given["ssid"] = ssid;
    given["key"] = key;
    if (options.replace && !given.contains("method"))
        given["method"] = "auto";
    return changeConfiguration(context, "wifi", (*network)["interface"].toString(), given);
}

} // namespace

Exit wifi(Context& context)
{
    const QStringList& arguments = context.options.arguments;
    if (arguments.size() > 1 && arguments.first() == "connect")
        return connectTo(context, arguments.at(1));
    if (!arguments.isEmpty())
        return fail(Usage, "Usage: lanvoyctl wifi [connect SSID [FIELD=VALUE...]]");
    QVector<QJsonObject> networks;
    const Exit status = askNetworks(context, networks);
    if (status != Done)
        return status;
    if (!context.options.json) {
        put(networksText(networks, context.look));
        return Done;
    }
    QJsonArray array;
    for (const QJsonObject& network : networks)
        array.append(network);
    put({{"networks", array}});
    return Done;
}

} // namespace Ctl
