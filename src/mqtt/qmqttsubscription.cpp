// SPDX-License-Identifier: MIT
#include "qmqttsubscription.h"

QMqttSubscription::QMqttSubscription(const QMqttTopicFilter& topic, QObject* client)
    : QObject(client)
    , filter(topic)
{
}

void QMqttSubscription::setState(SubscriptionState state)
{
    if (current == state)
        return;
    current = state;
    Q_EMIT stateChanged(state);
}
