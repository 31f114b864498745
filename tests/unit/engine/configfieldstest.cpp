#include "engine/configfields.h"

#include <QJsonDocument>
#include <QTest>

using namespace Lanvoy;

class ConfigFieldsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySettableFieldIsReplaced();
};

namespace
{

QString textsOf(const QString& id, bool autocon, const Config::Ipv4Config& i, const QStringList& own)
{
    return (QStringList {id, autocon ? "true" : "false", i.method, i.address, i.mask, i.gateway, i.dns0,
                         i.dns1}
            + own)
        .join(QLatin1Char(','));
}

} // namespace

void ConfigFieldsTest::everySettableFieldIsReplaced()
{
    const struct {
        const char* command;
        const char *ethernet, *wifi, *modem; // id, auto-connect flag, the IPv4 fields, the kind's own
    } rows[] = {
        {R"({"interface":"x","id":"x","autocon":false,"usageSec":5,"method":"me","address":"ad","netmask":"ne",
            "gateway":"ga","dns0":"d0","dns1":"d1","ssid":"ss","key":"ke","apn":"ap","username":"us",
            "password":"pa","networkId":"ni","pin":"pi"})",
         "id,true,me,ad,ne,ga,d0,d1", "id,true,me,ad,ne,ga,d0,d1,ss,ke",
         "id,true,me,ad,ne,ga,d0,d1,ap,us,pa,ni,pi,120"},
        {R"({"mask":"absent","network_id":"absent","Method":"absent"})", // absent fields empty the setting
         "id,true,,,,,,", "id,true,,,,,,,,", "id,true,,,,,,,,,,,,120"},
        {R"({"method":1,"address":null,"netmask":24,"gateway":true,"dns0":[],"dns1":{},"ssid":7,"key":12345678,
            "apn":0,"username":false,"password":1,"networkId":26201,"pin":1234})", // and so does what is no
                                                                                   // text
         "id,true,,,,,,", "id,true,,,,,,,,", "id,true,,,,,,,,,,,,120"},
    };
    const Config::Ipv4Config old {"o", "o", "o", "o", "o", "o"};
    for (const auto& row : rows) {
        const QJsonObject data = QJsonDocument::fromJson(row.command).object();
        QVERIFY(!data.isEmpty());
        Config::Ethernet e {"id", true, old};
        assignFields(e, data);
        QCOMPARE(textsOf(e.id, e.autocon, e.ipv4, {}), QString::fromLatin1(row.ethernet));
        Config::Wifi w {"id", true, "o", "o", old};
        assignFields(w, data);
        QCOMPARE(textsOf(w.id, w.autocon, w.ipv4, {w.ssid, w.key}), QString::fromLatin1(row.wifi));
        Config::Modem m {"id", true, "o", "o", "o", "o", "o", old, 120};
        assignFields(m, data);
        const QStringList own
            = {m.apn, m.username, m.password, m.network_id, m.pin, QString::number(m.usageSec)};
        QCOMPARE(textsOf(m.id, m.autocon, m.ipv4, own), QString::fromLatin1(row.modem));
    }
}

QTEST_APPLESS_MAIN(ConfigFieldsTest)
#include "configfieldstest.moc"
