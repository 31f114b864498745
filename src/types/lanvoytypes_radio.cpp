// SPDX-License-Identifier: MIT
#include "lanvoytypes.h"

#include "names.h"

#include <QStringList>

namespace Lanvoy
{

namespace
{

using NetworkManager::AccessPoint;

constexpr Name apModeNames[] = {
    {AccessPoint::Unknown, "unknown"},
    {AccessPoint::Adhoc, "adhoc"},
    {AccessPoint::Infra, "infra"},
    {AccessPoint::ApMode, "apmode"},
};

struct TechName {
    quint32 bits;
    const char* word;
};

// In ascending order: documents and log lines list the names like this.
constexpr TechName techNames[] = {
    {MM_MODEM_ACCESS_TECHNOLOGY_UNKNOWN, "UNKNOWN"},
    {MM_MODEM_ACCESS_TECHNOLOGY_POTS, "POTS"},
    {MM_MODEM_ACCESS_TECHNOLOGY_GSM, "GSM"},
    {MM_MODEM_ACCESS_TECHNOLOGY_GSM_COMPACT, "GSM_COMPACT"},
    {MM_MODEM_ACCESS_TECHNOLOGY_GPRS, "GPRS"},
    {MM_MODEM_ACCESS_TECHNOLOGY_EDGE, "EDGE"},
    {MM_MODEM_ACCESS_TECHNOLOGY_UMTS, "UMTS"},
    {MM_MODEM_ACCESS_TECHNOLOGY_HSDPA, "HSDPA"},
    {MM_MODEM_ACCESS_TECHNOLOGY_HSUPA, "HSUPA"},
    {MM_MODEM_ACCESS_TECHNOLOGY_HSPA, "HSPA"},
    {MM_MODEM_ACCESS_TECHNOLOGY_HSPA_PLUS, "HSPA_PLUS"},
    {MM_MODEM_ACCESS_TECHNOLOGY_1XRTT, "1XRTT"},
    {MM_MODEM_ACCESS_TECHNOLOGY_EVDO0, "EVDO0"},
    {MM_MODEM_ACCESS_TECHNOLOGY_EVDOA, "EVDOA"},
    {MM_MODEM_ACCESS_TECHNOLOGY_EVDOB, "EVDOB"},
    {MM_MODEM_ACCESS_TECHNOLOGY_LTE, "LTE"}, // newer technologies have no word
    {static_cast<quint32>(MM_MODEM_ACCESS_TECHNOLOGY_ANY), "ANY"},
};

QStringList namesOf(QFlags<MMModemAccessTechnology> technologies)
{
    const auto flags
        = static_cast<quint32>(static_cast<int>(technologies)); // bit 31 makes the flags negative
    QStringList names;
    for (const TechName& tech : techNames) {
        if (tech.bits ? (flags & tech.bits) == tech.bits : flags == 0)
            names.append(QLatin1String(tech.word));
    }
    return names;
}

} // namespace

QString apModeToString(AccessPoint::OperationMode mode)
{
    return wordFor(apModeNames, mode);
}

QString apSecurity(const QSharedPointer<AccessPoint>& accessPoint)
{
    if (!accessPoint)
        return QStringLiteral("unknown");
    return apSecurity(accessPoint->capabilities(), accessPoint->wpaFlags(), accessPoint->rsnFlags());
}

QString apSecurity(AccessPoint::Capabilities capabilities, AccessPoint::WpaFlags wpa,
                   AccessPoint::WpaFlags rsn)
{
    const int wpaBits = static_cast<int>(wpa);
    const int rsnBits = static_cast<int>(rsn);
    if (!capabilities && wpaBits == 0 && rsnBits == 0)
        return QStringLiteral("none");
    if (!capabilities.testFlag(AccessPoint::Privacy) || wpaBits < 0 || rsnBits < 0)
        return QStringLiteral("unknown");
    if (wpaBits == 0)
        return rsnBits == 0 ? QStringLiteral("wep") : QStringLiteral("wpa2");
    return rsnBits == 0 ? QStringLiteral("wpa1") : QStringLiteral("wpa1-wpa2");
}

QString accessTechnologiesToString(QFlags<MMModemAccessTechnology> technologies)
{
    return namesOf(technologies).join(QLatin1Char(','));
}

QJsonArray accessTechnologiesToJson(QFlags<MMModemAccessTechnology> technologies)
{
    return QJsonArray::fromStringList(namesOf(technologies));
}

} // namespace Lanvoy
