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

QJsonObject json(const QString& text)
{
    QJsonParseError error = {};
    const QByteArray quoted = QString(text).replace('\'', '"').toUtf8();
    const QJsonObject object = QJsonDocument::fromJson(quoted, &error).object();
    if (!text.isEmpty() && error.error != QJsonParseError::NoError)
        qFatal("no JSON: %s", quoted.constData());
    return object;
}

/** Adds a row of one list for each line of a table; the first cell is its name. */
void addRows(const QString& table)
{
    QTest::addColumn<QStringList>("cells");
    for (const QString& line : table.split('\n', Qt::SkipEmptyParts)) {
        QStringList cells;
        for (const QString& cell : line.split('|'))
            cells.append(cell.trimmed());
        QTest::newRow(qPrintable(cells.takeFirst())) << cells;
    }
}

/** Pairs such as "method=auto address=" as a record. */
Record record(const QString& pairs)
{
    Record result;
    for (const QString& pair : pairs.split(' ', Qt::SkipEmptyParts))
        result[pair.section('=', 0, 0)] = pair.section('=', 1);
    return result;
}

QString textOf(const Record& record, const QString& kind)
{
    QStringList pairs;
    for (const Field& field : fieldsOf(kind)) {
        if (!record[field.name].isEmpty())
            pairs.append(QString(field.name) + '=' + record[field.name]);
    }
    return pairs.join(' ');
}

} // namespace

class CtlMergeTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void mergesIntoPresent_data()
    {
        // kind | present | given | sent and not empty, or the beginning of the problem | changed
        addRows(QString(R"(
othersStay         | ethernet | FIXED dns0=10.0.0.2 | dns0=10.0.0.3 | FIXED dns0=10.0.0.3 | dns0
emptyEmpties       | ethernet | FIXED dns0=10.0.0.2 | dns0=         | FIXED               | dns0
nothingChanges     | ethernet | FIXED               | method=manual | FIXED               |
prefixLength       | ethernet | method=auto | method=manual address=10.0.0.5/8 | FIXED | method address netmask
badPrefix          | ethernet | method=auto | address=10.0.0.5/33  | !'10.0.0.5/33' is no |
noPrefix           | ethernet | method=auto | address=10.0.0.5/    | !'10.0.0.5/' is no   |
ipv6               | ethernet | method=auto | address=fd00::5/64   | !'fd00::5/64' is no  |
networkKeepsMethod | wifi     | FIXED ssid=Home key=secret-1 | ssid=Cafe key= | FIXED ssid=Cafe | ssid key
secretsStay        | modem    | apn=a username=u password=p pin=1 | apn=b | apn=b username=u password=p pin=1 | apn
replaceEmpties     | modem    | method=auto apn=a pin=1 | --replace method=auto apn=b | method=auto apn=b | apn pin
replaceWantsMethod | modem    | method=auto | --replace apn=b      | !With --replace      |
unknownMethod      | ethernet | method=auto | method=dhcp          | !method is one of    |
manualWantsAddress | ethernet | method=auto | method=manual        | !Method manual       |
halfAnAddress      | ethernet | method=auto | gateway=10.1         | !gateway: '10.1'     |
maskWithHoles      | ethernet | method=auto | netmask=255.0.255.0  | !netmask:            |
)")
                    .replace("FIXED", "method=manual address=10.0.0.5 netmask=255.0.0.0"));
    }

    void mergesIntoPresent()
    {
        QFETCH(QStringList, cells);
        const QString kind = cells.at(0);
        const QString sent = cells.at(3);
        Record given = record(cells.at(2));
        const bool replace = given.remove("--replace") > 0;
        const Merged merged = merge(kind, {record(cells.at(1)), {}, {}, {}}, given, replace);
        if (sent.startsWith('!')) {
            QVERIFY2(merged.problem.startsWith(sent.mid(1)), qPrintable(merged.problem));
            return;
        }
        QCOMPARE(merged.problem, QString());
        QCOMPARE(textOf(merged.record, kind), sent);
        QCOMPARE(merged.record.size(), fieldsOf(kind).size()); // or the service would empty the rest
        QStringList names;
        for (const QJsonValue& change : merged.changes)
            names.append(change["field"].toString());
        QCOMPARE(names.join(' '), cells.at(4));
    }

    void doubtsWhatTheDocumentShows_data()
    {
        // configuration | state | interface and name of the primary connection | fields wanted with
        // method=auto
        addRows(QString(R"(
inUse             | 'ssid':'Home','key':'k'  | HOME | wlan0 Home             |
noProfile         | 'method':'unknown'       |      |                        | IPV4
shared            | 'method':'shared'        |      |                        | IPV4
otherNetworkInUse | 'ssid':'Home','key':'k'  | CAFE |                        | IPV4, ssid, key
otherName         | 'ssid':'Home','key':'k'  | HOME | wlan0 Home 1           | IPV4, ssid, key
otherPrimary      | 'ssid':'Home','key':'k'  | HOME | eth1 Ethernet          |
networkManagers   |                          |      | eth0 Wired connection 1 | IPV4
addressNotInUse   | 'method':'manual','address':'10.0.0.5' | 'ipv4':{'address':'10.0.0.7'} | | IPV4
keyNotReadable    | 'ssid':'Home'            | HOME |                        | key
openNetwork       | 'ssid':'Cafe'            | CAFE |                        |
)")
                    .replace("HOME", "'ap':{'ssid':'Home','security':'wpa2'}")
                    .replace("CAFE", "'ap':{'ssid':'Cafe','security':'none'}")
                    .replace("IPV4", "address, netmask, gateway, dns0, dns1"));
    }

    void doubtsWhatTheDocumentShows()
    {
        QFETCH(QStringList, cells);
        const bool isWifi = cells.at(0).contains("ssid");
        const QString kind = isWifi ? "wifi" : "ethernet";
        QJsonObject config = json('{' + cells.at(0) + '}');
        config.insert("interface", isWifi ? "wlan0" : "eth0");
        if (!config.contains("method"))
            config.insert("method", "auto");
        QJsonObject state = json('{' + cells.at(1) + '}');
        state.insert("stateStr", "Connected");
        const QString primary = cells.at(2);
        const QJsonObject status = {{"primaryConnection",
                                     QJsonObject {{"interface", primary.section(' ', 0, 0)},
                                                  {"connectionName", primary.section(' ', 1)}}}};
        const Present present = presentOf(kind, config, state, status);
        const QString problem = merge(kind, present, record("method=auto"), false).problem;
        QCOMPARE(problem.isEmpty(), cells.at(3).isEmpty());
        QVERIFY2(problem.isEmpty() || problem.contains("Name " + cells.at(3) + " too"), qPrintable(problem));
        QVERIFY(merge(kind, present, record("method=auto"), true).problem.isEmpty());
        // The profile of the network that is wanted is the right one, in use or not.
        if (cells.at(3).contains("ssid"))
            QVERIFY(presentOf(kind, config, state, {}, "Home").unknown.isEmpty());
    }

    void noGatewayIsNone()
    {
        QCOMPARE(presentOf("ethernet", json("{'gateway':'0.0.0.0'}"), {}, {}).record["gateway"], QString());
    }

    void readsTheServicesFile()
    {
        const QTemporaryDir folder;
        QSettings file(folder.filePath("lanvoy.conf"), QSettings::IniFormat);
        file.setValue("Modem/netmask", "255.0.0.0"); // "mask" in the other groups
        file.setValue("Modem/network_id", "26299");
        file.setValue("Wifi/mask", "255.255.0.0");
        file.setValue("Wifi/method", "");
        QCOMPARE(textOf(presentOf("modem", file).record, "modem"),
                 QString("method=auto netmask=255.0.0.0 apn=internet networkId=26299"));
        QCOMPARE(textOf(presentOf("wifi", file).record, "wifi"), QString("netmask=255.255.0.0"));
    }

    void judges_data()
    {
        // "same" changes nothing, state:reason[:SSID], "ok" is carried out, "settled" | verdict | text
        addRows(R"(
notYetCarriedOut  | 4:NoReason:Home                                                    | 0 |
asBefore          | same ok 4:NoReason:Home                                            | 2 | As before: Connected
willMoveYet       | ok 4:NoReason:Home                                                 | 0 |
doesNotMove       | ok 4:NoReason:Home settled                                         | 2 | As before: Connected
connects          | ok 2:NewActivation 1:NewActivation 3:NoReason 4:NoReason:Home      | 1 | Connected
wrongKey          | ok 3:NoReason 0:NoSecretsReason                                    | 4 | Failed: the key or password
wrongKeyThenOther | ok 3:NoReason 0:NoSecretsReason 1:NoReason 3:NoReason 4:NoReason:X | 4 | Failed: the key or password
failureFromBefore | ok 1:NoSecretsReason 3:NoReason                                    | 0 |
unknownReason     | ok 3:NoReason 1:ModemBusyReason                                    | 4 | Failed: ModemBusyReason
otherNetwork      | ok 3:NoReason 4:NoReason:Cafe                                      | 4 | Saved, but connected to 'Cafe'
outOfRange        | ok 4:NoReason:Cafe settled                       | 4 | Saved, but connected to 'Cafe', 'Home' may be
noCable           | ok 1:CarrierReason                               | 4 | Saved, but not connected: no cable
stays             | ok 1:NoReason settled                            | 4 | Saved, but not connected
connecting        | ok 3:NoReason settled                            | 0 |
refused           | error                                            | 3 | Invalid device
)");
    }

    void judges()
    {
        QFETCH(QStringList, cells);
        const Wanted wanted
            = {"wifi", "wlan0", record("method=auto ssid=Home"), !cells.at(0).contains("same")};
        Story story;
        hear(wanted, "error", json("{'command':'wifi/config/get','error':'Invalid device specified: x'}"),
             story);
        hear(wanted, "wifi/state", json("{'interface':'wlan1','state':3}"), story); // both are of others
        for (const QString& word : cells.at(0).split(' ')) {
            if (word == "ok")
                hear(wanted, "info", {}, story);
            if (word == "error")
                hear(wanted, "error",
                     json("{'command':'wifi/config/get','error':'Invalid device specified: wlan0'}"), story);
            if (word.contains(':'))
                hear(wanted, "wifi/state",
                     {{"interface", "wlan0"},
                      {"state", word.section(':', 0, 0).toInt()},
                      {"reasonStr", word.section(':', 1, 1)},
                      {"ap", QJsonObject {{"ssid", word.section(':', 2)}}}},
                     story);
            story.settled = story.settled || word == "settled";
        }
        const Judgement judgement = judge(wanted, story);
        QCOMPARE(static_cast<int>(judgement.verdict), cells.at(1).toInt());
        QCOMPARE(judgement.text.isEmpty(), cells.at(2).isEmpty());
        QCOMPARE(judgement.text.left(cells.at(2).size()), cells.at(2));
    }

    void waitsForTheAddress()
    {
        const Wanted wanted = {"ethernet", "eth0", record("method=manual address=10.0.0.5"), true};
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
