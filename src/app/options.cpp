// SPDX-License-Identifier: MIT
#include "options.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdlib>

namespace Lanvoy
{

namespace
{

QCommandLineOption option(const char* shortName, const char* longName, const char* description,
                          const char* valueName = "")
{
    return QCommandLineOption({QLatin1String(shortName), QLatin1String(longName)}, QLatin1String(description),
                              QLatin1String(valueName));
}

} // namespace

Log::Level verbosityFromText(const QString& text)
{
    return static_cast<Log::Level>(qBound(0, text.toInt(nullptr, 10), 3));
}

Options parseCommandLine(const QCoreApplication& app)
{
    const QCommandLineOption help = option("h", "help", "Displays help information and exits.");
    const QCommandLineOption version = option("V", "version", "Displays version and exits.");
    const QCommandLineOption verbose
        = option("v", "verbose", "Sets verbosity level: 0=err, 1=warn, 2=info(default), 3=debug", "level");
    const QCommandLineOption toStderr = option("e", "stderr", "Log to stderr as well as syslog.");
    const QCommandLineOption color = option("c", "color", "Use VT100 color codes in log.");
    // Compatibility: the default is beside the executable, although the text says "./".
    const QCommandLineOption config
        = option("f", "config", "Specifies configuration file (default is ./lanvoy.conf).", "filename");

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("An MQTT service for managing network devices and connections."));
    parser.addOptions({help, version, verbose, toStderr, color, config});
    parser.process(app);

    if (parser.isSet(help))
        parser.showHelp(EXIT_SUCCESS);
    if (parser.isSet(version))
        std::exit(EXIT_SUCCESS);

    Options options;
    options.configFile = QCoreApplication::applicationDirPath() + QLatin1String("/lanvoy.conf");
    if (parser.isSet(verbose))
        options.level = verbosityFromText(parser.value(verbose));
    options.logToStderr = parser.isSet(toStderr);
    options.logColor = parser.isSet(color);
    if (parser.isSet(config))
        options.configFile = parser.value(config);
    return options;
}

} // namespace Lanvoy
