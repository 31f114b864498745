#include "types/lanvoytypes.h"

#include <QTest>

#include <functional>

using namespace Lanvoy;
using NetworkManager::AccessPoint;
using NetworkManager::Device;

namespace
{

struct Row {
    int value;
    const char* word;
};

template<typename Enum> std::function<QString(int)> byNumber(QString (*function)(Enum))
{
    return [function](int value) { return function(static_cast<Enum>(value)); };
}

} // namespace

class LanvoyTypesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyNumberHasItsWord();
    void deviceStatesFoldIntoFive();
    void securityFollowsPrivacyAndFlags();
    void technologiesAreListedInBitOrder();
};

void LanvoyTypesTest::everyNumberHasItsWord()
{
    struct Table {
        const char* name;
        std::function<QString(int)> function;
        std::vector<Row> rows; // any other number is "unknown"
    };
    // clang-format off
    const Table tables[] = {
        {"device state", byNumber(deviceStateToString),
         {{0, "Unavailable"}, {1, "Disconnected"}, {2, "Disconnecting"}, {3, "Connecting"}, {4, "Connected"}}},
        {"device type", byNumber(deviceTypeToString), // deliberate: UnkownType
         {{0, "UnkownType"}, {1, "Ethernet"}, {2, "Wifi"}, {3, "Unused1"}, {4, "Unused2"},
          {5, "Bluetooth"}, {6, "OlpcMesh"}, {7, "Wimax"}, {8, "Modem"}, {9, "InfiniBand"}, {10, "Bond"},
          {11, "Vlan"}, {12, "Adsl"}, {13, "Bridge"}, {14, "Generic"}, {15, "Team"}, {16, "Gre"},
          {17, "MacVlan"}, {18, "Tun"}, {19, "Veth"}}},
        {"status", byNumber(statusToString),
         {{0, "Unknown"}, {1, "Asleep"}, {2, "Disconnected"}, {3, "Disconnecting"}, {4, "Connecting"},
          {5, "ConnectedLinkLocal"}, {6, "ConnectedSiteOnly"}, {7, "Connected"}}},
        {"connectivity", byNumber(connectivityToString),
         {{0, "UnknownConnectivity"}, {1, "NoConnectivity"}, {2, "Portal"}, {3, "Limited"}, {4, "Full"}}},
        {"MQTT error", byNumber(mqttErrorToString),
         {{0, "NoError"}, {1, "InvalidProtocolVersion"}, {2, "IdRejected"}, {3, "ServerUnavailable"},
          {4, "BadUsernameOrPassword"}, {5, "NotAuthorized"}, {256, "TransportInvalid"},
          {257, "ProtocolViolation"}, {258, "UnknownError"}}},
        {"IPv4 method", byNumber(ipv4SettingMethodToString),
         {{0, "auto"}, {1, "link-local"}, {2, "manual"}, {3, "shared"}, {4, "disabled"}}},
        {"access point mode", byNumber(apModeToString),
         {{0, "unknown"}, {1, "adhoc"}, {2, "infra"}, {3, "apmode"}}},
        {"reason", byNumber(stateChangeReasonToString), // deliberate: no 2
         {{0, "UnknownReason"}, {1, "NoReason"}, {3, "NowUnmanagedReason"}, {4, "ConfigFailedReason"},
          {5, "ConfigUnavailableReason"}, {6, "ConfigExpiredReason"}, {7, "NoSecretsReason"},
          {8, "AuthSupplicantDisconnectReason"}, {9, "AuthSupplicantConfigFailedReason"},
          {10, "AuthSupplicantFailedReason"}, {11, "AuthSupplicantTimeoutReason"},
          {12, "PppStartFailedReason"}, {13, "PppDisconnectReason"}, {14, "PppFailedReason"},
          {15, "DhcpStartFailedReason"}, {16, "DhcpErrorReason"}, {17, "DhcpFailedReason"},
          {18, "SharedStartFailedReason"}, {19, "SharedFailedReason"}, {20, "AutoIpStartFailedReason"},
          {21, "AutoIpErrorReason"}, {22, "AutoIpFailedReason"}, {23, "ModemBusyReason"},
          {24, "ModemNoDialToneReason"}, {25, "ModemNoCarrierReason"}, {26, "ModemDialTimeoutReason"},
          {27, "ModemDialFailedReason"}, {28, "ModemInitFailedReason"}, {29, "GsmApnSelectFailedReason"},
          {30, "GsmNotSearchingReason"}, {31, "GsmRegistrationDeniedReason"},
          {32, "GsmRegistrationTimeoutReason"}, {33, "GsmRegistrationFailedReason"},
          {34, "GsmPinCheckFailedReason"}, {35, "FirmwareMissingReason"}, {36, "DeviceRemovedReason"},
          {37, "SleepingReason"}, {38, "ConnectionRemovedReason"}, {39, "UserRequestedReason"},
          {40, "CarrierReason"}, {41, "ConnectionAssumedReason"}, {42, "SupplicantAvailableReason"},
          {43, "ModemNotFoundReason"}, {44, "BluetoothFailedReason"}, {45, "GsmSimNotInserted"},
          {46, "GsmSimPinRequired"}, {47, "GsmSimPukRequired"}, {48, "GsmSimWrong"},
          {49, "InfiniBandMode"}, {50, "DependencyFailed"}, {51, "Br2684Failed"},
          {52, "ModemManagerUnavailable"}, {53, "SsidNotFound"}, {54, "SecondaryConnectionFailed"},
          {55, "DcbFcoeFailed"}, {56, "TeamdControlFailed"}, {57, "ModemFailed"}, {58, "ModemAvailable"},
          {59, "SimPinIncorrect"}, {60, "NewActivation"}, {61, "ParentChanged"},
          {62, "ParentManagedChanged"}}},
    };
    // clang-format on
    for (const Table& table : tables) {
        QMap<int, QString> words;
        for (const Row& row : table.rows)
            words.insert(row.value, QString::fromLatin1(row.word));
        for (int value = -1; value < 300; ++value) {
            const QString word = words.value(value, QStringLiteral("unknown"));
            QVERIFY2(table.function(value) == word,
                     qPrintable(QStringLiteral("%1 %2").arg(table.name).arg(value)));
        }
    }
}

void LanvoyTypesTest::deviceStatesFoldIntoFive()
{
    const QMap<int, int> mapped = {
        {30, Disconnected}, {110, Disconnecting}, {40, Connecting}, {50, Connecting}, {60, Connecting},
        {70, Connecting},   {80, Connecting},     {90, Connecting}, {100, Connected},
    };
    // Deliberate: failed (120) is unavailable, like everything unlisted.
    for (int state = 0; state < 140; ++state)
        QCOMPARE(static_cast<int>(mapDeviceState(static_cast<Device::State>(state))),
                 mapped.value(state, Unavailable));
}

void LanvoyTypesTest::securityFollowsPrivacyAndFlags()
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
        {1, 0, negative, "unknown"}, {1, psk, negative, "unknown"},
    };
    for (const auto& row : rows)
        QCOMPARE(apSecurity(AccessPoint::Capabilities(row.capabilities), AccessPoint::WpaFlags(row.wpa),
                            AccessPoint::WpaFlags(row.rsn)),
                 QString::fromLatin1(row.word));
    QCOMPARE(apSecurity(AccessPoint::Ptr()), QStringLiteral("unknown"));
}

void LanvoyTypesTest::technologiesAreListedInBitOrder()
{
    const QString known = QStringLiteral(
        "POTS,GSM,GSM_COMPACT,GPRS,EDGE,UMTS,HSDPA,HSUPA,HSPA,HSPA_PLUS,1XRTT,EVDO0,EVDOA,EVDOB,LTE");
    QMap<quint32, QString> rows = {
        {0, QStringLiteral("UNKNOWN")},
        {1u << 1 | 1u << 14, QStringLiteral("GSM,LTE")},
        {1u << 14 | 1u << 15, QStringLiteral("LTE")}, // newer ones have no word
        {0x7fff, known},
        {0x7fffffff, known},
        {0xffffffff, known + QLatin1String(",ANY")},
    };
    const QStringList words = known.split(QLatin1Char(','));
    for (int bit = 0; bit < 32; ++bit)
        rows.insert(1u << bit, words.value(bit));
    for (auto row = rows.cbegin(); row != rows.cend(); ++row) {
        const QFlags<MMModemAccessTechnology> flags(QFlag(static_cast<int>(row.key())));
        QCOMPARE(accessTechnologiesToString(flags), *row);
        QCOMPARE(accessTechnologiesToJson(flags),
                 QJsonArray::fromStringList(row->split(QLatin1Char(','), Qt::SkipEmptyParts)));
    }
}

QTEST_APPLESS_MAIN(LanvoyTypesTest)
#include "lanvoytypestest.moc"
