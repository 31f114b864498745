// SPDX-License-Identifier: MIT
#include "log.h"

#include <cstdio>
#include <ctime>
#include <string>

#include <syslog.h>

namespace
{

struct LevelRow {
    int priority;
    int mask;
    const char* colorPrefix;
};

constexpr LevelRow levelRows[] = {
    {LOG_ERR, LOG_UPTO(LOG_ERR), "\x1b[31m"},
    {LOG_WARNING, LOG_UPTO(LOG_WARNING), "\x1b[33m"},
    {LOG_INFO, LOG_UPTO(LOG_INFO), "\x1b[39m"},
    {LOG_DEBUG, LOG_UPTO(LOG_DEBUG), "\x1b[35m"},
};
constexpr LevelRow otherLevel = {LOG_DEBUG, LOG_UPTO(LOG_DEBUG), ""};
constexpr char colorReset[] = "\x1b[39m";

double time_start = 0; // milliseconds since the epoch
bool Log_colorEnable = false;

const LevelRow& rowOf(Log::Level level)
{
    return level >= Log::Error && level <= Log::Debug ? levelRows[level] : otherLevel;
}

// Compatibility: both parts of the clock are taken as signed 32-bit numbers.
double wallClockMs()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return (static_cast<qint32>(now.tv_sec) * 1e9 + static_cast<qint32>(now.tv_nsec)) / 1e6;
}

Q_ATTRIBUTE_FORMAT_PRINTF(1, 2)
std::string Log_format(const char* format, ...)
{
    char buffer[512];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (length < 0)
        return {};
    if (static_cast<size_t>(length) < sizeof buffer)
        return std::string(buffer, static_cast<size_t>(length));

    std::string text(static_cast<size_t>(length) + 1, '\0');
    va_start(args, format);
    vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    text.pop_back();
    return text;
}

std::string Log_formatColor(Log::Level level, const char* format)
{
    return rowOf(level).colorPrefix + std::string(format) + colorReset;
}

} // namespace

namespace Log
{

bool open(const char* ident, bool toStderr, bool color)
{
    openlog(ident, LOG_CONS | LOG_NDELAY | (toStderr ? LOG_PERROR : 0), LOG_LOCAL1);
    Log_colorEnable = color;
    time_start = wallClockMs();
    return true;
}

void setLevel(Level level)
{
    setlogmask(rowOf(level).mask);
}

// The compiler checks the messages where they are written: every class logger is declared as printf-like.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

void vprint(Level level, const char* format, va_list args)
{
    const double elapsedSec = (wallClockMs() - time_start) / 1000;
    std::string line = Log_format("[%9.03f] ", elapsedSec);
    line += Log_colorEnable ? Log_formatColor(level, format) : format;
    vsyslog(rowOf(level).priority, line.c_str(), args);
}

void vprint(Level level, const char* tag, const char* format, va_list args)
{
    vprint(level, (std::string(tag) + format).c_str(), args);
}

#pragma GCC diagnostic pop

} // namespace Log
