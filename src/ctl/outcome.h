// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QVector>

namespace Ctl
{

/** What a "set" command is to lead to. */
struct Wanted {
    QString kind;
    QString interface;
    QMap<QString, QString> record;
    bool changes = false; // anything; without a change the device may stay as it is
};

/** What is known since the command was sent. */
struct Story {
    QVector<QJsonObject> states; // of the device, published by themselves or asked for, in order
    QString refusal; // text of an error document
    bool carriedOut = false; // a question that was sent behind the command is answered
    bool settled = false; // nothing has moved for long, and the last state was asked for after that
};

enum class Verdict { Waiting, Connected, Unchanged, Refused, Failed };

struct Judgement {
    Verdict verdict = Verdict::Waiting;
    QString text; // for people
};

/** Adds a message that came since the command was sent. @return whether the device has moved by it */
bool hear(const Wanted& wanted, const QString& topic, const QJsonObject& document, Story& story);

/** Decides from the documents what has become of a command. */
Judgement judge(const Wanted& wanted, const Story& story);

} // namespace Ctl
