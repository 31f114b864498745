// SPDX-License-Identifier: MIT
#include "options.h"

#include "commands.h"
#include "prompt.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QSettings>

namespace Ctl
{

namespace
{

constexpr const char* defaultBase = "vexo/network";

QList<QCommandLineOption> knownOptions()
{
    return {
        {{"H", "host"}, "Broker (default: localhost).", "host"},
        {{"p", "port"}, "Port of the broker (default: 1883).", "port"},
        {{"u", "user"}, "User name for the broker.", "name"},
        {"password-file", "File whose first line is the password for the broker.", "file"},
        {{"b", "base"}, "Base topic (default: vexo/network).", "topic"},
        {{"f", "config"},
         "The service's configuration file (default: /var/lib/lanvoy/lanvoy.conf).",
         "file",
         "/var/lib/lanvoy/lanvoy.conf"},
        {{"i", "interface"}, "Device to change, when there are several of its kind.", "name"},
        {"key-file", "File whose first line is the wifi key.", "file"},
        {"replace", "Empty every field that is not named."},
        {{"y", "yes"}, "Change without asking."},
        {"secrets", "Show keys, passwords and PINs."},
        {"json", "JSON instead of text."},
        {"timeout", "Seconds to wait: 10 for answers, 60 for outcomes.", "seconds"},
        {"no-color", "No colours (also: NO_COLOR)."},
        {{"h", "help"}, "Shows this help."},
        {{"V", "version"}, "Shows the version."},
    };
}

QString helpText()
{
    QString text = "Shows and changes a gateway's network over MQTT.\n\nCommands:\n";
    for (const Command& command : commands()) {
        if (*command.description != '\0')
            text += "  " + QString(command.synopsis).leftJustified(40) + command.description + '\n';
    }
    return text + "\nExit status: 0 done, 1 refused or failed, 2 usage, 3 no broker, 4 no answer.";
}

QString plainHost(const QString& host)
{
    const bool loopback = host == "127.0.0.1" || host == "::1";
    return loopback ? QString("localhost") : host.toLower();
}

/** Option, environment, configuration file, default: the first that says something. */
QString readBroker(const QCommandLineParser& parser, bool hasFile, Options& options)
{
    const QSettings file(options.serviceFile, QSettings::IniFormat);
    const auto stored
        = [&](const char* key, const char* otherwise) { return file.value(key, otherwise).toString(); };
    const auto given = [&](const QString& option, const QString& otherwise) {
        // LANVOYCTL_HOST, _PORT, _USER, _PASSWORD_FILE, _BASE
        const QByteArray variable = "LANVOYCTL_" + QString(option).replace('-', '_').toUpper().toLatin1();
        const QString value = parser.isSet(option) ? parser.value(option) : qEnvironmentVariable(variable);
        return value.isEmpty() ? otherwise : value;
    };
    const QString storedHost = stored("Mqtt/url", "localhost");
    const QString storedPort = stored("Mqtt/port", "1883");
    const QString storedBase = stored("Mqtt/base", defaultBase);
    const QString port = given("port", storedPort);
    options.port = port.toUShort();
    if (options.port == 0)
        return QString("'%1' is no port.").arg(port);
    options.host = given("host", storedHost);
    options.isLocal = plainHost(options.host) == "localhost";

    // Password and base topic of the configuration file belong to its broker only: no other one is to see
    // them.
    const bool isSame = hasFile && plainHost(options.host) == plainHost(storedHost) && port == storedPort;
    options.base = given("base", isSame ? storedBase : defaultBase);
    if (options.base.contains('+') || options.base.contains('#'))
        return QString("'%1' is no base topic.").arg(options.base);
    if (isSame && options.base == storedBase)
        options.configFile = options.serviceFile;

    const QString storedUser = isSame ? stored("Mqtt/user", "") : QString();
    options.user = given("user", {});
    const QString passwordFile = given("password-file", {});
    if (!passwordFile.isEmpty())
        return readFirstLine(passwordFile, options.password);
    if (isSame && (options.user.isEmpty() || options.user == storedUser)) {
        options.user = storedUser;
        options.password = stored("Mqtt/pass", "");
    }
    return {};
}

} // namespace

QString readOptions(const QStringList& commandLine, Options& options)
{
    QCommandLineParser parser;
    parser.addOptions(knownOptions());
    if (!parser.parse(commandLine))
        return parser.errorText();
    parser.setApplicationDescription(helpText());
    parser.addPositionalArgument("command", "One of these commands; status when there is none.", "[command]");
    if (parser.isSet("help"))
        parser.showHelp();
    if (parser.isSet("version"))
        parser.showVersion();

    options.arguments = parser.positionalArguments();
    options.command = options.arguments.isEmpty() ? QString("status") : options.arguments.takeFirst();
    if (options.command == "wifi" && options.arguments.value(0) == "connect")
        options.command += ' ' + options.arguments.takeFirst();
    options.keyFile = parser.value("key-file");
    options.interface = parser.value("interface");
    options.json = parser.isSet("json");
    options.noColor = parser.isSet("no-color");
    options.yes = parser.isSet("yes");
    options.secrets = parser.isSet("secrets");
    options.replace = parser.isSet("replace");

    constexpr double longest = 86400;
    const QString timeout = parser.value("timeout");
    const double seconds = timeout.toDouble();
    if (!timeout.isEmpty() && (!(seconds > 0) || seconds > longest))
        return QString("'%1' is no time-out in seconds.").arg(timeout);
    if (!timeout.isEmpty())
        options.answerMs = options.outcomeMs = static_cast<int>(seconds * 1000);

    options.serviceFile = parser.value("config");
    const QFileInfo file(options.serviceFile);
    const bool hasFile = file.isReadable() && file.isFile();
    if (parser.isSet("config") && !hasFile)
        return QString("Cannot read %1.").arg(options.serviceFile);
    return readBroker(parser, hasFile, options);
}

} // namespace Ctl
