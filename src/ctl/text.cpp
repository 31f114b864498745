// SPDX-License-Identifier: MIT
#include "text.h"

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <numeric>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Ctl
{

namespace
{

bool isShown(uint character)
{
    return QChar::isPrint(character) && QChar::category(character) != QChar::Separator_Line
        && QChar::category(character) != QChar::Separator_Paragraph;
}

int widthOf(uint character)
{
    // -1 for what the locale does not know: shown as a question mark
    return std::abs(wcwidth(static_cast<wchar_t>(character)));
}

const char* codeOf(Tone tone)
{
    switch (tone) {
    case Tone::Bold:
        return "1";
    case Tone::Dim:
        return "2";
    case Tone::Good:
        return "32";
    case Tone::Busy:
        return "33";
    case Tone::Bad:
        return "31";
    case Tone::Plain:
        break;
    }
    return "";
}

Cell cellOf(const Column& column, const QJsonObject& row, const Look& look)
{
    const QJsonValue value = valueAt(row, column.path);
    return column.cell == nullptr ? Cell {textOf(value)} : column.cell(value, look);
}

// The widest text of each column; a flexible one gives what is too much for the terminal.
std::vector<int> widthsOf(const Columns& columns, const std::vector<std::vector<Cell>>& grid,
                          const Look& look)
{
    std::vector<int> widths;
    for (size_t i = 0; i < columns.size(); ++i) {
        widths.push_back(0);
        for (const auto& line : grid)
            widths[i] = std::max(widths[i], displayWidth(line[i].text));
    }
    constexpr int least = 8; // a shorter name says nothing
    const int gaps = 2 * (static_cast<int>(columns.size()) - 1);
    const int excess = std::accumulate(widths.begin(), widths.end(), gaps) - look.width;
    for (size_t i = 0; i < columns.size() && excess > 0; ++i) {
        if (columns[i].flexible)
            widths[i] = std::min(widths[i], std::max(least, widths[i] - excess));
    }
    return widths;
}

} // namespace

Look lookOf(bool noColor)
{
    Look look;
    look.utf8 = qstrcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    if (isatty(STDOUT_FILENO) == 0)
        return look;
    look.color = !noColor && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb";
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        look.width = size.ws_col;
    return look;
}

QString printable(const QString& text)
{
    QString result;
    for (const uint character : text.toUcs4())
        result += isShown(character) ? QString::fromUcs4(&character, 1) : QString("?");
    return result;
}

int displayWidth(const QString& text)
{
    int width = 0;
    for (const uint character : text.toUcs4())
        width += widthOf(character);
    return width;
}

QString cut(const QString& text, int columns, const Look& look)
{
    if (displayWidth(text) <= columns)
        return text;
    const QString end = look.utf8 ? QString("…") : QString("...");
    int left = columns - displayWidth(end);
    QString result;
    for (const uint character : text.toUcs4()) {
        left -= widthOf(character);
        if (left < 0)
            break;
        result += QString::fromUcs4(&character, 1);
    }
    return result + end;
}

QString painted(const QString& text, Tone tone, const Look& look)
{
    if (!look.color || tone == Tone::Plain || text.isEmpty())
        return text;
    return QString("\033[%1m%2\033[0m").arg(codeOf(tone), text);
}

QString bars(int percent, const Look& look)
{
    const int full = percent > 80 ? 4 : percent > 55 ? 3 : percent > 30 ? 2 : percent > 5 ? 1 : 0;
    if (!look.utf8)
        return QString(full, '*');
    return QString("▂▄▆█").left(full) + QString(4 - full, '_');
}

QString bar(double share, int columns, const Look& look)
{
    const int full = static_cast<int>(std::lround(std::clamp(share, 0.0, 1.0) * columns));
    return QString(full, look.utf8 ? QChar(0x2588) : '*');
}

QJsonValue valueAt(const QJsonObject& document, const char* path)
{
    QJsonValue value = document;
    for (const QString& member : QString(path).split('.', Qt::SkipEmptyParts))
        value = value.toObject().value(member);
    return value;
}

const QJsonArray entriesOf(const QJsonValue& list)
{
    return list.toArray();
}

QString textOf(const QJsonValue& value)
{
    return printable(value.isArray() ? value.toVariant().toStringList().join(", ")
                                     : value.toVariant().toString());
}

QString textAt(const QJsonObject& document, const char* path)
{
    return textOf(valueAt(document, path));
}

QByteArray jsonText(const QJsonObject& document, QJsonDocument::JsonFormat format)
{
    QString result;
    for (const uint character : QString(QJsonDocument(document).toJson(format).trimmed()).toUcs4()) {
        const QString text = QString::fromUcs4(&character, 1);
        if (character < 0x7f || isShown(character)) {
            result += text;
            continue;
        }
        for (const QChar unit : text)
            result += QString("\\u%1").arg(unit.unicode(), 4, 16, QLatin1Char('0'));
    }
    return result.toUtf8() + '\n';
}

QString table(const Columns& columns, const QVector<QJsonObject>& rows, const Look& look)
{
    std::vector<std::vector<Cell>> grid(1);
    for (const Column& column : columns)
        grid[0].push_back({column.title, Tone::Bold});
    for (const QJsonObject& row : rows) {
        std::vector<Cell> line;
        for (const Column& column : columns)
            line.push_back(cellOf(column, row, look));
        grid.push_back(line);
    }

    const std::vector<int> widths = widthsOf(columns, grid, look);
    QString result;
    for (const auto& line : grid) {
        QString text;
        for (size_t i = 0; i < columns.size(); ++i) {
            const QString shown = cut(line[i].text, widths[i], look);
            const QString fill(widths[i] - displayWidth(shown), ' ');
            const QString cell = painted(shown, line[i].tone, look);
            text += (columns[i].right ? fill + cell : cell + fill) + "  ";
        }
        while (text.endsWith(' '))
            text.chop(1);
        result += text + '\n';
    }
    return result;
}

QString lines(const Columns& columns, const QJsonObject& row, const Look& look)
{
    constexpr int labelWidth = 16;
    QString result;
    for (const Column& column : columns) {
        const QString text = cellOf(column, row, look).text;
        if (!text.isEmpty())
            result += "  " + QString("%1:").arg(column.title).leftJustified(labelWidth) + text + '\n';
    }
    return result;
}

} // namespace Ctl
