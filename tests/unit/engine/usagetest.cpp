#include "engine/usage.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Lanvoy;

class UsageTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void samplesAreBookedModulo32Bits()
    {
        constexpr quint32 max = 4294967295u;
        const struct {
            quint32 month, now, previous, booked;
        } rows[] = {
            {1000, 5000, 4000, 2000},
            {max, 10, max - 5, 15}, // counter and month passed 2^32
            {1000, 100, 200, 900}, // deliberate: a counter that went backwards is not detected
        };
        for (const auto& row : rows) {
            const Usage usage = bookedUsage({row.month, 7}, {row.now, 9}, {row.previous, 8});
            QCOMPARE(usage.rxbytes, row.booked);
            QCOMPARE(usage.txbytes, 8u);
        }
    }

    void storeKeepsThe32LowBits()
    {
        const QTemporaryDir folder;
        QSettings store(folder.filePath("modem.ini"), QSettings::IniFormat);
        store.setValue("rxbytes", "5000000000"); // as a snapshot may hold them
        writeUsage(store, "2021-09", {4294967295u, 4});
        QCOMPARE(readUsage(store, "").rxbytes, 705032704u);
        QCOMPARE(readUsage(store, "2021-09").rxbytes, 4294967295u);
        QCOMPARE(megabytes(2147483647u), 2147.483647);
        QCOMPARE(megabytes(2147483648u), -2147.483648); // deliberate
    }

    void monthsAreOutdatedAfterSix()
    {
        const auto outdated = [](const QString& group, const QString& now) {
            return isOutdatedMonth(group, QDateTime::fromString(now, Qt::ISODateWithMs));
        };
        QVERIFY(!outdated("2021-01", "2021-07-01T00:00:00.000"));
        QVERIFY(outdated("2021-01", "2021-07-01T00:00:00.001"));
        QVERIFY(outdated("2021-02", "2021-08-31T12:00:00.000"));
        QVERIFY(!outdated("2021-13", "2031-07-01T00:00:00.000")); // no month
    }

    void counterFileIsItsFirstLine()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath("rx_bytes"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("012345678901\n8\n") > 0);
        file.close();
        QCOMPARE(readIntegerFromFile(file.fileName()), 12345678901);
    }
};

QTEST_APPLESS_MAIN(UsageTest)
#include "usagetest.moc"
