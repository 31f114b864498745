#include "app/options.h"

#include <QCoreApplication>
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
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "optionstest.moc"
