// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <vector>

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

/** @return four characters for 0 to 100 percent */
QString bars(int percent, const Look& look);

/** @return a bar of at most so many columns for a share of a whole */
QString bar(double share, int columns, const Look& look);

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

/** One field of a table. */
struct Cell {
    QString text;
    Tone tone = Tone::Plain;
};

/** One column of a table, or one labelled line. */
struct Column {
    const char* title;
    const char* path; // of the member, "ipv4.address" for one; empty for the whole object
    Cell (*cell)(const QJsonValue& value, const Look& look) = nullptr; // null: as text
    bool right = false;
    bool flexible = false; // is cut when the table is wider than the terminal
};
using Columns = std::vector<Column>;

/** @return the table with a line of titles; each line ends with a line feed */
QString table(const Columns& columns, const QVector<QJsonObject>& rows, const Look& look);

/** @return a line with label and text for each column that has a text */
QString lines(const Columns& columns, const QJsonObject& row, const Look& look);

} // namespace Ctl
