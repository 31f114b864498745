// SPDX-License-Identifier: MIT
#include "jsonwriter.h"

namespace Lanvoy
{

namespace
{

constexpr int indentWidth = 4;
constexpr char hexDigits[] = "0123456789abcdef";

void appendEscape(QByteArray& text, ushort unit)
{
    text += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4)
        text += hexDigits[(unit >> shift) & 0xf];
}

void appendAscii(QByteArray& text, ushort unit)
{
    switch (unit) {
    case '"':
        text += "\\\"";
        break;
    case '\\':
        text += "\\\\";
        break;
    case '\b':
        text += "\\b";
        break;
    case '\f':
        text += "\\f";
        break;
    case '\n':
        text += "\\n";
        break;
    case '\r':
        text += "\\r";
        break;
    case '\t':
        text += "\\t";
        break;
    default:
        if (unit < 0x20)
            appendEscape(text, unit);
        else
            text += static_cast<char>(unit);
    }
}

} // namespace

void JsonWriter::beginObject()
{
    separate();
    begin('{');
}

void JsonWriter::beginObject(const char* key)
{
    name(key);
    begin('{');
}

void JsonWriter::beginArray(const char* key)
{
    name(key);
    begin('[');
}

void JsonWriter::member(const char* key, const QString& value)
{
    name(key);
    string(value);
}

void JsonWriter::member(const char* key, qint64 value)
{
    name(key);
    text += QByteArray::number(value);
}

void JsonWriter::nullMember(const char* key)
{
    name(key);
    text += "null";
}

void JsonWriter::separate()
{
    if (!first)
        text += ',';
    if (depth > 0) {
        text += '\n';
        text.append(depth * indentWidth, ' ');
    }
    first = false;
}

void JsonWriter::name(const char* key)
{
    separate();
    text += '"';
    text += key;
    text += "\": ";
}

void JsonWriter::begin(char bracket)
{
    text += bracket;
    ++depth;
    first = true;
}

void JsonWriter::end(char bracket)
{
    --depth;
    text += '\n';
    text.append(depth * indentWidth, ' ');
    text += bracket;
    first = false;
}

void JsonWriter::string(const QString& value)
{
    text += '"';
    const int size = value.size();
    for (int i = 0; i < size; ++i) {
        const QChar unit = value.at(i);
        if (unit.unicode() < 0x80) {
            appendAscii(text, unit.unicode());
        } else if (unit.isHighSurrogate() && i + 1 < size && value.at(i + 1).isLowSurrogate()) {
            text += QString(value.constData() + i, 2).toUtf8();
            ++i;
        } else if (unit.isSurrogate()) {
            appendEscape(text, unit.unicode()); // half a pair has no UTF-8 form
        } else {
            text += QString(unit).toUtf8();
        }
    }
    text += '"';
}

} // namespace Lanvoy
