#include "config/config.h"

#include "../log/stderrcapture.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

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

/** All 37 values, in the order of the documented table. */
QStringList valuesOf(const Config& c)
{
    const auto word = [](bool flag) { return flag ? QStringLiteral("true") : QStringLiteral("false"); };
    const auto ipv4 = [](const Config::Ipv4Config& i) {
        return QStringList {i.method, i.address, i.mask, i.gateway, i.dns0, i.dns1};
    };
    return QStringList {c.mqtt().url, QString::number(c.mqtt().port), c.mqtt().user, c.mqtt().pass,
                        c.mqtt().base}
    + QStringList {c.ethernet().id, word(c.ethernet().autocon)} + ipv4(c.ethernet().ipv4)
        + QStringList {c.wifi().id, word(c.wifi().autocon), c.wifi().ssid, c.wifi().key} + ipv4(c.wifi().ipv4)
        + QStringList {c.modem().id,  word(c.modem().autocon), c.modem().username, c.modem().password,
                       c.modem().apn, c.modem().network_id,    c.modem().pin}
    + ipv4(c.modem().ipv4) + QStringList {QString::number(c.modem().usageSec)};
}

/** The 37 defaults in the same order. */
QStringList defaults()
{
    return QStringLiteral("localhost 1883 - - vexo/network Ethernet true auto - - - - - "
                          "Wifi true - - auto - - - - - Broadband true - - internet - - auto - - - - - 120")
        .replace(QLatin1Char('-'), QString())
        .split(QLatin1Char(' '));
}

} // namespace

class ConfigTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void newFileHoldsTheDefaults();
    void oneKeyIsEnoughAndNothingIsRewritten();
    void valuesAreConverted();
    void unusableFileLeavesTheDefaults_data();
    void unusableFileLeavesTheDefaults();
    void savingWritesEveryKeyAndKeepsForeignOnes();
    void everyFieldSurvivesSaving_data();
    void everyFieldSurvivesSaving();
    void listingShowsEveryField();
    void emptyPathStandsBesideTheExecutable();

private:
    /** What reading a file with @p content gives. */
    QStringList readFrom(const QByteArray& content);
    QString path() const { return folder->filePath(QStringLiteral("lanvoy.conf")); }

    QScopedPointer<QTemporaryDir> folder;
};

void ConfigTest::init()
{
    folder.reset(new QTemporaryDir);
    QVERIFY(folder->isValid());
    Log::open("configtest", false, false);
}

QStringList ConfigTest::readFrom(const QByteArray& content)
{
    QFile file(path());
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return {};
    file.close();
    return valuesOf(Config(path(), nullptr));
}

void ConfigTest::newFileHoldsTheDefaults()
{
    QCOMPARE(valuesOf(Config(path(), nullptr)), defaults());
    QCOMPARE(contentOf(path()), defaultFile);
}

void ConfigTest::oneKeyIsEnoughAndNothingIsRewritten()
{
    const QByteArray content("; by hand\n[Mqtt]\nurl = broker.example\n\n[Modem]\nmask=255.0.0.0");
    QStringList expected = defaults();
    expected[0] = QStringLiteral("broker.example"); // the modem's mask has another name: netmask
    QCOMPARE(readFrom(content), expected);
    QCOMPARE(contentOf(path()), content);
}

void ConfigTest::valuesAreConverted()
{
    constexpr int port = 1, autocon = 6, method = 7, ssid = 15, key = 16, usageSec = 36; // in valuesOf()
    const struct {
        int index;
        const char *group, *line, *value;
    } rows[] = {
        {port, "Mqtt", "port=70000", "4464"},
        {port, "Mqtt", "port=-1", "0"},
        {port, "Mqtt", "port=broker", "0"},
        {port, "Mqtt", "port=", "0"},
        {autocon, "Ethernet", "autocon=FALSE", "false"},
        {autocon, "Ethernet", "autocon=0", "false"},
        {autocon, "Ethernet", "autocon=", "false"},
        {autocon, "Ethernet", "autocon=no", "true"},
        {autocon, "Ethernet", "autocon=yes", "true"},
        {usageSec, "Modem", "usageSec=0", "0"},
        {usageSec, "Modem", "usageSec=", "0"},
        {usageSec, "Modem", "usageSec=often", "0"},
        {usageSec, "Modem", "usageSec=-1", "4294967295"},
        {usageSec, "Modem", "usageSec=4294967295", "4294967295"}, // what saving the row above writes
        {key, "Wifi", "key=\"a;b, c\"", "a;b, c"},
        {ssid, "Wifi", "ssid=", ""},
        {method, "Ethernet", "method=Nonsense", "Nonsense"},
    };
    for (const auto& row : rows)
        QCOMPARE(
            row.line
                + (":" + readFrom(QByteArray("[") + row.group + "]\n" + row.line + "\n").value(row.index)),
            row.line + (":" + QString::fromLatin1(row.value)));
}

void ConfigTest::unusableFileLeavesTheDefaults_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("warned");
    QTest::newRow("missing directory") << QStringLiteral("a/b/new.conf") << true;
    QTest::newRow("below a file") << QStringLiteral("broken/new.conf") << true;
    QTest::newRow("unwritable directory") << QStringLiteral("/proc/lanvoy.conf") << true;
    QTest::newRow("directory") << QStringLiteral("folder") << true;
    QTest::newRow("no INI") << QStringLiteral("broken") << false;
}

void ConfigTest::unusableFileLeavesTheDefaults()
{
    QFETCH(QString, name);
    QVERIFY(QDir(folder->path()).mkdir(QStringLiteral("folder")));
    QFile broken(folder->filePath(QStringLiteral("broken")));
    const QByteArray garbage("]]\x01\xff[Mqtt\nurl\n=\n[%%]\n\0\nport", 27);
    QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write(garbage) == garbage.size());
    broken.close();
    const QString file = QDir(folder->path()).absoluteFilePath(name);

    StderrCapture captured;
    Log::open("configtest", true, false);
    Log::setLevel(Log::Warning);
    Config config(file, nullptr);
    QCOMPARE(valuesOf(config), defaults());
    config.setWifi(config.wifi()); // cannot be saved, which is no error either

    QFETCH(bool, warned);
    const QStringList lines
        = QString::fromLocal8Bit(captured.take()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), warned ? 2 : 0);
    if (!warned)
        return;
    QVERIFY(lines.at(0).endsWith(QStringLiteral("] [Config] Config file not found: '%1'.").arg(file)));
    QVERIFY(lines.at(1).endsWith(QLatin1String("] [Config] Creating file with default values.")));
}

void ConfigTest::savingWritesEveryKeyAndKeepsForeignOnes()
{
    readFrom("[Mqtt]\nport=70000\nextra=kept\n[Other]\nkey=kept\n");
    Config config(path(), nullptr);
    QByteArray expected(defaultFile);
    expected.replace("port=1883", "port=4464");
    expected.replace("base=vexo/network\n", "base=vexo/network\nextra=kept\n");
    expected.replace("dns0=\ngateway=\nid=Broadband", "dns0=\ndns1=\ngateway=\nid=Broadband");
    expected.replace("[Wifi]", "[Other]\nkey=kept\n\n[Wifi]");

    config.setEthernet(config.ethernet()); // a record that is already held is saved as well
    // The groups that were there stay in front; within a group the order is fixed.
    QByteArray rest = contentOf(path());
    for (const QByteArray& group : QByteArray(expected).replace("\n\n", "|").split('|')) {
        QVERIFY2(rest.contains(group.trimmed() + '\n'), group);
        rest.replace(group.trimmed() + '\n', "");
    }
    QCOMPARE(rest.trimmed(), QByteArray());
}

void ConfigTest::everyFieldSurvivesSaving_data()
{
    QTest::addColumn<QString>("text");
    const char* const texts[] = {
        "plain",   " blanks around ",    "\"quoted\"",
        "a,b;c=d", "100% \\ \\x41",      "@Variant(x)",
        "@",       "line\nbreak\r\ttab", "caf\xc3\xa9 \xf0\x9f\x93\xb6",
        "[Group]", "#;comment",
    };
    for (const char* text : texts)
        QTest::newRow(QByteArray(text).simplified()) << QString::fromUtf8(text);
    QTest::newRow("long") << QString(10000, QLatin1Char('x'));
    QTest::newRow("empty") << QString();
}

void ConfigTest::everyFieldSurvivesSaving()
{
    QFETCH(QString, text);
    const auto nth = [&text](int n) { return text.isEmpty() ? text : text + QString::number(n) + text; };
    const auto ipv4 = [&nth](int n) {
        return Config::Ipv4Config {nth(n), nth(n + 1), nth(n + 2), nth(n + 3), nth(n + 4), nth(n + 5)};
    };
    QStringList saved;
    {
        Config config(path(), nullptr);
        config.setEthernet({nth(1), false, ipv4(10)});
        config.setWifi({nth(2), false, nth(3), nth(4), ipv4(20)});
        config.setModem({nth(5), false, nth(6), nth(7), nth(8), nth(9), nth(0), ipv4(30), 4000000});
        saved = valuesOf(config);
    }
    QCOMPARE(QSet<QString>(saved.cbegin(), saved.cend()).size(), text.isEmpty() ? 6 : 6 + 28);
    QCOMPARE(valuesOf(Config(path(), nullptr)), saved);
}

void ConfigTest::listingShowsEveryField()
{
    // Deliberate: the modem's flag is a number and its netmask line repeats the address.
    constexpr char listing[]
        = "Application Settings|-----------------------------------------|"
          "mqtt.url         : localhost|mqtt.port        : 1883|mqtt.user        : |"
          "mqtt.pass        : p%s|mqtt.base        : vexo/network|"
          "ethernet.id      : Ethernet|ethernet.autocon : true|ethernet.method  : auto|"
          "ethernet.address : |ethernet.mask    : e-mask|ethernet.gateway : |"
          "ethernet.dns0    : |ethernet.dns1    : e-dns1|wifi.id          : Wifi|"
          "wifi.autocon     : false|wifi.ssid        : |wifi.key         : w-key|"
          "wifi.method      : auto|wifi.address     : |wifi.mask        : w-mask|"
          "wifi.gateway     : |wifi.dns0        : |wifi.dns1        : |"
          "modem.id         : Broadband|modem.autocon    : 1|modem.username   : |"
          "modem.password   : m-password|modem.apn        : internet|modem.network_id : |"
          "modem.pin        : 1234|modem.method     : auto|modem.address    : 10.0.0.5|"
          "modem.netmask    : 10.0.0.5|modem.gateway    : |modem.dns0       : |"
          "modem.dns1       : m-dns1|modem.usageSec   : -1|"
          "-----------------------------------------";
    StderrCapture captured;
    Log::open("configtest", true, false);
    Log::setLevel(Log::Info);
    readFrom("[Mqtt]\npass=p%s\n[Ethernet]\nmask=e-mask\ndns1=e-dns1\n[Wifi]\nautocon=false\nkey=w-key\n"
             "mask=w-mask\n[Modem]\npassword=m-password\npin=1234\naddress=10.0.0.5\n"
             "netmask=255.255.255.0\ndns1=m-dns1\nusageSec=-1\n");
    QStringList lines = QString::fromLatin1(captured.take().chopped(1)).split(QLatin1Char('\n'));
    lines.replaceInStrings(QRegularExpression(QStringLiteral(R"(^configtest: \[ *\d+\.\d{3}\] \[Config\] )")),
                           QString());
    QCOMPARE(lines, QString::fromLatin1(listing).split(QLatin1Char('|')));
    QCOMPARE(lines.size(), 40);
}

void ConfigTest::emptyPathStandsBesideTheExecutable()
{
    const QString beside = QCoreApplication::applicationDirPath() + QLatin1String("/config.ini");
    QFile::remove(beside);
    StderrCapture captured;
    Log::open("configtest", true, false);
    Log::setLevel(Log::Warning);
    const Config config(QString(), nullptr);
    QVERIFY(
        captured.take().contains("] [Config] Using default config file '" + beside.toLocal8Bit() + "'\n"));
    QVERIFY(QFile::remove(beside));
}

QTEST_GUILESS_MAIN(ConfigTest)
#include "configtest.moc"
