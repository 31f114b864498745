#include "engine/usage.h"
#include "config/diskroom.h"
#include "engine/engine.h"
#include "engine/snapshot.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

#include <sys/stat.h>
#include <unistd.h>

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

    // Each row plants something at the place of the snapshot or of its lock.
    void plantedFilesAreRemoved()
    {
        const auto symlink = [](const char* name) { return ::symlink("/proc/version", name) == 0; };
        const auto dangling = [](const char* name) { return ::symlink("nowhere", name) == 0; };
        const auto pipe = [](const char* name) { return ::mkfifo(name, 0600) == 0; };
        const auto folder = [](const char* name) { return ::mkdir(name, 0700) == 0; };
        const auto fullFolder = [&](const char* name) { return folder(name) && QDir(name).mkdir("x"); };
        const auto foreign = [](const char* name) {
            QFile file(name);
            return file.open(QIODevice::WriteOnly) && file.write("rxbytes=@Variant(\\0)") > 0
                && (geteuid() != 0 || ::chown(name, 1, 1) == 0);
        };
        const QPair<std::function<bool(const char*)>, bool> rows[]
            = {{symlink, true}, {dangling, true},    {pipe, true},
               {folder, true},  {fullFolder, false}, {foreign, true}};
        for (const char* suffix : {"", ".lock"}) {
            for (const auto& [plant, usable] : rows) {
                const QTemporaryDir place;
                const QString path = place.filePath("snapshot.ini");
                QVERIFY(plant(qPrintable(path + suffix)));
                const auto snapshot = openSnapshot(path);
                QCOMPARE(snapshot != nullptr, usable);
                if (!usable)
                    continue;
                QVERIFY(snapshot->allKeys().isEmpty());
                writeUsage(*snapshot, "", {1, 2});
                snapshot->sync();
                QCOMPARE(snapshot->status(), QSettings::NoError);
                QVERIFY(QFileInfo(path).isFile() && !QFileInfo(path).isSymLink());
            }
        }
    }

    void fileSystemWithoutSizesHasRoom() { QVERIFY(hasRoomToSave("/proc/lanvoy.conf")); }

    void counterFileIsItsFirstLine()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath("rx_bytes"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("012345678901\n8\n") > 0);
        file.close();
        QCOMPARE(Engine::readIntegerFromFile(file.fileName()), 12345678901);
    }
};

QTEST_APPLESS_MAIN(UsageTest)
#include "usagetest.moc"
