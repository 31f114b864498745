// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Ctl
{

/** @return whether somebody can be asked: standard input is a terminal */
bool canAsk();

/** Asks for y or n; anything but y is a no. */
bool askConsent(const QString& question);

/**
 * Reads the first line of a file, or the next one of standard input ("-"), without its end of line.
 *
 * @return the problem, empty for none
 */
QString readFirstLine(const QString& fileName, QString& line);

/**
 * Reads a secret from the first line of a file, or asks for it on the terminal without showing it. The
 * terminal is as before when this returns, and also when a signal such as Ctrl-C ends the process meanwhile.
 *
 * @param fileName  empty to ask
 * @param name      of the secret, for the question
 * @param option    what names a file, for where there is no terminal
 * @return the problem, empty for none
 */
QString readSecret(const QString& fileName, const QString& name, const QString& option, QString& secret);

} // namespace Ctl
