// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

#include <QMqttClient>

#include <QJsonObject>
#include <QObject>
#include <QVector>

#include <functional>

namespace Ctl
{

/** One message below the base topic. */
struct Message {
    QString topic; // without the base topic
    QJsonObject document; // empty when the payload is none
    bool retained = false; // in the broker's store: may be older than what it describes
};

/** One question to the service: the document's topic, and the device; empty for the first of its kind. */
struct Query {
    QString topic;
    QString interface = {};
};

struct Answer {
    bool came = false;
    QJsonObject document;
    QString error; // of the error document that came in its place
};

/** @return whether an error document may be about a device: one for a device that is missing names it */
bool mayConcern(const QJsonObject& error, const QString& interface);

/**
 * The session with the broker, and what has been received in it. Each wait runs the event loop until its
 * condition holds; none of them may be called from a slot.
 */
class Session : public QObject
{
    Q_OBJECT
public:
    explicit Session(const Options& options, QObject* parent = nullptr);

    /** @return the problem, empty when there is a session */
    QString open();
    bool isOpen() const;

    /** Subscribes to topics or filters below the base topic and waits for the broker's answers. */
    void subscribe(const QStringList& topics);
    void send(const QString& topic, const QJsonObject& payload = {});

    /** Waits until the condition holds, the time is over or the session is lost. @return whether it holds */
    bool wait(int ms, const std::function<bool()>& condition);

    /**
     * Asks and waits for the answers: for as long as the options say, or until the service has answered a
     * last question that was sent behind them and shortly after still not these.
     */
    QVector<Answer> ask(const QVector<Query>& queries);

    /** @return documents of this topic that the broker had in store, or those that came after */
    QVector<QJsonObject> documents(const QString& topic, bool retained) const;
    const QVector<Message>& messages() const { return received; }

Q_SIGNALS:
    void arrived(const Message& message);

private:
    Answer find(const Query& query, int from) const;
    QString explain() const;

    const Options& options;
    QMqttClient client;
    QVector<Message> received;
};

} // namespace Ctl
