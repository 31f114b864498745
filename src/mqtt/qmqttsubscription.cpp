#include "qmqttsubscription.h"

QMqttSubscription::QMqttSubscription(const QMqttTopicFilter& topic, QObject* client)
    : QObject(client)
    , m_topic(topic)
{
}

void QMqttSubscription::setState(SubscriptionState state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}
