// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QSet>
#include <QString>
#include <QVector>

class QSettings;

namespace Ctl
{

/** What a field takes. */
enum class Rule { Any, Method, Address, Netmask, Secret };

/** One field of a "set" command. */
struct Field {
    const char* name;
    const char* key; // in the configuration file
    const char* kinds; // of devices that have it
    Rule rule = Rule::Any;
    const char* fallback = ""; // what the service takes for a key that is missing
};

/** @return the fields of a kind of devices, in the order of the documentation */
QVector<Field> fieldsOf(const QString& kind);

using Record = QMap<QString, QString>; // values by field

/** The configuration before the change, as far as it is known. */
struct Present {
    Record record;
    QSet<QString> unknown; // fields that may have another value
    QString doubt; // why
    QString note; // what else to know before the change
};

/** The record of the service's own configuration file. */
Present presentOf(const QString& kind, const QSettings& file);

/**
 * What NetworkManager's first available profile says, which need not be the configured one.
 *
 * @param config  answer to a question for the configuration
 * @param state   answer to one for the state of the same device
 * @param status  the overall status, for the name of the primary connection
 * @param ssid    wifi network that is wanted; the profile of the same name is the right one, in use or not
 */
Present presentOf(const QString& kind, const QJsonObject& config, const QJsonObject& state,
                  const QJsonObject& status, const QString& ssid = {});

struct Merged {
    QString problem; // why nothing can be sent; empty for none
    Record record; // every field: the command empties those it does not name
    QJsonArray
        changes; // field, from and to: six asterisks for a secret, a question mark when it is not known
};

/**
 * The record to send: the present values with the given ones in their place.
 *
 * @param given    fields named by the user; "address" may be followed by a prefix length
 * @param replace  whether fields that are not given are emptied
 */
Merged merge(const QString& kind, const Present& present, const Record& given, bool replace);

} // namespace Ctl
