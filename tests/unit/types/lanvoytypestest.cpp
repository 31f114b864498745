// SPDX-License-Identifier: MIT
#include "types/lanvoytypes.h"

#include <QTest>

using namespace Lanvoy;
using NetworkManager::AccessPoint;
using NetworkManager::Device;

namespace
{
template<typename Enum> void compareWords(QString (*word)(Enum), int first, const QString& expected)
{
    for (const QString& text : expected.split(' '))
        QCOMPARE(word(static_cast<Enum>(first++)), text);
}
} // namespace

class LanvoyTypesTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // The words of types, states and reasons are tested with the documents that hold them.
    void numbersHaveTheirWords()
    {
        compareWords(mqttErrorToString, 0,
                     "NoError InvalidProtocolVersion IdRejected ServerUnavailable BadUsernameOrPassword "
                     "NotAuthorized unknown");
        compareWords(mqttErrorToString, 256, "TransportInvalid ProtocolViolation UnknownError unknown");
        compareWords(ipv4SettingMethodToString, 0, "auto link-local manual shared disabled unknown");
    }

    void deviceStatesFoldIntoFive()
    {
        QMap<int, DeviceState> folded = {{30, Disconnected}, {110, Disconnecting}, {100, Connected}};
        for (int state = 40; state <= 90; state += 10)
            folded.insert(state, Connecting);
        // Compatibility: failed (120) is unavailable, like everything unlisted.
        for (int state = 0; state < 140; ++state)
            QCOMPARE(mapDeviceState(static_cast<Device::State>(state)), folded.value(state, Unavailable));
    }

    void securityFollowsPrivacyAndFlags()
    {
        constexpr int psk = AccessPoint::KeyMgmtPsk | AccessPoint::PairCcmp;
        constexpr int negative = std::numeric_limits<int>::min();
        const struct {
            int capabilities, wpa, rsn;
            const char* word;
        } rows[] = {
            {0, 0, 0, "none"},           {1, 0, 0, "wep"},
            {1, psk, 0, "wpa1"},         {1, 0, psk, "wpa2"},
            {1, psk, 1, "wpa1-wpa2"},    {3, 0, 1, "wpa2"},
            {2, 0, 0, "unknown"},        {0, psk, 0, "unknown"},
            {0, 0, psk, "unknown"},      {1, negative, 0, "unknown"},
            {1, 0, negative, "unknown"},
        };
        for (const auto& row : rows)
            QCOMPARE(apSecurity(AccessPoint::Capabilities(row.capabilities), AccessPoint::WpaFlags(row.wpa),
                                AccessPoint::WpaFlags(row.rsn)),
                     row.word);
        QCOMPARE(apSecurity(AccessPoint::Ptr()), "unknown");
    }

    void technologiesAreListedInBitOrder()
    {
        const QString known = QStringLiteral(
            "POTS,GSM,GSM_COMPACT,GPRS,EDGE,UMTS,HSDPA,HSUPA,HSPA,HSPA_PLUS,1XRTT,EVDO0,EVDOA,EVDOB,LTE");
        const QPair<quint32, QString> rows[]
            = {{0, "UNKNOWN"}, {1u << 15, ""}, {0x7fffffff, known}, {0xffffffff, known + ",ANY"}};
        for (const auto& [bits, words] : rows) { // the newer ones, from bit 15 on, have no word
            const QFlags<MMModemAccessTechnology> flags(QFlag(static_cast<int>(bits)));
            QCOMPARE(accessTechnologiesToString(flags), words);
            QCOMPARE(accessTechnologiesToJson(flags).size(), words.split(',', Qt::SkipEmptyParts).size());
        }
    }
};

QTEST_APPLESS_MAIN(LanvoyTypesTest)
#include "lanvoytypestest.moc"
