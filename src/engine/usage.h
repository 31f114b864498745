// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QSettings>
#include <QString>

class QDateTime;

namespace Lanvoy
{

/** Byte counts as the statistics keep them: 32 bits wide, running over to 0. */
struct Usage {
    quint32 rxbytes = 0;
    quint32 txbytes = 0;
};

/**
 * Books one sample.
 *
 * @param month    what the month has so far
 * @param now      the interface's counters, cut to 32 bits
 * @param previous the same at the last sample
 * @return the month with the difference added, modulo 2^32; a counter that went backwards is not detected
 */
Usage bookedUsage(const Usage& month, const Usage& now, const Usage& previous);

/** @return megabytes (1,000,000 bytes). Compatibility: negative from 2^31 bytes on. */
double megabytes(quint32 bytes);

/** @return the name of a month's group: "yyyy-MM" */
QString monthName(const QDateTime& time);

/** True when @p group is a month that began more than six months before @p now; false for any other name. */
bool isOutdatedMonth(const QString& group, const QDateTime& now);

/** Read and write the counts of one group; the empty name stands for the top level, absent keys for 0. */
Usage readUsage(const QSettings& store, const QString& group);
void writeUsage(QSettings& store, const QString& group, const Usage& usage);

} // namespace Lanvoy
