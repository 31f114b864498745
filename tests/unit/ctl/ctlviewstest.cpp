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
    void nothingReachesTheTerminalRaw()
    {
        // escape, controls, C1, direction, line separator, half a character, and what is to be shown
        const QPair<QString, QString> texts[] = {{"a\033[31mb\r\n\tc", "a?[31mb???c"},
                                                 {u8"a\u009b2J", "a?2J"},
                                                 {u8"a\u202eb", "a?b"},
                                                 {u8"a\u2028", "a?"},
                                                 {QString("a") + QChar(0xd800), u8"a\ufffd"},
                                                 {u8"Café 😀 日本 \ufffd", u8"Café 😀 日本 \ufffd"}};
        for (const auto& [text, shown] : texts) {
            QCOMPARE(printable(text), shown);
            // As JSON the text stays, in ASCII where it is not to be shown; it cannot hold half a character.
            const QByteArray written = jsonText({{"ssid", text}}, QJsonDocument::Compact);
            QVERIFY(QString(written).trimmed() == printable(written.trimmed()));
            if (!text.contains(QChar(0xd800)))
                QCOMPARE(QJsonDocument::fromJson(written).object()["ssid"].toString(), text);
        }
    }

    void cutsByWidth()
    {
        const QString combining = QString(u8"e\u0301").repeated(8);
        const QPair<QString, QString> texts[] = {{"12345678", "12345678"},
                                                 {"123456789", "1234567…"},
                                                 {"日本日本", "日本日本"},
                                                 {"日本日本日", "日本日…"}, // half a character is none
                                                 {combining, combining}};
        for (const auto& [text, shown] : texts)
            QCOMPARE(cut(text, 8, plain), shown);
    }

    void drawsBars()
    {
        const int percents[] = {5, 6, 31, 56, 81};
        QStringList drawn;
        for (const int percent : percents)
            drawn += {bars(percent, plain), bars(percent, ascii)};
        QCOMPARE(drawn.join(' '), QString("____  ▂___ * ▂▄__ ** ▂▄▆_ *** ▂▄▆█ ****"));
    }

    void networksAreSortedAndLongNamesGiveWay()
    {
        const Look narrow = {true, false, 72};
        const QString longest = QString("日").repeated(5) + QString("x").repeated(40);
        const QJsonObject found = {{"interface", "wlan0"},
                                   {"networks",
                                    QJsonArray {network("b", 40, 2484), network("a", 40, 5180),
                                                network("c", 70, 900), network(longest.toUtf8(), 90, 5955)}}};
        const QJsonObject state = {{"stateStr", "Connected"}, {"ap", QJsonObject {{"ssid", "b"}}}};
        const QString text = networksText({{"networks", networksOf(found, state)}}, narrow);
        QCOMPARE(text,
                 QString(R"(
   SSID                    %  BARS  SECURITY  CHAN  BAND     APS  DEVICE
   日日日日日xxxxxxxxxx…  90  ▂▄▆█  wpa2         1  6 GHz      2  wlan0
   c                      70  ▂▄▆_  wpa2                       2  wlan0
   a                      40  ▂▄__  wpa2        36  5 GHz      2  wlan0
*  b                      40  ▂▄__  wpa2        14  2.4 GHz    2  wlan0
)")
                     .mid(1));
    }

    void usageIsUnwrappedAndSummed()
    {
        const QJsonObject stats = {{"2026-10", QJsonObject {{"download", -294.97}, {"upload", 0.5}}},
                                   {"2026-11", QJsonObject {{"download", 1000.0}, {"upload", 0.25}}}};
        const QString text = usageText(usageOf(stats), ascii).section('\n', 1);
        QCOMPARE(text,
                 QString("2026-10  4000.00   0.50  ******************************\n"
                         "2026-11  1000.00   0.25  ********\n" // a quarter of 30, rounded
                         "Sum      5000.00   0.75\n"));
        QCOMPARE(usageText(usageOf({}), ascii).section('\n', 1), QString("Sum       0.00   0.00\n"));
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
