#include "config/config.h"

#include "../log/stderrof.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

using Lanvoy::Config;

namespace
{
// 36 keys. Deliberate: Modem/dns1 only appears with the first save.
const QByteArray defaultFile
    = QByteArray(
          "[Ethernet] address= autocon=true dns0= dns1= gateway= id=Ethernet mask= method=auto "
          " [Modem] address= apn=internet autocon=true dns0= gateway= id=Broadband method=auto netmask= "
          "network_id= password= pin= usageSec=120 username= "
          " [Mqtt] base=vexo/network pass= port=1883 url=localhost user= "
          " [Wifi] address= autocon=true dns0= dns1= gateway= id=Wifi key= mask= method=auto ssid= ")
          .replace(' ', '\n');

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
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
        QCOMPARE(contentOf(path), defaultFile);
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

    // Each key's text is the label of its line, so that every mix-up shows.
    void listingShowsEveryField()
    {
        const QByteArray labels
            = "mqtt.url mqtt.port mqtt.user mqtt.pass mqtt.base "
              "ethernet.id ethernet.autocon ethernet.method ethernet.address ethernet.mask ethernet.gateway "
              "ethernet.dns0 ethernet.dns1 wifi.id wifi.autocon wifi.ssid wifi.key wifi.method wifi.address "
              "wifi.mask wifi.gateway wifi.dns0 wifi.dns1 modem.id modem.autocon modem.username "
              "modem.password modem.apn modem.network_id modem.pin modem.method modem.address modem.netmask "
              "modem.gateway modem.dns0 modem.dns1 modem.usageSec";
        // Deliberate: the modem's flag is a number and its netmask line repeats the address.
        const QMap<QByteArray, QByteArray> shown
            = {{"mqtt.port", "0"},     {"ethernet.autocon", "true"},       {"wifi.autocon", "true"},
               {"modem.autocon", "1"}, {"modem.netmask", "modem.address"}, {"modem.usageSec", "-1"}};
        QByteArray content;
        QByteArrayList listing = {"Application Settings", "-----------------------------------------"};
        for (const QByteArray& label : labels.split(' ')) {
            const int dot = label.indexOf('.');
            content += '[' + label.left(1).toUpper() + label.mid(1, dot - 1) + "]\n";
            content += label.mid(dot + 1) + '=' + label + '\n';
            listing.append(label.leftJustified(17) + ": " + shown.value(label, label));
        }
        listing.append(listing.at(1));
        write(path, content + "[Modem]\nusageSec=4294967295\n"); // as a save writes it
        QByteArrayList lines = stderrOf([this] { Config(path, nullptr); }).split('\n');
        for (QByteArray& line : lines)
            line.remove(0, line.indexOf("[Config] ") + 9);
        QCOMPARE(lines.join('\n').trimmed(), listing.join('\n'));
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
