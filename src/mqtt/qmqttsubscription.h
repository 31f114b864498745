// SPDX-License-Identifier: MIT
#pragma once

#include "qmqttmessage.h"
#include "qmqtttopicfilter.h"

#include <QObject>

/**
 * One subscription of a client. The client makes, owns and deletes it; it lives as long as the client and
 * serves the same filter again in a later session.
 */
class QMqttSubscription : public QObject
{
    Q_OBJECT
public:
    enum SubscriptionState {
        Unsubscribed = 0,
        SubscriptionPending, // SUBSCRIBE sent, no answer yet
        Subscribed,
        UnsubscriptionPending,
        Error // refused by the broker; the session goes on
    };
    Q_ENUM(SubscriptionState)

    SubscriptionState state() const { return current; }
    /** @return the requested quality of service, once subscribed the one that the broker granted */
    quint8 qos() const { return level; }
    QMqttTopicFilter topic() const { return filter; }

Q_SIGNALS:
    void stateChanged(SubscriptionState state);
    void messageReceived(QMqttMessage message);

private:
    friend class QMqttClient;
    QMqttSubscription(const QMqttTopicFilter& topic, QObject* client);
    void setState(SubscriptionState state);

    const QMqttTopicFilter filter;
    SubscriptionState current = Unsubscribed;
    quint8 level = 0;
    int packetId = -1; // of the request that is under way
};
