// SPDX-License-Identifier: MIT
#include "options.h"

#include "engine/engine.h"
#include "log/log.h"

#include <QCoreApplication>
#include <QScopedPointer>
#include <QTextStream>

namespace
{

void setIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("VEXO"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("vexo.example"));
    QCoreApplication::setApplicationVersion(QStringLiteral(LANVOY_VERSION));
    QCoreApplication::setApplicationName(QStringLiteral("lanvoy"));
}

// On every start, before any argument is looked at: it also precedes the help text.
void printBanner()
{
    QTextStream(stdout) << QCoreApplication::applicationName() << " v"
                        << QCoreApplication::applicationVersion() << " (" << __DATE__ << ", " << __TIME__
                        << ")" << Qt::endl;
}

} // namespace

int main(int argc, char* argv[])
{
    setIdentity();
    printBanner();
    QCoreApplication app(argc, argv);
    const Lanvoy::Options options = Lanvoy::parseCommandLine(app);

    Log::open("lanvoy", options.logToStderr, options.logColor);
    Log::setLevel(options.level);

    const QScopedPointer<Lanvoy::Engine> engine(new Lanvoy::Engine(options.configFile, nullptr));
    engine->start();
    return QCoreApplication::exec();
}
