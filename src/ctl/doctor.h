// SPDX-License-Identifier: MIT
#pragma once

#include "commands.h"

namespace Ctl
{

constexpr const char* warning = "warning"; // the service works, but not as it should
constexpr const char* failure = "failure";

/** What a check may find. */
struct Finding {
    bool applies;
    const char* result; // warning or failure
    QString text;
    QString mend = {}; // what to do about it
};

/** Adds the findings of a check that apply; when none does, that all is well, unless there is no text for it.
 */
void report(QJsonArray& checks, const char* name, const std::vector<Finding>& findings,
            const QString& wellText = {});

/**
 * Checks what only the gateway itself can tell: unit, bus services, rights, files, NetworkManager's profiles.
 * Does nothing where the service is not installed as a unit of systemd.
 *
 * @param file  the service's configuration file, readable or not
 */
void checkGateway(QJsonArray& checks, const QString& file);

} // namespace Ctl
