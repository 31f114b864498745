// SPDX-License-Identifier: MIT
#include "text.h"

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <numeric>
#include <vector>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Ctl
{

namespace
{

constexpr const char* colorCodes[] = {"", "1", "2", "32", "33", "31"}; // by Tone

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

struct Cell {
    QString text;
    Tone tone = Tone::Plain;
};
using Line = std::vector<Cell>;

Cell cellOf(const Column& column, const QJsonObject& row, const Look& look)
{
    const QJsonValue value = valueAt(row, column.path);
    const QString text = textOf(value);
    constexpr int longestBar = 30;
    switch (column.form) {
    case Form::Size:
        return {QString::number(value.toDouble(), 'f', 2)};
    case Form::State:
        return {text, toneOf(text)};
    case Form::Mark:
        return {value.toBool() ? "*" : "", Tone::Good};
    case Form::Bars: {
        const int percent = value.toInt();
        const Tone tone = percent > 55 ? Tone::Good : percent > 30 ? Tone::Busy : Tone::Bad;
        return {text.isEmpty() ? text : bars(percent, look), tone};
    }
    case Form::Share:
        return {QString(qRound(value.toDouble() * longestBar), look.utf8 ? QChar(0x2588) : '*'), Tone::Good};
    default:
        return {text};
    }
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
    const auto characters = text.toUcs4();
    return std::accumulate(characters.begin(), characters.end(), 0,
                           [](int width, uint character) { return width + widthOf(character); });
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
    return QString("\033[%1m%2\033[0m").arg(colorCodes[static_cast<int>(tone)], text);
}

QString arrow(const Look& look)
{
    return look.utf8 ? " → " : " -> ";
}

Tone toneOf(const QString& stateWord)
{
    if (stateWord.startsWith("Connected"))
        return Tone::Good;
    return stateWord.endsWith("ing") ? Tone::Busy : Tone::Bad;
}

QString bars(int percent, const Look& look)
{
    const int full = percent > 80 ? 4 : percent > 55 ? 3 : percent > 30 ? 2 : percent > 5 ? 1 : 0;
    return look.utf8 ? QString("▂▄▆█").left(full) + QString(4 - full, '_') : QString(full, '*');
}

QJsonValue valueAt(const QJsonObject& document, const char* path)
{
    QJsonValue value = document;
    for (const QString& member : QString(path).split('.'))
        value = value[member];
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
        if (character == '\n' || isShown(character)) {
            result += text;
            continue;
        }
        for (const QChar unit : text)
            result += QString("\\u%1").arg(unit.unicode(), 4, 16, QLatin1Char('0'));
    }
    return result.toUtf8() + '\n';
}

QString table(const Columns& columns, const QJsonArray& rows, const Look& look)
{
    std::vector<Line> grid(1);
    for (const Column& column : columns)
        grid[0].push_back({column.title, Tone::Bold});
    for (const QJsonValue& row : rows) {
        grid.emplace_back();
        for (const Column& column : columns)
            grid.back().push_back(cellOf(column, row.toObject(), look));
    }

    std::vector<int> widths(columns.size());
    for (const Line& line : grid) {
        for (size_t i = 0; i < columns.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(line[i].text));
    }
    constexpr int least = 8; // a shorter name says nothing
    const int gaps = 2 * (static_cast<int>(columns.size()) - 1);
    const int excess = std::max(0, std::accumulate(widths.begin(), widths.end(), gaps) - look.width);
    for (size_t i = 0; i < columns.size(); ++i) {
        if (columns.begin()[i].form == Form::Name)
            widths[i] = std::min(widths[i], std::max(least, widths[i] - excess));
    }

    QString result;
    for (const Line& line : grid) {
        for (size_t i = 0; i < columns.size(); ++i) {
            const Form form = columns.begin()[i].form;
            const bool isRight = form == Form::Number || form == Form::Size;
            const Cell& cell = line[i];
            const QString text = cut(cell.text, widths[i], look);
            const QString fill(widths[i] - displayWidth(text), ' ');
            const QString shown = painted(text, cell.tone, look);
            result += (isRight ? fill + shown : shown + fill) + "  ";
        }
        while (result.endsWith(' '))
            result.chop(1);
        result += '\n';
    }
    return result;
}

QString lines(const Columns& columns, const QJsonObject& row)
{
    constexpr int labelWidth = 16;
    QString result;
    for (const Column& column : columns) {
        const QString text = textAt(row, column.path);
        if (!text.isEmpty())
            result += "  " + QString("%1:").arg(column.title).leftJustified(labelWidth) + text + '\n';
    }
    return result;
}

} // namespace Ctl
