#include "app/options.h"

#include <QCoreApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

class OptionsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void commandLineFillsOptions()
    {
        const struct {
            QList<QByteArray> arguments;
            int level;
            bool toStderr, color;
            QString configFile; // null: beside the executable, wherever the process was started
        } rows[] = {
            {{}, 2, false, false, {}},
            {{"--verbose", "3", "--stderr", "--color", "--config", "a/b.conf"}, 3, true, true, "a/b.conf"},
            {{"-v0", "-e", "-f", "../x"}, 0, true, false, "../x"},
            {{"-c", "-v", "7"}, 3, false, true, {}},
            {{"-v", "-2"}, 0, false, false, {}},
            {{"-v", "0x2"}, 0, false, false, {}}, // no number
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
            QVERIFY(options.logToStderr == row.toStderr && options.logColor == row.color);
            const QString beside = QCoreApplication::applicationDirPath() + "/lanvoy.conf";
            QCOMPARE(options.configFile, row.configFile.isNull() ? beside : row.configFile);
        }
    }

    void executableAnswersAfterItsBanner()
    {
        const struct {
            QString argument;
            int status;
            const char* answer; // on both channels, after the banner
        } rows[] = {
            {"--version", 0, ""},
            {"--help", 0, "Usage: .* \\(default is ./lanvoy.conf\\)\\."},
            {"--bogus", 1, "lanvoy: Unknown option 'bogus'\\."},
        };
        const QString banner = R"(^lanvoy v[\d.]+ \([A-Z][a-z]{2} \d+ \d{4}, \d\d:\d\d:\d\d\) ?%1$)";
        for (const auto& row : rows) {
            QProcess process;
            QStringList command = QString(LANVOY_EMULATOR).split(' ', Qt::SkipEmptyParts);
            command << LANVOY_EXECUTABLE << row.argument;
            process.start(command.takeFirst(), command);
            QVERIFY(process.waitForFinished());
            QCOMPARE(process.exitCode(), row.status);
            const QString text = process.readAllStandardOutput() + process.readAllStandardError();
            QVERIFY(QRegularExpression(banner.arg(row.answer)).match(text.simplified()).hasMatch());
        }
    }
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "optionstest.moc"
