// SPDX-License-Identifier: MIT
#pragma once

#include "text.h"

namespace Ctl
{

// What people and programs get to see, as pure functions of the service's documents.

/** @return the document without its key, password and PIN; six asterisks stand for one that is not empty */
QJsonObject withoutSecrets(QJsonObject document);

/** @return address and prefix length of an "ipv4" object, such as 192.0.2.17/24; empty without an address */
QString addressOf(const QJsonObject& ipv4);

Tone toneOf(const QString& stateWord);

/** @param devices  state documents of all kinds */
QString statusText(const QJsonObject& info, const QJsonObject& status, const QVector<QJsonObject>& devices,
                   const Look& look);

/** Everything about one device; either document may be empty. */
QString deviceText(const QJsonObject& state, const QJsonObject& config, const Look& look);

/** One network per entry: interface, inUse, ssid, signal, security, channel, band and number of accessPoints.
 */
QVector<QJsonObject> networksOf(const QJsonObject& networks, const QJsonObject& state);
QString networksText(const QVector<QJsonObject>& networks, const Look& look);

/** What "modem/state" says of the radio: interface, signal, accessTechnologies, operator. */
QJsonObject signalOf(const QJsonObject& state);
QString signalText(const QVector<QJsonObject>& modems, const Look& look);

/** Months with download and upload in MB, and the sums. */
QJsonObject usageOf(const QJsonObject& stats);
QString usageText(const QJsonObject& usage, const Look& look);

/** One changed member of a document. */
struct Difference {
    QString member;
    QString from;
    QString to;
};

/** @return what has changed, by member; a number that stands beside its word is left out */
QVector<Difference> differences(const QJsonObject& before, const QJsonObject& now);

} // namespace Ctl
