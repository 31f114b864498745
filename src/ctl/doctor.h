// SPDX-License-Identifier: MIT
#pragma once

#include "commands.h"

#include <QMap>

namespace Ctl
{

enum class Health { Ok, Warning, Failure };

/** The finding of one check. */
struct Check {
    const char* name;
    Health health = Health::Ok;
    QString text;
    QString mend; // what to do about it; empty for nothing
};

/** @return whether the service is installed on this machine as a unit of systemd */
bool isOnGateway();

/**
 * Checks what only the gateway itself can tell: unit, bus services, rights, files, NetworkManager's profiles.
 *
 * @param file  the service's configuration file, readable or not
 */
QVector<Check> checkGateway(const QString& file);

} // namespace Ctl
