// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace Ctl
{

/** What the process ends with. */
enum Exit {
    Done = 0,
    Refused = 1, // by the service, or the outcome is a failure
    Usage = 2,
    NoBroker = 3,
    NoAnswer = 4 // the broker is there, the service is not
};

/** What the command line, the environment and the service's configuration file say. */
struct Options {
    QString command;
    QStringList arguments; // what follows the command
    QString host;
    quint16 port = 0;
    QString user;
    QString password;
    QString base;
    QString configFile; // the service's own, when it is that of the service asked; else empty
    QString serviceFile; // where the service's own is, readable or not
    bool isLocal = false; // the broker is on this machine
    QString keyFile;
    QString interface;
    int answerMs = 10 * 1000;
    int outcomeMs = 60 * 1000;
    bool json = false;
    bool noColor = false;
    bool yes = false; // no question before a change
    bool secrets = false; // shown as they are
    bool replace = false; // empty the fields that are not named
};

/**
 * Reads the command line; what it does not say comes from LANVOYCTL_..., then from the service's
 * configuration file, then from the defaults.
 *
 * @return the problem, empty for none. Ends the process by itself for "help" and "version".
 */
QString readOptions(const QStringList& commandLine, Options& options);

} // namespace Ctl
