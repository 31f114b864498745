#pragma once

// What every target has in common; to be included by its one source file.

#include "log/log.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

#include <syslog.h>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Stands in for the C library's: every line is put together, and goes nowhere.
extern "C" void vsyslog(int /*priority*/, const char* format, va_list args)
{
    static char line[65536];
#pragma clang diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(line, sizeof line, format, args);
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static const QCoreApplication app(*argc, *argv);
    Log::setLevel(Log::Debug);
    return 0;
}

/** Ends the run, which keeps the input, when a rule does not hold. */
inline void require(bool holds, const char* rule)
{
    if (holds)
        return;
    std::fprintf(stderr, "Does not hold: %s\n", rule);
    std::abort();
}
