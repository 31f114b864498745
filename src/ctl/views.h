// SPDX-License-Identifier: MIT
#pragma once

#include "text.h"

namespace Ctl
{

// What people and programs get to see, as pure functions of the service's documents. A ...Text() shows the
// JSON value that its command prints for programs.

/** @return the document without its key, password and PIN; six asterisks stand for one that is not empty */
QJsonObject withoutSecrets(QJsonObject document);

QString statusText(const QJsonObject& overview, const Look& look);
QString devicesText(const QJsonObject& devices, const Look& look);

/** One network per entry: interface, inUse, ssid, signal, security, channel, band and number of accessPoints.
 */
QJsonArray networksOf(const QJsonObject& networks, const QJsonObject& state);
QString networksText(const QJsonObject& networks, const Look& look);

/** What "modem/state" says of the radio: interface, signal, accessTechnologies, operator. */
QJsonObject signalOf(const QJsonObject& state);
QString signalText(const QJsonObject& modems, const Look& look);

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
