// SPDX-License-Identifier: MIT
#include "config/config.h"

#include "../log/stderrof.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

using Lanvoy::Config;

namespace
{
QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

/** A file of the golden ones. */
QByteArray golden(const char* name)
{
    return contentOf(QStringLiteral(GOLDEN "/") + name);
}

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
}
} // namespace

class ConfigTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        Log::open("configtest", true, false);
        folder.reset(new QTemporaryDir);
        path = folder->filePath("lanvoy.conf");
    }

    void newFileHoldsTheDefaults()
    {
        Config config(path, nullptr);
        QCOMPARE(contentOf(path),
                 golden("default.conf")); // compatibility: Modem/dns1 comes with the first save
        config.setWifi(config.wifi()); // a record that is already held is saved as well
        QVERIFY(contentOf(path).contains("dns0=\ndns1=\ngateway=\nid=Broadband"));
    }

    void readingRewritesNothingAndSavingConverts()
    {
        const QPair<QByteArray, QByteArray> rows[] = {
            {"; by hand\n[Mqtt]\nurl = broker\n\n[Other]\nkey=kept\n",
             "url=broker\nuser=\n\n[Other]\nkey=kept\n"},
            {"[Mqtt]\nport=65537\n", "port=1\n"},
            {"[Mqtt]\nport=broker\n", "port=0\n"},
            {"[Ethernet]\nautocon=0\n", "autocon=false\n"},
            {"[Ethernet]\nautocon=no\n", "autocon=true\n"},
            {"[Modem]\nusageSec=often\n", "usageSec=0\n"},
        };
        for (const auto& [content, saved] : rows) {
            write(path, content);
            Config config(path, nullptr);
            QCOMPARE(contentOf(path), content);
            config.setWifi(config.wifi());
            QVERIFY2(contentOf(path).contains('\n' + saved), content);
        }
    }

    void unusableFileLeavesTheDefaults()
    {
        write(folder->filePath("broken"), QByteArray("]]\x01\xff[Mqtt\nurl\n=\n[%%]\n\0\nport", 27));
        for (const QString file : {"a/b/new.conf", "broken/new.conf", "/proc/lanvoy.conf", ".", "broken"}) {
            Config config(QDir(folder->path()).absoluteFilePath(file), nullptr);
            QCOMPARE(config.mqtt().url, "localhost");
            config.setWifi(config.wifi()); // cannot be saved, which is no error either
        }
    }

    void unreadableFileIsReported()
    {
        write(path, "[Mqtt]\nurl=broker\n");
        rlimit files = {};
        getrlimit(RLIMIT_NOFILE, &files);
        const rlimit none = {0, files.rlim_max};
        const QByteArray log = stderrOf([&] {
            setrlimit(RLIMIT_NOFILE, &none);
            QCOMPARE(Config(path, nullptr).mqtt().url, "localhost");
            setrlimit(RLIMIT_NOFILE, &files);
        });
        QVERIFY(log.contains("[Config] Config file cannot be read: '" + path.toUtf8() + "'."));
    }

    // Compatibility: the modem's flag is a number and its netmask line repeats the address.
    void listingShowsEveryField()
    {
        write(path, golden("labels.conf"));
        QByteArray lines;
        for (const QByteArray& line : stderrOf([this] { Config(path, nullptr); }).split('\n'))
            lines += line.mid(line.indexOf("[Config] ") + 9) + '\n';
        QCOMPARE(lines.trimmed(), golden("labels.txt").trimmed());
        QCOMPARE(Config(path, nullptr).modem().ipv4.mask, "modem.netmask");
    }

    void emptyPathStandsBesideTheExecutable()
    {
        const Config config(QString(), nullptr);
        QVERIFY(QFile::remove(QCoreApplication::applicationDirPath() + "/config.ini"));
    }

private:
    QScopedPointer<QTemporaryDir> folder;
    QString path;
};

QTEST_GUILESS_MAIN(ConfigTest)
#include "configtest.moc"
