// SPDX-License-Identifier: MIT
#include "commands.h"
#include "session.h"

#include <QCoreApplication>

#include <algorithm>

int main(int argc, char* argv[])
{
    using namespace Ctl;
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(LANVOY_VERSION);
    Options options;
    const QString problem = readOptions(QCoreApplication::arguments(), options);
    if (!problem.isEmpty())
        return fail(Usage, problem);
    const auto& table = commands();
    const auto command = std::find_if(table.begin(), table.end(),
                                      [&](const Command& c) { return c.name == options.command; });
    if (command == table.end())
        return fail(Usage, QString("There is no command '%1'; see lanvoyctl --help.").arg(options.command));
    if (options.arguments.size() < command->least || options.arguments.size() > command->most)
        return fail(Usage, QString("Usage: lanvoyctl %1").arg(command->synopsis));

    Session session(options);
    Context context {options, lookOf(options.noColor), session};
    const QString noSession = command->needsBroker ? session.open() : QString();
    if (!noSession.isEmpty())
        return fail(NoBroker, noSession);
    QJsonObject value;
    const Exit status = command->run(context, value);
    if (!value.isEmpty())
        put(options.json ? jsonText(value) : command->text(value, context.look).toLocal8Bit());
    return status;
}
