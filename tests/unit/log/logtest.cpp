// SPDX-License-Identifier: MIT
#include "log/log.h"

#include "stderrof.h"

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
        Log::setLevel(Log::Debug);
        const QPair<int, QByteArray> rows[]
            = {{0, "\x1b[31m"}, {1, "\x1b[33m"}, {2, "\x1b[39m"}, {3, "\x1b[35m"}, {4, ""}, {-1, ""}};
        for (const bool colours : {true, false}) {
            for (const auto& [level, colour] : rows) {
                Log::open("logtest", true, colours);
                const QByteArray line
                    = stderrOf([level = level] { say(level, "50%% of '%s'", "%s %n 100%"); });
                const QByteArray message = "[Tag] 50% of '%s %n 100%'";
                QCOMPARE(line.left(line.indexOf('.')), "logtest: [    0"); // seconds since open()
                QCOMPARE(line.mid(line.indexOf('.') + 4),
                         "] " + (colours ? colour + message + "\x1b[39m" : message) + '\n');
            }
        }
        QVERIFY(stderrOf([] { say(0, "%010000d", 7); }).endsWith("[Tag] " + QByteArray(9999, '0') + "7\n"));
    }

    void setLevelDropsWhatIsLessSevere()
    {
        // One row per mask. Any other value lets everything through; a line of another value counts as debug.
        const char* const heard[] = {"0", "01", "012", "01234", "01234"};
        Log::open("logtest", true, false);
        for (int mask = 0; mask < 5; ++mask) {
            Log::setLevel(static_cast<Log::Level>(mask));
            QByteArray levels;
            for (int level = 0; level < 5; ++level) {
                if (!stderrOf([level] { say(level, "line"); }).isEmpty())
                    levels += QByteArray::number(level);
            }
            QCOMPARE(levels, heard[mask]);
        }
        Log::open("logtest", false, false);
        QCOMPARE(stderrOf([] { say(0, "line"); }), "");
    }
};

QTEST_APPLESS_MAIN(LogTest)
#include "logtest.moc"
