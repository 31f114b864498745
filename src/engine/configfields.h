// SPDX-License-Identifier: MIT
#pragma once

#include "config/config.h"

#include <QJsonObject>

namespace Lanvoy
{

/**
 * Replace what a set command may change in a record.
 *
 * @param data the command's object; a field that is absent or not a text empties the setting
 *
 * Connection name, auto-connect flag and usage interval stay as they are. Nothing is validated.
 */
void assignFields(Config::Ethernet& record, const QJsonObject& data);
void assignFields(Config::Wifi& record, const QJsonObject& data);
void assignFields(Config::Modem& record, const QJsonObject& data);

} // namespace Lanvoy
