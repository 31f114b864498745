// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <initializer_list>

namespace Ctl
{

/** How output is to look. */
struct Look {
    bool utf8 = true;
    bool color = false;
    int width = 80; // columns
};

enum class Tone { Plain, Bold, Dim, Good, Busy, Bad };

/** @return what the terminal that standard output is, if it is one, can show */
Look lookOf(bool noColor);

/** @return the text with a question mark for each character that is not to be shown: controls, escapes, marks
 * that change the direction of writing, line separators */
QString printable(const QString& text);

/** @return columns that a printable text takes; wide characters take two */
int displayWidth(const QString& text);

/** @return the text, cut to so many columns and then ending in an ellipsis */
QString cut(const QString& text, int columns, const Look& look);

QString painted(const QString& text, Tone tone, const Look& look);

/** @return an arrow between two blanks */
QString arrow(const Look& look);

/** @return the tone of a state such as "Connecting" */
Tone toneOf(const QString& stateWord);

/** @return four characters for 0 to 100 percent */
QString bars(int percent, const Look& look);

/** @return the value at a path such as "ipv4.address", undefined when there is none */
QJsonValue valueAt(const QJsonObject& document, const char* path);

/** @return the entries of a list; const, so that a loop over it yields values and not references into it */
const QJsonArray entriesOf(const QJsonValue& list);

/** @return the value as printable text, lists with commas; empty when there is none */
QString textOf(const QJsonValue& value);

/** @return textOf() the value at a path */
QString textAt(const QJsonObject& document, const char* path);

/** @return JSON text that keeps to ASCII where a character is not printable */
QByteArray jsonText(const QJsonObject& document, QJsonDocument::JsonFormat format = QJsonDocument::Indented);

/** How a column shows its member. */
enum class Form {
    Text,
    Number, // on the right
    Size, // a number with two decimals
    Name, // is cut when the table is wider than the terminal
    State, // coloured
    Mark, // asterisk for true
    Bars, // of a signal in percent
    Share, // bar for 0 to 1
};

/** One column of a table, or one labelled line. */
struct Column {
    const char* title;
    const char* path; // of the member, such as "ap.ssid"
    Form form = Form::Text;
};
using Columns = std::initializer_list<Column>;

/** @return the table with a line of titles; each line ends with a line feed */
QString table(const Columns& columns, const QJsonArray& rows, const Look& look);

/** @return a line with label and text for each column that has a text */
QString lines(const Columns& columns, const QJsonObject& row);

} // namespace Ctl
