// SPDX-License-Identifier: MIT
#include "ctl/merge.h"
#include "ctl/outcome.h"

#include <QJsonDocument>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace Ctl;

namespace
{

QJsonObject json(const char* text)
{
    QJsonParseError error = {};
    const QJsonObject object = QJsonDocument::fromJson(QByteArray(text).replace('\'', '"'), &error).object();
    Q_ASSERT(error.error == QJsonParseError::NoError);
    return object;
}

/** Pairs such as "method=auto address=" as a record. */
Record record(const QString& pairs)
{
    Record result;
    for (const QString& pair : pairs.split(' ', Qt::SkipEmptyParts))
        result[pair.section('=', 0, 0)] = pair.section('=', 1);
    return result;
}

QString textOf(const Record& fields, const QVector<Field>& order)
{
    QStringList pairs;
    for (const Field& field : order) {
        if (!fields.value(field.name).isEmpty())
            pairs.append(QString(field.name) + '=' + fields.value(field.name));
    }
    return pairs.join(' ');
}

const char* const aHome = "{'interface':'wlan0','method':'auto','ssid':'Home','key':'secret-1'}";
const char* const homeInUse
    = "{'stateStr':'Connected','ap':{'ssid':'Home','security':'wpa2'},'ipv4':{'address':'10.0.0.7'}}";

} // namespace

class CtlMergeTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void mergesIntoPresent_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("present");
        QTest::addColumn<QString>("given");
        QTest::addColumn<bool>("replace");
        QTest::addColumn<QString>("sent"); // fields that are not empty, or the beginning of the problem
        QTest::addColumn<QString>("changed");
        const QString fixed
            = "method=manual address=10.0.0.5 netmask=255.255.255.0 gateway=10.0.0.1 dns0=10.0.0.2";

        QTest::newRow("othersStay")
            << "ethernet" << fixed << "gateway=10.0.0.254" << false
            << "method=manual address=10.0.0.5 netmask=255.255.255.0 gateway=10.0.0.254 dns0=10.0.0.2"
            << "gateway";
        QTest::newRow("emptyEmpties")
            << "ethernet" << fixed << "dns0=" << false << QString(fixed).remove(" dns0=10.0.0.2") << "dns0";
        QTest::newRow("nothingChanges") << "ethernet" << fixed << "method=manual" << false << fixed << "";
        QTest::newRow("prefixLength") << "ethernet"
                                      << "method=auto"
                                      << "method=manual address=10.0.0.5/22" << false
                                      << "method=manual address=10.0.0.5 netmask=255.255.252.0"
                                      << "method address netmask";
        QTest::newRow("badPrefix") << "ethernet"
                                   << ""
                                   << "address=10.0.0.5/33" << false << "!'10.0.0.5/33' is no"
                                   << "";
        QTest::newRow("networkKeepsMethod") << "wifi" << fixed + " ssid=Home key=secret-1"
                                            << "ssid=Cafe key=" << false << fixed + " ssid=Cafe"
                                            << "ssid key";
        QTest::newRow("secretsStay") << "modem"
                                     << "method=auto apn=internet username=u password=p pin=1234"
                                     << "apn=m2m" << false
                                     << "method=auto apn=m2m username=u password=p pin=1234"
                                     << "apn";
        QTest::newRow("replaceEmpties") << "modem"
                                        << "method=auto apn=internet pin=1234"
                                        << "method=auto apn=m2m" << true << "method=auto apn=m2m"
                                        << "apn pin";
        QTest::newRow("replaceWantsMethod") << "modem"
                                            << "method=auto"
                                            << "apn=m2m" << true << "!With --replace"
                                            << "";
        QTest::newRow("unknownMethod") << "ethernet"
                                       << ""
                                       << "method=dhcp" << false << "!method is one of"
                                       << "";
        QTest::newRow("manualWantsAddress") << "ethernet"
                                            << "method=auto"
                                            << "method=manual" << false << "!Method manual"
                                            << "";
        QTest::newRow("halfAnAddress") << "ethernet"
                                       << ""
                                       << "gateway=10.1" << false << "!gateway: '10.1'"
                                       << "";
        QTest::newRow("maskWithHoles") << "ethernet"
                                       << ""
                                       << "netmask=255.0.255.0" << false << "!netmask: "
                                       << "";
    }

    void mergesIntoPresent()
    {
        QFETCH(QString, kind);
        QFETCH(QString, present);
        QFETCH(QString, given);
        QFETCH(bool, replace);
        QFETCH(QString, sent);
        QFETCH(QString, changed);
        const Merged merged = merge(kind, {record(present), {}, {}, {}}, record(given), replace);
        if (sent.startsWith('!')) {
            QVERIFY2(merged.problem.startsWith(sent.mid(1)), qPrintable(merged.problem));
            return;
        }
        QCOMPARE(merged.problem, QString());
        QCOMPARE(textOf(merged.record, fieldsOf(kind)), sent);
        QCOMPARE(merged.record.size(), fieldsOf(kind).size()); // or the service would empty the rest
        QStringList names;
        for (const Change& change : merged.changes)
            names.append(change.field);
        QCOMPARE(names.join(' '), changed);
    }

    void doubtsWhatTheDocumentShows_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QJsonObject>("config");
        QTest::addColumn<QJsonObject>("state");
        QTest::addColumn<QJsonObject>("status");
        QTest::addColumn<QString>("missing"); // fields that are wanted when only the method is given
        const QJsonObject none;
        const QString ipv4 = "address, netmask, gateway, dns0, dns1";
        const QString wifi = ipv4 + ", ssid, key";
        const auto primary = [](const char* interface, const char* name) {
            return QJsonObject {
                {"primaryConnection", QJsonObject {{"interface", interface}, {"connectionName", name}}}};
        };

        QTest::newRow("inUse") << "wifi" << json(aHome) << json(homeInUse) << primary("wlan0", "Home") << "";
        QTest::newRow("noProfile") << "ethernet" << json("{'interface':'eth0','method':'unknown'}") << none
                                   << none << ipv4;
        QTest::newRow("shared") << "ethernet" << json("{'interface':'eth0','method':'shared'}") << none
                                << none << ipv4;
        QTest::newRow("otherNetworkInUse")
            << "wifi" << json(aHome) << json("{'stateStr':'Connected','ap':{'ssid':'Cafe'}}") << none << wifi;
        QTest::newRow("otherName") << "wifi" << json(aHome) << json(homeInUse) << primary("wlan0", "Home 1")
                                   << wifi;
        QTest::newRow("otherPrimary")
            << "wifi" << json(aHome) << json(homeInUse) << primary("eth0", "Ethernet") << "";
        QTest::newRow("networkManagersOwn") << "ethernet" << json("{'interface':'eth0','method':'auto'}")
                                            << none << primary("eth0", "Wired connection 1") << ipv4;
        QTest::newRow("addressNotInUse")
            << "ethernet" << json("{'interface':'eth0','method':'manual','address':'10.0.0.5'}")
            << json("{'stateStr':'Connected','ipv4':{'address':'192.0.2.17'}}") << none << ipv4;
        QTest::newRow("keyNotReadable")
            << "wifi" << json("{'interface':'wlan0','method':'auto','ssid':'Home'}") << json(homeInUse)
            << none << "key";
        QTest::newRow("openNetwork") << "wifi" << json("{'interface':'wlan0','method':'auto','ssid':'Cafe'}")
                                     << json(
                                            "{'stateStr':'Connected','ap':{'ssid':'Cafe','security':'none'}}")
                                     << none << "";
    }

    void doubtsWhatTheDocumentShows()
    {
        QFETCH(QString, kind);
        QFETCH(QJsonObject, config);
        QFETCH(QJsonObject, state);
        QFETCH(QJsonObject, status);
        QFETCH(QString, missing);
        const Present present = presentOf(kind, config, state, status);
        const QString problem = merge(kind, present, record("method=auto"), false).problem;
        QCOMPARE(problem.isEmpty(), missing.isEmpty());
        QVERIFY2(missing.isEmpty() || problem.contains("Name " + missing + " too"), qPrintable(problem));
        QVERIFY(merge(kind, present, record("method=auto"), true).problem.isEmpty());
    }

    void profileOfTheWantedNetworkIsRight()
    {
        const QJsonObject cafeInUse = json("{'stateStr':'Connected','ap':{'ssid':'Cafe'}}");
        QVERIFY(presentOf("wifi", json(aHome), cafeInUse, {}, "Home").unknown.isEmpty());
        QVERIFY(!presentOf("wifi", json(aHome), cafeInUse, {}, "Printer").unknown.isEmpty());
    }

    void noGatewayIsNone()
    {
        const Present present
            = presentOf("ethernet", json("{'method':'manual','gateway':'0.0.0.0'}"), {}, {});
        QCOMPARE(present.record["gateway"], QString());
    }

    void readsTheServicesFile()
    {
        const QTemporaryDir folder;
        QSettings file(folder.filePath("lanvoy.conf"), QSettings::IniFormat);
        file.setValue("Modem/netmask", "255.0.0.0"); // "mask" in the other groups
        file.setValue("Modem/network_id", "26299");
        file.setValue("Wifi/mask", "255.255.0.0");
        file.setValue("Wifi/method", "");
        QCOMPARE(textOf(presentOf("modem", file).record, fieldsOf("modem")),
                 QString("method=auto netmask=255.0.0.0 apn=internet networkId=26299"));
        QCOMPARE(textOf(presentOf("wifi", file).record, fieldsOf("wifi")), QString("netmask=255.255.0.0"));
    }

    void judges_data()
    {
        QTest::addColumn<QString>("states"); // number:reason[:address or SSID]; "ok": carried out; "settled"
        QTest::addColumn<bool>("changes");
        QTest::addColumn<int>("verdict");
        QTest::addColumn<QString>("text");
        const auto row
            = [](const char* name, const char* states, bool changes, Verdict verdict, const char* text) {
                  QTest::newRow(name) << states << changes << static_cast<int>(verdict) << text;
              };
        row("notYetCarriedOut", "4:NoReason:Home", true, Verdict::Waiting, "");
        row("asBefore", "ok 4:NoReason:Home", false, Verdict::Unchanged, "As before: Connected");
        row("willMoveYet", "ok 4:NoReason:Home", true, Verdict::Waiting, "");
        row("doesNotMove", "ok 4:NoReason:Home settled", true, Verdict::Unchanged, "As before: Connected");
        row("connects", "ok 2:NewActivation 1:NewActivation 3:NoReason 4:NoReason:Home", true,
            Verdict::Connected, "Connected");
        row("wrongKey", "ok 3:NoReason 0:NoSecretsReason", true, Verdict::Failed,
            "Failed: the key or password is wrong");
        row("wrongKeyThenOther", "ok 3:NoReason 0:NoSecretsReason 1:NoReason 3:NoReason 4:NoReason:Cafe",
            true, Verdict::Failed, "Failed: the key or password is wrong");
        row("failureFromBefore", "ok 1:NoSecretsReason 3:NoReason", true, Verdict::Waiting, "");
        row("unknownReason", "ok 3:NoReason 1:ModemBusyReason", true, Verdict::Failed,
            "Failed: ModemBusyReason");
        row("otherNetwork", "ok 3:NoReason 4:NoReason:Cafe", true, Verdict::Failed,
            "Saved, but connected to 'Cafe'");
        row("outOfRange", "ok 4:NoReason:Cafe settled", true, Verdict::Failed,
            "Saved, but connected to 'Cafe', 'Home' may be");
        row("noCable", "ok 1:CarrierReason", true, Verdict::Failed, "Saved, but not connected: no cable");
        row("stays", "ok 1:NoReason settled", true, Verdict::Failed, "Saved, but not connected");
        row("connecting", "ok 3:NoReason settled", true, Verdict::Waiting, "");
        row("refused", "refused", true, Verdict::Refused, "Invalid device");
    }

    void judges()
    {
        QFETCH(QString, states);
        QFETCH(bool, changes);
        QFETCH(int, verdict);
        QFETCH(QString, text);
        Story story;
        for (const QString& word : states.split(' ')) {
            story.carriedOut = story.carriedOut || word == "ok";
            story.settled = story.settled || word == "settled";
            if (word == "refused")
                story.refusal = "Invalid device specified: wlan7";
            if (word.contains(':'))
                story.states.append({{"state", word.section(':', 0, 0).toInt()},
                                     {"reasonStr", word.section(':', 1, 1)},
                                     {"ap", QJsonObject {{"ssid", word.section(':', 2)}}}});
        }
        const Judgement judgement = judge({"wifi", record("method=auto ssid=Home"), changes}, story);
        QCOMPARE(static_cast<int>(judgement.verdict), verdict);
        QVERIFY2(text.isEmpty() == judgement.text.isEmpty(), qPrintable(judgement.text));
        QVERIFY2(text.isEmpty() || judgement.text.startsWith(text), qPrintable(judgement.text));
    }

    void waitsForTheAddress()
    {
        const Wanted wanted = {"ethernet", record("method=manual address=10.0.0.5"), true};
        Story story;
        story.carriedOut = true;
        story.states = {json("{'state':3}"), json("{'state':4,'ipv4':{'address':'10.0.0.4'}}")};
        QCOMPARE(judge(wanted, story).verdict, Verdict::Waiting); // the old one, in the moment of the change
        story.states.append(json("{'state':4,'ipv4':{'address':'10.0.0.5'}}"));
        QCOMPARE(judge(wanted, story).text, QString("Connected, 10.0.0.5"));
    }
};

QTEST_GUILESS_MAIN(CtlMergeTest)
#include "ctlmergetest.moc"
