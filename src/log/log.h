// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <cstdarg>

/**
 * Process-wide logging over syslog, optionally echoed to standard error and coloured.
 *
 * Used from the event-loop thread only.
 */
namespace Log
{

enum Level : int {
    Error = 0,
    Warning = 1,
    Info = 2,
    Debug = 3,
};

/**
 * Opens the connection to syslog (facility LOG_LOCAL1) and starts the clock of the line prefix.
 *
 * @param ident    name in front of every line; must outlive the process's logging (syslog keeps the pointer)
 * @param toStderr also write every line to standard error
 * @param color    wrap the message in VT100 colour codes, in syslog too
 * @return true
 */
bool open(const char* ident, bool toStderr, bool color);

/** Drops every line less severe than @p level; any other value lets everything through. */
void setLevel(Level level);

/**
 * Writes one line: "[seconds since open] " + message.
 *
 * @param format printf format of the message; text from outside is only ever an argument
 * @param args   its arguments, expanded by syslog
 */
void vprint(Level level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

/** Writes one line whose message is @p tag followed by @p format; the shape of every class logger. */
void vprint(Level level, const char* tag, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

} // namespace Log
