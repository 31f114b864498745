// SPDX-License-Identifier: MIT
#include "ctl/views.h"

#include <QJsonArray>
#include <QTest>

using namespace Ctl;

namespace
{

const Look plain; // UTF-8, no colours, 80 columns
const Look ascii = {false, false, 80};

QJsonObject network(const char* ssid, int strength, int mhz)
{
    return {{"ssid", QString::fromUtf8(ssid)},
            {"signalStrength", strength},
            {"referenceAP", QJsonObject {{"frequency", mhz}, {"security", "wpa2"}}},
            {"accessPoints", QJsonArray {QJsonObject(), QJsonObject()}}};
}

} // namespace

class CtlViewsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nothingReachesTheTerminalRaw_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        QTest::newRow("escape") << "a\033[31mb"
                                << "a?[31mb";
        QTest::newRow("control") << QString("a\r\n\tb") << "a???b";
        QTest::newRow("c1") << QString("a") + QChar(0x9b) + "2J"
                            << "a?2J";
        QTest::newRow("direction") << QString("a") + QChar(0x202e) + "b"
                                   << "a?b";
        QTest::newRow("lineSeparator") << QString("a") + QChar(0x2028) << "a?";
        QTest::newRow("halfACharacter") << QString("a") + QChar(0xd800) << QString::fromUtf8("a�");
        QTest::newRow("names") << QString::fromUtf8("Café 😀 日本 �") << QString::fromUtf8("Café 😀 日本 �");
    }

    void nothingReachesTheTerminalRaw()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        QCOMPARE(printable(text), shown);
        // As JSON the text stays, in ASCII where it is not to be shown; half a character cannot be in JSON.
        const QByteArray written = jsonText({{"ssid", text}}, QJsonDocument::Compact);
        for (const char control : {'\033', '\r', '\t'})
            QVERIFY(!written.contains(control));
        QVERIFY(!QString(written).contains(QChar(0x9b)) && !QString(written).contains(QChar(0x202e)));
        if (!text.contains(QChar(0xd800)))
            QCOMPARE(QJsonDocument::fromJson(written).object()["ssid"].toString(), text);
    }

    void cutsByWidth_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("cut");
        QTest::newRow("fits") << "12345678"
                              << "12345678";
        QTest::newRow("long") << "123456789"
                              << "1234567…";
        QTest::newRow("wide") << "日本日本"
                              << "日本日本";
        QTest::newRow("wideLong") << "日本日本日"
                                  << "日本日…"; // half a character is none
        QTest::newRow("combining") << QString("e").repeated(8).replace("e", QString("e") + QChar(0x301))
                                   << QString("e").repeated(8).replace("e", QString("e") + QChar(0x301));
    }

    void cutsByWidth()
    {
        QFETCH(QString, text);
        QFETCH(QString, cut);
        constexpr int columns = 8;
        QCOMPARE(Ctl::cut(text, columns, plain), cut);
        QVERIFY(displayWidth(Ctl::cut(text, columns, plain)) <= columns);
    }

    void drawsBars()
    {
        const QMap<int, QPair<QString, QString>> expected
            = {{0, {"____", ""}},    {5, {"____", ""}},     {6, {"▂___", "*"}},
               {31, {"▂▄__", "**"}}, {56, {"▂▄▆_", "***"}}, {81, {"▂▄▆█", "****"}}};
        for (auto row = expected.begin(); row != expected.end(); ++row) {
            QCOMPARE(bars(row.key(), plain), row.value().first);
            QCOMPARE(bars(row.key(), ascii), row.value().second);
        }
    }

    void longNamesGiveWay()
    {
        const QString longest = QString("日").repeated(10) + QString("x").repeated(40);
        const QJsonObject networks
            = {{"interface", "wlx0123456789ab"},
               {"networks", QJsonArray {network("Home", 40, 2437), network(longest.toUtf8(), 90, 5955)}}};
        const QString text = networksText(networksOf(networks, {}), plain);
        for (const QString& line : text.split('\n'))
            QVERIFY2(displayWidth(line) <= plain.width, qPrintable(line));
        QVERIFY(text.contains("…  ") && text.contains("6 GHz"));
    }

    void networksAreSortedAndPlaced()
    {
        const QJsonObject networks = {
            {"interface", "wlan0"},
            {"networks", QJsonArray {network("b", 40, 2484), network("a", 40, 5180), network("c", 70, 900)}}};
        const auto found
            = networksOf(networks, {{"stateStr", "Connected"}, {"ap", QJsonObject {{"ssid", "b"}}}});
        QStringList rows;
        for (const QJsonObject& n : found)
            rows.append(
                QString("%1 %2 %3 %4")
                    .arg(textAt(n, "ssid"), textAt(n, "channel"), textAt(n, "band"), textAt(n, "inUse")));
        QCOMPARE(rows, (QStringList {"c   false", "a 36 5 GHz false", "b 14 2.4 GHz true"}));
    }

    void usageIsUnwrappedAndSummed()
    {
        const QJsonObject stats = {{"2026-10", QJsonObject {{"download", -294.97}, {"upload", 0.5}}},
                                   {"2026-11", QJsonObject {{"download", 1000.0}, {"upload", 0.25}}}};
        const QString text = usageText(usageOf(stats), ascii);
        QCOMPARE(text.split('\n').at(1), "2026-10  4000.00   0.50  " + QString(30, '*'));
        QCOMPARE(text.split('\n').at(2),
                 "2026-11  1000.00   0.25  " + QString(8, '*')); // a quarter of 30, rounded
        QCOMPARE(text.split('\n').at(3), QString("Sum      5000.00   0.75"));
        QVERIFY(usageText(usageOf({}), ascii).contains("Sum"));
    }

    void secretsAreHidden()
    {
        const QJsonObject hidden
            = withoutSecrets({{"key", "k"}, {"password", ""}, {"pin", "1234"}, {"apn", "a"}});
        QCOMPARE(hidden,
                 (QJsonObject {{"key", "******"}, {"password", ""}, {"pin", "******"}, {"apn", "a"}}));
    }

    void differencesAreByMember()
    {
        const QJsonObject before
            = {{"state", 3},
               {"stateStr", "Connecting"},
               {"ipv4", QJsonValue()},
               {"aps", QJsonArray {QJsonObject {{"hardwareAddress", "A"}, {"signalStrength", 40}}}}};
        const QJsonObject now
            = {{"state", 4},
               {"stateStr", "Connected"},
               {"ipv4", QJsonObject {{"address", "10.0.0.5"}}},
               {"aps",
                QJsonArray {QJsonObject {{"hardwareAddress", "B"}, {"signalStrength", 1}},
                            QJsonObject {{"hardwareAddress", "A"}, {"signalStrength", 41}}}}};
        QStringList lines;
        for (const Difference& d : differences(before, now))
            lines.append(d.member + ": " + d.from + '>' + d.to);
        QCOMPARE(lines,
                 (QStringList {"aps[A].signalStrength: 40>41", "aps[B].hardwareAddress: >B",
                               "aps[B].signalStrength: >1", "ipv4.address: >10.0.0.5",
                               "stateStr: Connecting>Connected"}));
        QVERIFY(differences(now, now).isEmpty());
    }
};

QTEST_GUILESS_MAIN(CtlViewsTest)
#include "ctlviewstest.moc"
