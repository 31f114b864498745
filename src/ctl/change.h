// SPDX-License-Identifier: MIT
#pragma once

#include "commands.h"
#include "merge.h"

namespace Ctl
{

/** Reads FIELD=VALUE arguments, asks for those with "-". @return the problem, empty for none */
QString readFields(const QString& kind, const QStringList& arguments, Record& given);

/**
 * Changes the given fields of one device's configuration: reads the present one, merges, shows what changes,
 * asks, sends the whole record and waits for the outcome.
 *
 * @param kind    "ethernet", "wifi" or "modem"
 * @param device  its interface; empty for the first of its kind
 */
Exit changeConfiguration(Context& context, const QString& kind, const QString& device, const Record& given);

} // namespace Ctl
