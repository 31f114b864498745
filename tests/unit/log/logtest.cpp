#include "log/log.h"

#include "stderrcapture.h"

#include <QRegularExpression>
#include <QTest>

namespace
{

void say(Log::Level level, const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);
void say(Log::Level level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Log::vprint(level, "[Tag] ", format, args);
    va_end(args);
}

/** What follows the ident and the time in the one line that @p text holds; "?" for anything else. */
QByteArray messageOf(const QByteArray& text)
{
    static const QRegularExpression head(QStringLiteral(R"(^logtest: \[    \d\.\d{3}\] )"));
    const int length = head.match(QString::fromLatin1(text)).capturedLength();
    return length > 0 && text.endsWith('\n') ? text.mid(length).chopped(1) : QByteArray("?" + text);
}

} // namespace

class LogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lineIsPrefixColourMessage_data();
    void lineIsPrefixColourMessage();
    void onlyArgumentsAreTakenLiterally();
    void setLevelDropsWhatIsLessSevere();
    void nothingOnStandardErrorUnlessAsked();
};

void LogTest::lineIsPrefixColourMessage_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QByteArray>("colour");
    QTest::newRow("error") << 0 << QByteArray("\x1b[31m");
    QTest::newRow("warning") << 1 << QByteArray("\x1b[33m");
    QTest::newRow("info") << 2 << QByteArray("\x1b[39m");
    QTest::newRow("debug") << 3 << QByteArray("\x1b[35m");
    QTest::newRow("other: reset alone") << 4 << QByteArray();
    QTest::newRow("negative: reset alone") << -1 << QByteArray();
}

void LogTest::lineIsPrefixColourMessage()
{
    QFETCH(int, level);
    QFETCH(QByteArray, colour);
    StderrCapture captured;
    Log::setLevel(Log::Debug);

    QVERIFY(Log::open("logtest", true, true));
    say(static_cast<Log::Level>(level), "text %d", 7);
    QCOMPARE(messageOf(captured.take()), colour + "[Tag] text 7\x1b[39m");

    QVERIFY(Log::open("logtest", true, false));
    say(static_cast<Log::Level>(level), "text %d", 7);
    QCOMPARE(messageOf(captured.take()), QByteArray("[Tag] text 7"));
}

void LogTest::onlyArgumentsAreTakenLiterally()
{
    const QByteArray longText(10000, 'x');
    StderrCapture captured;
    Log::open("logtest", true, false);
    say(Log::Info, "50%% of '%s'", "%s %n 100%");
    QCOMPARE(messageOf(captured.take()), QByteArray("[Tag] 50% of '%s %n 100%'"));
    say(Log::Info, "%s", longText.constData());
    QCOMPARE(messageOf(captured.take()), "[Tag] " + longText);
}

void LogTest::setLevelDropsWhatIsLessSevere()
{
    StderrCapture captured;
    Log::open("logtest", true, false);
    // One row per mask; the last is any other value, which lets everything through. A line of another value
    // counts as debug.
    const char* const heard[] = {"0", "01", "012", "01234", "01234"};
    for (int mask = 0; mask < 5; ++mask) {
        Log::setLevel(static_cast<Log::Level>(mask));
        QByteArray levels;
        for (int level = 0; level < 5; ++level) {
            say(static_cast<Log::Level>(level), "line");
            if (!captured.take().isEmpty())
                levels += QByteArray::number(level);
        }
        QCOMPARE(levels, QByteArray(heard[mask]));
    }
}

void LogTest::nothingOnStandardErrorUnlessAsked()
{
    StderrCapture captured;
    Log::open("logtest", false, false);
    Log::setLevel(Log::Debug);
    say(Log::Error, "line");
    QCOMPARE(captured.take(), QByteArray());
}

QTEST_APPLESS_MAIN(LogTest)
#include "logtest.moc"
