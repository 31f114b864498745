// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QTimer>

namespace Lanvoy
{

/**
 * Tells the service manager that the service is ready, that its event loop runs, and how it is.
 *
 * Speaks systemd's notification protocol. Without NOTIFY_SOCKET in the environment, nothing is done.
 */
class ServiceStatus
{
public:
    /** Reports readiness as soon as the event loop runs. */
    ServiceStatus();

    /** Whether anybody listens; if not, a status need not be put together. */
    static bool isWanted();

    /** Reports the status as one line, if it differs from the last one. */
    void report(const QString& line);

private:
    QByteArray last;
    QTimer watchdog;
};

} // namespace Lanvoy
