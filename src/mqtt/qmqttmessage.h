// SPDX-License-Identifier: MIT
#pragma once

#include "qmqtttopicname.h"

#include <QByteArray>

/** A message as a subscription receives it. */
class QMqttMessage
{
public:
    QMqttMessage() = default;
    QMqttMessage(const QMqttTopicName& topic, const QByteArray& payload, bool retain)
        : name(topic)
        , data(payload)
        , fromStore(retain)
    {
    }

    QMqttTopicName topic() const { return name; }
    QByteArray payload() const { return data; }
    /** @return whether the broker had it in store when the subscription was made */
    bool retain() const { return fromStore; }

private:
    QMqttTopicName name;
    QByteArray data;
    bool fromStore = false;
};

Q_DECLARE_METATYPE(QMqttMessage)
