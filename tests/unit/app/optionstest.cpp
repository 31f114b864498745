#include "app/options.h"

#include <QCoreApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

class OptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verbosityIsANumberBroughtIntoRange();
    void commandLineFillsOptions();
    void executableAnswersAfterItsBanner_data();
    void executableAnswersAfterItsBanner();
};

void OptionsTest::verbosityIsANumberBroughtIntoRange()
{
    const QPair<const char*, int> rows[] = {
        {"0", 0},   {"1", 1},  {"2", 2},   {"3", 3},   {"4", 3}, {"7", 3},   {"-2", 0},
        {"abc", 0}, {"2x", 0}, {"0x2", 0}, {"010", 3}, {"", 0},  {"2.9", 0}, {"99999999999", 0},
    };
    for (const auto& [text, level] : rows)
        QVERIFY2(Lanvoy::verbosityFromText(QString::fromLatin1(text)) == level, text);
}

void OptionsTest::commandLineFillsOptions()
{
    const struct {
        QList<QByteArray> arguments;
        int level;
        bool toStderr, color;
        const char* configFile; // null: beside the executable, wherever the process was started
    } rows[] = {
        {{}, 2, false, false, nullptr},
        {{"--verbose", "3", "--stderr", "--color", "--config", "a/b.conf"}, 3, true, true, "a/b.conf"},
        {{"-v0", "-ec", "-f", "../x"}, 0, true, true, "../x"},
        {{"-e"}, 2, true, false, nullptr},
        {{"-c"}, 2, false, true, nullptr},
    };
    for (const auto& row : rows) {
        QList<QByteArray> arguments = QList<QByteArray> {"/else/where"} + row.arguments;
        QVector<char*> argv;
        for (QByteArray& argument : arguments)
            argv.append(argument.data());
        int argc = argv.size();
        const QCoreApplication app(argc, argv.data());
        const Lanvoy::Options options = Lanvoy::parseCommandLine(app);
        QCOMPARE(static_cast<int>(options.level), row.level);
        QCOMPARE(options.logToStderr, row.toStderr);
        QCOMPARE(options.logColor, row.color);
        const QString beside = QCoreApplication::applicationDirPath() + QLatin1String("/lanvoy.conf");
        QCOMPARE(options.configFile, row.configFile ? QString::fromLatin1(row.configFile) : beside);
    }
}

void OptionsTest::executableAnswersAfterItsBanner_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("output"); // first words after the banner line
    QTest::addColumn<QString>("error");
    const QString help = QStringLiteral("Usage: ");
    QTest::newRow("version") << QStringList {"--version"} << 0 << QString() << QString();
    QTest::newRow("version, short") << QStringList {"-V"} << 0 << QString() << QString();
    QTest::newRow("help") << QStringList {"--help"} << 0 << help << QString();
    QTest::newRow("help before version") << QStringList {"-V", "-h"} << 0 << help << QString();
    QTest::newRow("unknown option") << QStringList {"--bogus"} << 1 << QString()
                                    << "lanvoy: Unknown option 'bogus'.\n";
    QTest::newRow("missing value") << QStringList {"-v"} << 1 << QString()
                                   << "lanvoy: Missing value after '-v'.\n";
}

void OptionsTest::executableAnswersAfterItsBanner()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, output);
    int argc = 0;
    const QCoreApplication app(argc, nullptr);
    QProcess process;
    process.start(QStringLiteral(LANVOY_EXECUTABLE), arguments);
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QTEST(process.exitCode(), "status");
    QTEST(QString::fromLocal8Bit(process.readAllStandardError()), "error");

    const QString printed = QString::fromLocal8Bit(process.readAllStandardOutput());
    const QRegularExpression banner(QRegularExpression::anchoredPattern(
        QStringLiteral(R"(lanvoy v%1 \([A-Z][a-z]{2} [ \d]\d \d{4}, \d\d:\d\d:\d\d\)\n)")
            .arg(QRegularExpression::escape(QStringLiteral(LANVOY_VERSION)))));
    const int length = printed.indexOf(QLatin1Char('\n')) + 1;
    QVERIFY2(banner.match(printed.left(length)).hasMatch(), qPrintable(printed));
    const QString rest = printed.mid(length);
    QVERIFY2(output.isEmpty() ? rest.isEmpty() : rest.startsWith(output), qPrintable(rest));
    if (output.isEmpty())
        return;
    QCOMPARE(
        rest.simplified().section(QStringLiteral("] "), 1),
        QStringLiteral("An MQTT service for managing network devices and connections. Options: "
                       "-h, --help Displays help information and exits. "
                       "-V, --version Displays version and exits. "
                       "-v, --verbose <level> Sets verbosity level: 0=err, 1=warn, 2=info(default), 3=debug "
                       "-e, --stderr Log to stderr as well as syslog. "
                       "-c, --color Use VT100 color codes in log. "
                       "-f, --config <filename> Specifies configuration file (default is ./lanvoy.conf)."));
}

QTEST_APPLESS_MAIN(OptionsTest)
#include "optionstest.moc"
