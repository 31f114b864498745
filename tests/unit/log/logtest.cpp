#include "log/log.h"

#include "stderrcapture.h"

#include <QTest>

namespace
{
void say(int level, const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);
void say(int level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Log::vprint(static_cast<Log::Level>(level), "[Tag] ", format, args);
    va_end(args);
}
} // namespace

class LogTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void lineIsPrefixColourMessage()
    {
        StderrCapture captured;
        Log::setLevel(Log::Debug);
        const QPair<int, QByteArray> rows[]
            = {{0, "\x1b[31m"}, {1, "\x1b[33m"}, {2, "\x1b[39m"}, {3, "\x1b[35m"}, {4, ""}, {-1, ""}};
        for (const bool colours : {true, false}) {
            for (const auto& [level, colour] : rows) {
                Log::open("logtest", true, colours);
                say(level, "50%% of '%s'", "%s %n 100%");
                const QByteArray line = captured.take();
                const QByteArray message = "[Tag] 50% of '%s %n 100%'";
                QCOMPARE(line.left(line.indexOf('.')), "logtest: [    0"); // seconds since open()
                QCOMPARE(line.mid(line.indexOf('.') + 4),
                         "] " + (colours ? colour + message + "\x1b[39m" : message) + '\n');
            }
        }
        say(Log::Info, "%010000d", 7); // a long text
        QVERIFY(captured.take().endsWith("[Tag] " + QByteArray(9999, '0') + "7\n"));
    }

    void setLevelDropsWhatIsLessSevere()
    {
        StderrCapture captured;
        Log::open("logtest", true, false);
        // One row per mask. Any other value lets everything through; a line of another value counts as debug.
        const char* const heard[] = {"0", "01", "012", "01234", "01234"};
        for (int mask = 0; mask < 5; ++mask) {
            Log::setLevel(static_cast<Log::Level>(mask));
            QByteArray levels;
            for (int level = 0; level < 5; ++level) {
                say(level, "line");
                if (!captured.take().isEmpty())
                    levels += QByteArray::number(level);
            }
            QCOMPARE(levels, heard[mask]);
        }
        Log::open("logtest", false, false);
        say(Log::Error, "line");
        QCOMPARE(captured.take(), "");
    }
};

QTEST_APPLESS_MAIN(LogTest)
#include "logtest.moc"
