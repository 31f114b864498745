// SPDX-License-Identifier: MIT
// Part of the service in the sanitized build only: the service runs until it is terminated, and the leak
// sanitizer by itself looks only when a process returns from main.

#include <csignal>

#include <sanitizer/lsan_interface.h>
#include <unistd.h>

namespace
{

void onTerminate(int /*signal*/)
{
    __lsan_do_leak_check(); // ends the process with a report when there is something
    _exit(0);
}

[[maybe_unused]] const auto previous = std::signal(SIGTERM, onTerminate);

} // namespace
