// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Ctl
{

/** @return whether somebody can be asked: standard input is a terminal */
bool canAsk();

/**
 * Asks on the terminal for a text that is not shown. The terminal is as before when this returns, and also
 * when a signal such as Ctrl-C ends the process meanwhile.
 */
QString askSecret(const QString& question);

/** Asks for y or n; anything but y is a no. */
bool askConsent(const QString& question);

/**
 * Reads the first line of a file, or the next one of standard input ("-"), without its end of line.
 *
 * @return the problem, empty for none
 */
QString readFirstLine(const QString& fileName, QString& line);

} // namespace Ctl
