// SPDX-License-Identifier: MIT
#include "options.h"

#include "commands.h"
#include "prompt.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QSettings>
#include <QTextStream>

#include <cstdlib>
#include <utility>

namespace Ctl
{

namespace
{

struct OptionRow {
    const char* shortName;
    const char* longName;
    const char* description;
    const char* value;
};

constexpr OptionRow optionRows[] = {
    {"H", "host", "Broker (default: localhost).", "host"},
    {"p", "port", "Port of the broker (default: 1883).", "port"},
    {"u", "user", "User name for the broker.", "name"},
    {"", "password-file", "File whose first line is the password for the broker.", "file"},
    {"b", "base", "Base topic (default: vexo/network).", "topic"},
    {"f", "config", "The service's configuration file (default: /var/lib/lanvoy/lanvoy.conf).", "file"},
    {"i", "interface", "Device to change, when there are several of its kind.", "name"},
    {"", "key-file", "File whose first line is the wifi key.", "file"},
    {"", "replace", "Empty every field that is not named.", ""},
    {"y", "yes", "Change without asking.", ""},
    {"", "secrets", "Show keys, passwords and PINs.", ""},
    {"", "json", "JSON instead of text.", ""},
    {"", "timeout", "Seconds to wait: 10 for answers, 60 for outcomes.", "seconds"},
    {"", "no-color", "No colours (also: NO_COLOR).", ""},
    {"h", "help", "Shows this help.", ""},
    {"V", "version", "Shows the version.", ""},
};

void addOptions(QCommandLineParser& parser)
{
    for (const OptionRow& row : optionRows) {
        QStringList names = {QLatin1String(row.longName)};
        if (*row.shortName != '\0')
            names.prepend(QLatin1String(row.shortName));
        parser.addOption({names, QLatin1String(row.description), QLatin1String(row.value)});
    }
}

[[noreturn]] void showHelp()
{
    QTextStream out(stdout);
    out << "Usage: lanvoyctl [OPTION...] [COMMAND]\n\nCommands:\n";
    for (const Command& command : commands()) {
        if (*command.description != '\0')
            out << "  " << QString::fromLatin1(command.synopsis).leftJustified(40) << command.description
                << '\n';
    }
    out << "\nOptions:\n";
    for (const OptionRow& row : optionRows) {
        const QString name = (*row.shortName == '\0' ? QString("    ") : QString("-%1, ").arg(row.shortName))
            + QString("--%1 %2").arg(row.longName, QString::fromLatin1(row.value).toUpper());
        out << "  " << name.leftJustified(26) << row.description << '\n';
    }
    out << "\nExit status: 0 done, 1 refused or failed, 2 usage, 3 no broker, 4 no answer.\n";
    out.flush();
    std::exit(Done);
}

/** Option, environment, configuration file, default: the first that says something. */
class Sources
{
public:
    Sources(const QCommandLineParser& parser_, const QString& file)
        : parser(parser_)
    {
        if (!file.isEmpty())
            settings.reset(new QSettings(file, QSettings::IniFormat));
    }

    QString given(const char* option, const char* variable) const
    {
        return parser.isSet(QLatin1String(option)) ? parser.value(QLatin1String(option))
                                                   : qEnvironmentVariable(variable);
    }
    QString stored(const char* key, const char* fallback) const
    {
        return settings ? settings->value(QLatin1String(key), QLatin1String(fallback)).toString()
                        : QString::fromLatin1(fallback);
    }
    QString either(const char* option, const char* variable, const char* key, const char* fallback) const
    {
        const QString value = given(option, variable);
        return value.isEmpty() ? stored(key, fallback) : value;
    }

private:
    const QCommandLineParser& parser;
    QScopedPointer<QSettings> settings;
};

QString plainHost(const QString& host)
{
    const bool loopback = host == "127.0.0.1" || host == "::1";
    return loopback ? QString("localhost") : host.toLower();
}

// Password and base topic of the configuration file belong to its broker only: no other one is to see them.
QString readBroker(const QCommandLineParser& parser, const QString& file, Options& options)
{
    const Sources sources(parser, file);
    bool isNumber = false;
    const QString port = sources.either("port", "LANVOYCTL_PORT", "Mqtt/port", "1883");
    options.host = sources.either("host", "LANVOYCTL_HOST", "Mqtt/url", "localhost");
    options.port = port.toUShort(&isNumber);
    options.isLocal = plainHost(options.host) == "localhost";
    if (!isNumber || options.port == 0)
        return QString("'%1' is no port.").arg(port);
    const bool same = !file.isEmpty()
        && plainHost(options.host) == plainHost(sources.stored("Mqtt/url", "localhost"))
        && port == sources.stored("Mqtt/port", "1883");
    const Sources access(parser, same ? file : QString());
    options.base = access.either("base", "LANVOYCTL_BASE", "Mqtt/base", "vexo/network");
    if (options.base.contains(QLatin1Char('+')) || options.base.contains(QLatin1Char('#')))
        return QString("'%1' is no base topic.").arg(options.base);
    if (same && options.base == sources.stored("Mqtt/base", "vexo/network"))
        options.configFile = file;

    options.user = access.given("user", "LANVOYCTL_USER");
    const QString passwordFile = access.given("password-file", "LANVOYCTL_PASSWORD_FILE");
    if (!passwordFile.isEmpty())
        return readFirstLine(passwordFile, options.password);
    if (options.user.isEmpty() || options.user == access.stored("Mqtt/user", "")) {
        options.user = access.stored("Mqtt/user", "");
        options.password = access.stored("Mqtt/pass", "");
    }
    return {};
}

QString readTimeout(const QCommandLineParser& parser, Options& options)
{
    if (!parser.isSet("timeout"))
        return {};
    constexpr double longest = 86400;
    bool isNumber = false;
    const double seconds = parser.value("timeout").toDouble(&isNumber);
    if (!isNumber || !(seconds > 0) || seconds > longest)
        return QString("'%1' is no time-out in seconds.").arg(parser.value("timeout"));
    options.answerMs = options.outcomeMs = static_cast<int>(seconds * 1000);
    return {};
}

} // namespace

QString readOptions(const QStringList& commandLine, Options& options)
{
    QCommandLineParser parser;
    addOptions(parser);
    if (!parser.parse(commandLine))
        return parser.errorText();
    if (parser.isSet("help"))
        showHelp();
    if (parser.isSet("version")) {
        QTextStream(stdout) << "lanvoyctl " LANVOY_VERSION "\n";
        std::exit(Done);
    }

    options.arguments = parser.positionalArguments();
    options.command = options.arguments.isEmpty() ? QString("status") : options.arguments.takeFirst();
    options.keyFile = parser.value("key-file");
    options.interface = parser.value("interface");
    for (const auto& [name, field] : {std::pair("json", &Options::json),
                                      {"no-color", &Options::noColor},
                                      {"yes", &Options::yes},
                                      {"secrets", &Options::secrets},
                                      {"replace", &Options::replace}})
        options.*field = parser.isSet(QLatin1String(name));

    QString file = "/var/lib/lanvoy/lanvoy.conf";
    if (parser.isSet("config"))
        file = parser.value("config");
    options.serviceFile = file;
    if (!QFileInfo(file).isReadable() || !QFileInfo(file).isFile()) {
        if (parser.isSet("config"))
            return QString("Cannot read %1.").arg(file);
        file.clear();
    }
    const QString problem = readBroker(parser, file, options);
    return problem.isEmpty() ? readTimeout(parser, options) : problem;
}

} // namespace Ctl
