// SPDX-License-Identifier: MIT
#include "servicestatus.h"

#include <cstdint>

#include <systemd/sd-daemon.h>

namespace Lanvoy
{

namespace
{

// Of the watchdog's time. The rest may pass in requests that NetworkManager does not answer, 25 s each.
constexpr std::uint64_t signsOfLife = 4;

} // namespace

ServiceStatus::ServiceStatus()
{
    if (!isWanted())
        return;
    QTimer::singleShot(0, &watchdog, [] { sd_notify(0, "READY=1"); });
    std::uint64_t limitUs = 0;
    if (sd_watchdog_enabled(0, &limitUs) <= 0)
        return;
    QObject::connect(&watchdog, &QTimer::timeout, &watchdog, [] { sd_notify(0, "WATCHDOG=1"); });
    watchdog.start(static_cast<int>(limitUs / 1000 / signsOfLife));
}

bool ServiceStatus::isWanted()
{
    return qEnvironmentVariableIsSet("NOTIFY_SOCKET");
}

void ServiceStatus::report(const QString& line)
{
    const QByteArray text = line.toUtf8();
    if (text == last)
        return;
    last = text;
    sd_notifyf(0, "STATUS=%s", text.constData());
}

} // namespace Lanvoy
