#include "engine/configfields.h"

#include <QJsonDocument>
#include <QTest>

using namespace Lanvoy;

class ConfigFieldsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void everySettableFieldIsReplaced()
    {
        const QPair<const char*, const char*> rows[] = {
            {R"({"id":"x","autocon":false,"usageSec":5,"method":"me","address":"ad","netmask":"ne",
                "gateway":"ga","dns0":"d0","dns1":"d1","ssid":"ss","key":"ke","apn":"ap","username":"us",
                "password":"pa","networkId":"ni","pin":"pi"})",
             "ss,ke,ap,us,pa,ni,pi,me,ad,ne,ga,d0,d1,me,ad,ne,ga,d0,d1,me,ad,ne,ga,d0,d1"},
            // What is absent or no text empties the setting.
            {R"({"mask":"absent","network_id":"absent","method":1,"address":null,"netmask":24,"gateway":true,
                "dns0":[],"dns1":{},"key":12345678,"networkId":26201})",
             ",,,,,,,,,,,,,,,,,,,,,,,,"},
        };
        const Config::Ipv4Config old {"o", "o", "o", "o", "o", "o"};
        for (const auto& [command, fields] : rows) {
            const QJsonObject data = QJsonDocument::fromJson(command).object();
            Config::Ethernet e {"id", true, old};
            Config::Wifi w {"id", true, "o", "o", old};
            Config::Modem m {"id", true, "o", "o", "o", "o", "o", old, 120};
            assignFields(e, data);
            assignFields(w, data);
            assignFields(m, data);
            QStringList texts = {w.ssid, w.key, m.apn, m.username, m.password, m.network_id, m.pin};
            for (const Config::Ipv4Config& i : {e.ipv4, w.ipv4, m.ipv4})
                texts << i.method << i.address << i.mask << i.gateway << i.dns0 << i.dns1;
            QCOMPARE(texts.join(','), fields);
            QVERIFY(e.id == "id" && w.id == "id" && m.id == "id" && m.usageSec == 120);
            QVERIFY(e.autocon && w.autocon && m.autocon);
        }
    }
};

QTEST_APPLESS_MAIN(ConfigFieldsTest)
#include "configfieldstest.moc"
