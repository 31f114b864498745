// SPDX-License-Identifier: MIT
#include "ipc/documents.h"

#include <NetworkManagerQt/Ipv4Setting>

#include <QFile>
#include <QJsonDocument>
#include <QTest>

using namespace Lanvoy;
using NetworkManager::ConnectionSettings;
using NetworkManager::IpAddress;
using NetworkManager::Setting;

namespace
{
const QList<QHostAddress> threeServers
    = {QHostAddress("10.0.0.2"), QHostAddress("10.0.0.3"), QHostAddress("9.9.9.9")};

QList<IpAddress> twoAddresses()
{
    QList<IpAddress> addresses;
    for (const QString ip : {"10.0.0.5", "10.9.0.5"}) {
        IpAddress address;
        address.setIp(QHostAddress(ip));
        address.setNetmask(QHostAddress("255.255.255.0"));
        address.setGateway(QHostAddress("10.0.0.1"));
        addresses.append(address);
    }
    return addresses;
}

/** The settings of a connection for which NetworkManager holds @p groups. */
ConnectionSettings::Ptr profile(const QString& type, NMVariantMapMap groups)
{
    groups.insert("connection", {{"type", type}});
    return ConnectionSettings::Ptr(new ConnectionSettings(groups));
}

ConnectionSettings::Ptr manualProfile()
{
    const auto settings = profile("802-3-ethernet", {{"ipv4", {{"method", "manual"}}}});
    const auto ipv4 = settings->setting(Setting::Ipv4).staticCast<NetworkManager::Ipv4Setting>();
    ipv4->setAddresses(twoAddresses());
    ipv4->setDns(threeServers); // compatibility: two of them are listed
    return settings;
}
} // namespace

class DocumentsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void documentIsTheGoldenOne()
    {
        QFile file(QStringLiteral(GOLDEN));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject golden = QJsonDocument::fromJson(file.readAll()).object();

        const QVariantMap ipv4 = {{"method", "auto"}};
        const QVariantMap apn = {{"apn", "internet"}, {"username", "user"}, {"network-id", "26201"}};
        const auto wired = profile("802-3-ethernet", {});
        const auto wifi = profile(
            "802-11-wireless", {{"ipv4", ipv4}, {"802-11-wireless", {{"ssid", QByteArray("caf\xc3\xa9")}}}});
        const auto unnamed = profile("802-11-wireless", {{"ipv4", ipv4}});
        const auto modem = profile("gsm", {{"ipv4", ipv4}, {"gsm", apn}});
        const auto noModem = profile("gsm", {{"ipv4", ipv4}});
        const QVariantMap secrets = {{"password", "secret"}, {"pin", "1234"}};
        const AccessPointFacts ap = {"caf\u00e9", 5180, "02:00:00:00:00:01", 540000, 71, "infra", "wpa2"};
        const QByteArray networks
            = networksDocument("wlan0", {{ap.ssid, 71, "wlan0", ap, {ap}}, {"gone", 0, "wlan0", {}, {}}});
        const QPair<const char*, QJsonObject> rows[] = {
            {"ethernet-config-none", ethernetConfigDocument("eth0", {})},
            {"ethernet-config-manual", ethernetConfigDocument("eth0", manualProfile())},
            {"ethernet-config-no-ipv4", ethernetConfigDocument("eth0", wired)},
            {"wifi-config-none", wifiConfigDocument("wlan0", {}, {})},
            {"wifi-config-secrets", wifiConfigDocument("wlan0", wifi, QVariantMap {{"psk", "pass\"word"}})},
            {"wifi-config-no-psk", wifiConfigDocument("wlan0", wifi, QVariantMap())},
            {"wifi-config-no-wireless", wifiConfigDocument("wlan0", unnamed, {})},
            {"modem-config-none", modemConfigDocument("cdc-wdm0", {}, {})},
            {"modem-config-secrets", modemConfigDocument("cdc-wdm0", modem, secrets)},
            {"modem-config-refused", modemConfigDocument("cdc-wdm0", modem, {})}, // the last secrets are gone
            {"modem-config-no-gsm", modemConfigDocument("cdc-wdm0", noModem, secrets)},
            {"wifi-networks", QJsonDocument::fromJson(networks).object()},
        };
        for (const auto& [name, document] : rows)
            QCOMPARE(QJsonDocument(document).toJson(),
                     QJsonDocument(golden.value(QLatin1String(name)).toObject()).toJson());
    }

    void ipv4StateListsOneAddressAndAllServers()
    {
        using NetworkManager::IpConfig;
        const auto text = [](const QList<IpAddress>& addresses, const QList<QHostAddress>& servers) {
            const QJsonObject object = toJson(IpConfig(addresses, servers, {}, {})).toObject();
            return QJsonDocument(object).toJson(QJsonDocument::Compact);
        };
        QCOMPARE(text({}, {}), R"({"gateway":""})");
        QCOMPARE(text(twoAddresses(), threeServers),
                 R"({"address":"10.0.0.5","dns0":"10.0.0.2","dns1":"10.0.0.3","dns2":"9.9.9.9",)"
                 R"("gateway":"","netmask":"255.255.255.0"})");
    }

    /** The two lists are written by hand: they have to be what the library writes, letter for letter. */
    void scanDocumentsEqualTheLibrarysText()
    {
        QString text;
        for (int unit = 0; unit < 0xffff; ++unit)
            text += QChar(unit); // the surrogates in it form one pair, between halves of none
        const uint large = 4294967295u;
        const AccessPointFacts odd = {text + QChar(0xd83d), large, "02", large, 100, "mode", "security"};
        for (const int points : {0, 1, 2}) {
            const QVector<AccessPointFacts> facts(points, odd);
            const QByteArray aps = accessPointsDocument(text, facts);
            const QByteArray networks
                = networksDocument(text, {{text, -1, text, odd, facts}, {text, 0, "", {}, facts}});
            const QJsonDocument document = QJsonDocument::fromJson(aps);
            QCOMPARE(aps, document.toJson());
            QCOMPARE(networks, QJsonDocument::fromJson(networks).toJson());
            QCOMPARE(document["interface"].toString(), text);
            QCOMPARE(document["aps"][points - 1]["maxBitRate"].toDouble(), points > 0 ? large : 0);
        }
    }
};

QTEST_APPLESS_MAIN(DocumentsTest)
#include "documentstest.moc"
