// SPDX-License-Identifier: MIT
#include "engine/usage.h"
#include "config/diskroom.h"
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
        QCOMPARE(bookedUsage({1000, 7}, {5000, 9}, {4000, 8}).rxbytes, 2000u);
        QCOMPARE(bookedUsage({1000, 7}, {5000, 9}, {4000, 8}).txbytes, 8u);
        QCOMPARE(bookedUsage({max, 0}, {10, 0}, {max - 5, 0}).rxbytes, 15u); // counter and month passed 2^32
        // Compatibility: a counter that went backwards is not detected.
        QCOMPARE(bookedUsage({1000, 0}, {100, 0}, {200, 0}).rxbytes, 900u);
    }

    void storeKeepsThe32LowBits()
    {
        const QTemporaryDir folder;
        QSettings store(folder.filePath("modem.ini"), QSettings::IniFormat);
        store.setValue("rxbytes", "5000000000"); // as a snapshot may hold them
        QCOMPARE(readUsage(store, "").rxbytes, 705032704u);
        QCOMPARE(megabytes(2147483647u), 2147.483647);
        QCOMPARE(megabytes(2147483648u), -2147.483648); // compatibility
    }

    void monthsAreOutdatedAfterSix()
    {
        const QPair<const char*, bool> rows[] = {{"2021-01", true}, {"2021-02", false}, {"notes", false}};
        for (const auto& [group, outdated] : rows)
            QCOMPARE(isOutdatedMonth(group, QDateTime({2021, 7, 31}, {0, 0, 0, 1})), outdated);
        QVERIFY(!isOutdatedMonth("2021-01", QDateTime({2021, 7, 1}, {0, 0})));
    }

    // Each row plants something at the place of the snapshot or of its lock.
    void plantedFilesAreRemoved()
    {
        const std::function<bool(const char*)> rows[] = {
            [](const char* name) { return ::symlink("/proc/version", name) == 0; },
            [](const char* name) { return ::symlink("nowhere", name) == 0; },
            [](const char* name) { return ::mkfifo(name, 0600) == 0; },
            [](const char* name) { return ::mkdir(name, 0700) == 0; },
            [](const char* name) { // another user's file
                return QFile::copy("/proc/version", name) && (geteuid() != 0 || ::chown(name, 1, 1) == 0);
            },
        };
        for (const QString suffix : {"", ".lock"}) {
            for (const auto& plant : rows) {
                const QTemporaryDir place;
                const QString path = place.filePath("snapshot.ini");
                QVERIFY(plant(qPrintable(path + suffix)));
                const auto snapshot = openSnapshot(path);
                QVERIFY(snapshot && snapshot->allKeys().isEmpty());
                writeUsage(*snapshot, "", {1, 2});
                snapshot->sync();
                QCOMPARE(snapshot->status(), QSettings::NoError);
                QVERIFY(QFileInfo(path).isFile() && !QFileInfo(path).isSymLink());
                QVERIFY(
                    QDir(place.path()).mkpath("full.ini" + suffix + "/x")); // cannot be removed: left alone
                QVERIFY(openSnapshot(place.filePath("full.ini")) == nullptr);
            }
        }
    }

    void fileSystemWithoutSizesHasRoom() { QVERIFY(hasRoomToSave("/proc/lanvoy.conf")); }
};

QTEST_APPLESS_MAIN(UsageTest)
#include "usagetest.moc"
