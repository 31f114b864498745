// SPDX-License-Identifier: MIT
#include "app/options.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <cstdio>

#include <sys/wait.h>

class OptionsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void commandLineFillsOptions()
    {
        const struct {
            QByteArray arguments;
            Lanvoy::Options options;
        } rows[] = {
            {"", {Log::Info, false, false, {}}}, // the file: beside the executable, wherever it was started
            {" --verbose 3 --stderr --color --config a.conf", {Log::Debug, true, true, "a.conf"}},
            {" -v0 -e -f ../x", {Log::Error, true, false, "../x"}},
            {" -c -v 7", {Log::Debug, false, true, {}}},
            {" -v -2", {Log::Error, false, false, {}}},
            {" -v 0x2", {Log::Error, false, false, {}}}, // no number
        };
        for (const auto& [given, expected] : rows) {
            QList<QByteArray> arguments = ("/else/where" + given).split(' ');
            QVector<char*> argv;
            for (QByteArray& argument : arguments)
                argv.append(argument.data());
            int argc = argv.size();
            const QCoreApplication app(argc, argv.data());
            const Lanvoy::Options options = Lanvoy::parseCommandLine(app);
            QCOMPARE(options.level, expected.level);
            QVERIFY(options.logToStderr == expected.logToStderr && options.logColor == expected.logColor);
            const QString beside = QCoreApplication::applicationDirPath() + "/lanvoy.conf";
            QCOMPARE(options.configFile, expected.configFile.isEmpty() ? beside : expected.configFile);
        }
    }

    void executableAnswersAfterItsBanner()
    {
        const QString banner = R"(^lanvoy v[\d.]+ \([A-Z][a-z]{2} \d+ \d{4}, \d\d:\d\d:\d\d\) ?%1$)";
        const struct {
            QString argument, answer; // the latter on both channels, after the banner
            int status;
        } rows[] = {
            {"--version", "", 0},
            {"--help", R"(Usage: .* \(default is ./lanvoy.conf\)\.)", 0},
            {"--bogus", R"(lanvoy: Unknown option 'bogus'\.)", 1},
        };
        for (const auto& row : rows) {
            // Not a QProcess: it does not work under qemu-user 7.2, where the C library's way does.
            const QString command = LANVOY_EMULATOR " '" LANVOY_EXECUTABLE "' " + row.argument + " 2>&1";
            FILE* const output = popen(qPrintable(command), "r");
            QVERIFY(output != nullptr);
            QFile reader;
            QVERIFY(reader.open(output, QIODevice::ReadOnly));
            const QString text = reader.readAll();
            QCOMPARE(WEXITSTATUS(pclose(output)), row.status);
            QVERIFY(QRegularExpression(banner.arg(row.answer)).match(text.simplified()).hasMatch());
        }
    }
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "optionstest.moc"
