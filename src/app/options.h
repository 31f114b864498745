// SPDX-License-Identifier: MIT
#pragma once

#include "log/log.h"

#include <QString>

class QCoreApplication;

namespace Lanvoy
{

/** What the command line asks for. */
struct Options {
    Log::Level level = Log::Info;
    bool logToStderr = false;
    bool logColor = false;
    QString configFile; // as given: relative paths are relative to the working directory
};

/**
 * Turns the value of "verbose" into a log level.
 *
 * @param text the option's value; what is not a number counts as 0
 * @return the number, brought into the range 0 (errors only) to 3 (debug)
 */
Log::Level verbosityFromText(const QString& text);

/**
 * Reads the application's command line; default configuration file is "lanvoy.conf" beside the executable.
 *
 * Ends the process by itself for "help" and "version" (status 0) and for unusable arguments (message on
 * standard error, status 1).
 */
Options parseCommandLine(const QCoreApplication& app);

} // namespace Lanvoy
