// SPDX-License-Identifier: MIT
#include "usage.h"

#include <QDateTime>

namespace Lanvoy
{

namespace
{

constexpr char monthFormat[] = "yyyy-MM";
constexpr int keptMonths = 6;

QString keyOf(const QString& group, const char* name)
{
    return group.isEmpty() ? QString::fromLatin1(name) : group + QLatin1Char('/') + QLatin1String(name);
}

// The snapshot holds 64-bit counts; only the low 32 bits are used.
quint32 count(const QSettings& store, const QString& key)
{
    return static_cast<quint32>(store.value(key).toULongLong());
}

} // namespace

Usage bookedUsage(const Usage& month, const Usage& now, const Usage& previous)
{
    return {month.rxbytes + (now.rxbytes - previous.rxbytes),
            month.txbytes + (now.txbytes - previous.txbytes)};
}

double megabytes(quint32 bytes)
{
    return static_cast<qint32>(bytes) / 1e6;
}

QString monthName(const QDateTime& time)
{
    return time.toString(QString::fromLatin1(monthFormat));
}

bool isOutdatedMonth(const QString& group, const QDateTime& now)
{
    const QDateTime month = QDateTime::fromString(group, QString::fromLatin1(monthFormat));
    return month.isValid() && month < now.addMonths(-keptMonths);
}

Usage readUsage(const QSettings& store, const QString& group)
{
    return {count(store, keyOf(group, "rxbytes")), count(store, keyOf(group, "txbytes"))};
}

void writeUsage(QSettings& store, const QString& group, const Usage& usage)
{
    store.setValue(keyOf(group, "rxbytes"), usage.rxbytes);
    store.setValue(keyOf(group, "txbytes"), usage.txbytes);
}

} // namespace Lanvoy
