// SPDX-License-Identifier: MIT
#include "prompt.h"

#include <QFile>
#include <QTextStream>

#include <csignal>

#include <termios.h>
#include <unistd.h>

namespace Ctl
{

namespace
{

termios before; // what the signal handler gives back to the terminal

constexpr int endings[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void onSignal(int number)
{
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    signal(number, SIG_DFL);
    raise(number);
}

QString askSecret(const QString& name)
{
    QTextStream(stderr) << name << ": " << Qt::flush;
    if (tcgetattr(STDIN_FILENO, &before) != 0)
        return {};
    // Stopping with Ctrl-Z would leave the terminal to the shell without echo, and come back with it.
    const auto stop = signal(SIGTSTP, SIG_IGN);
    for (const int number : endings)
        signal(number, onSignal);
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);

    QString line = QTextStream(stdin).readLine();

    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    for (const int number : endings)
        signal(number, SIG_DFL);
    signal(SIGTSTP, stop);
    QTextStream(stderr) << '\n';
    return line;
}

} // namespace

bool canAsk()
{
    return isatty(STDIN_FILENO) != 0;
}

bool askConsent(const QString& question)
{
    QTextStream(stderr) << question << " [y/N] " << Qt::flush;
    return QTextStream(stdin).readLine().trimmed().startsWith(QLatin1Char('y'), Qt::CaseInsensitive);
}

QString readFirstLine(const QString& fileName, QString& line)
{
    QFile file(fileName);
    // Unbuffered: the next field may be the next line of standard input.
    const bool isOpen = fileName == "-" ? file.open(stdin, QIODevice::ReadOnly | QIODevice::Unbuffered)
                                        : file.open(QIODevice::ReadOnly);
    if (!isOpen)
        return QString("Cannot read %1: %2.").arg(fileName, file.errorString());
    constexpr int longest = 65536;
    QByteArray bytes = file.readLine(longest);
    while (bytes.endsWith('\n') || bytes.endsWith('\r'))
        bytes.chop(1);
    line = QString::fromUtf8(bytes);
    return {};
}

QString readSecret(const QString& fileName, const QString& name, const QString& option, QString& secret)
{
    if (!fileName.isEmpty())
        return readFirstLine(fileName, secret);
    if (!canAsk())
        return QString("%1: there is no terminal to ask on; use %2.").arg(name, option);
    secret = askSecret(name);
    return {};
}

} // namespace Ctl
