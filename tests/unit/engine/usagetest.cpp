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
    void samplesAreBookedModulo32Bits();
    void monthsAndSnapshotAreKeptApart();
    void totalsTurnNegativeAt31Bits();
    void monthsAreOutdatedAfterSix();
    void counterFileIsItsFirstLine();
};

void UsageTest::samplesAreBookedModulo32Bits()
{
    constexpr quint32 max = 4294967295u;
    const struct {
        quint32 month, now, previous, booked;
    } rows[] = {
        {0, 5000, 0, 5000}, // no snapshot: everything since boot
        {1000, 5000, 4000, 2000},
        {1000, 4000, 4000, 1000},
        {1000, 10, max - 5, 1016}, // the counter passed 2^32
        {2147483647u, 1, 0, 2147483648u},
        {max, 2, 0, 1},
        {1000, 100, 200, 900}, // deliberate: a counter that went backwards is not detected
        {0, 0, 1, max},
    };
    for (const auto& row : rows) {
        const Usage rx = bookedUsage({row.month, 7}, {row.now, 9}, {row.previous, 8});
        QCOMPARE(rx.rxbytes, row.booked);
        QCOMPARE(rx.txbytes, 8u);
        const Usage tx = bookedUsage({7, row.month}, {9, row.now}, {8, row.previous});
        QCOMPARE(tx.txbytes, row.booked);
        QCOMPARE(tx.rxbytes, 8u);
    }
}

void UsageTest::monthsAndSnapshotAreKeptApart()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("modem.ini"));
    {
        QSettings store(path, QSettings::IniFormat);
        writeUsage(store, QStringLiteral("2021-08"), {4294967295u, 2});
        writeUsage(store, QStringLiteral("2021-09"), {3, 4});
        store.setValue(QStringLiteral("rxbytes"), Q_UINT64_C(5000000000));
        store.setValue(QStringLiteral("txbytes"), "many");
    }
    QSettings store(path, QSettings::IniFormat);
    const struct {
        const char* group;
        quint32 rx, tx;
    } rows[] = {
        {"2021-08", 4294967295u, 2},
        {"2021-09", 3, 4},
        {"2021-10", 0, 0},
        {"", 705032704, 0}, // the low 32 bits of the snapshot's 64
    };
    for (const auto& row : rows) {
        const Usage usage = readUsage(store, QString::fromLatin1(row.group));
        QCOMPARE(usage.rxbytes, row.rx);
        QCOMPARE(usage.txbytes, row.tx);
    }
    QCOMPARE(store.childGroups(), QStringList({"2021-08", "2021-09"}));
}

void UsageTest::totalsTurnNegativeAt31Bits()
{
    const QPair<quint32, double> rows[] = {
        {0, 0},
        {1500000, 1.5},
        {2147483647u, 2147.483647},
        {2147483648u, -2147.483648},
        {4294967295u, -0.000001},
    };
    for (const auto& [bytes, total] : rows)
        QCOMPARE(megabytes(bytes), total);
}

void UsageTest::monthsAreOutdatedAfterSix()
{
    const struct {
        const char* group;
        const char* now;
        bool outdated;
    } rows[] = {
        {"2021-01", "2021-07-01T00:00:00.000", false}, {"2021-01", "2021-07-01T00:00:00.001", true},
        {"2021-01", "2021-06-30T23:59:59.999", false}, {"2021-02", "2021-08-31T12:00:00.000", true},
        {"2021-07", "2021-07-31T12:00:00.000", false}, {"2020-12", "2021-06-30T23:59:59.999", true},
        {"2020-12", "2021-06-01T00:00:00.000", false}, {"2030-01", "2021-07-01T00:00:00.000", false},
        {"total", "2021-07-01T00:00:00.000", false},   {"2021-1", "2031-07-01T00:00:00.000", false},
        {"2021-13", "2031-07-01T00:00:00.000", false}, {"2021-01-01", "2031-07-01T00:00:00.000", false},
    };
    for (const auto& row : rows) {
        const QDateTime now = QDateTime::fromString(QString::fromLatin1(row.now), Qt::ISODateWithMs);
        QVERIFY(now.isValid());
        QVERIFY2(isOutdatedMonth(QString::fromLatin1(row.group), now) == row.outdated, row.now);
    }
    QCOMPARE(monthName(QDateTime(QDate(2021, 9, 3), QTime(0, 0))), QStringLiteral("2021-09"));
}

void UsageTest::counterFileIsItsFirstLine()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("rx_bytes"));
    QCOMPARE(readIntegerFromFile(path), 0);
    QCOMPARE(readIntegerFromFile(folder.path()), 0);
    const QPair<const char*, qint64> rows[] = {
        {"12345678901\n", 12345678901},
        {"7", 7},
        {"7\n8\n", 7},
        {"-5\n", -5},
        {"", 0},
        {"\n8\n", 0},
        {"many\n", 0},
        {"0x10\n", 0},
        {"010\n", 10},
    };
    for (const auto& [text, number] : rows) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text) >= 0);
        file.close();
        QCOMPARE(readIntegerFromFile(path), number);
    }
}

QTEST_APPLESS_MAIN(UsageTest)
#include "usagetest.moc"
