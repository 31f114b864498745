// SPDX-License-Identifier: MIT
#include "qmqtttopicname.h"

namespace
{
constexpr int longestTopic = 65535; // the protocol counts text lengths in 16 bits
} // namespace

QMqttTopicName::QMqttTopicName(const QString& name)
    : text(name)
{
}

QMqttTopicName::QMqttTopicName(const QLatin1String& name)
    : text(name)
{
}

QString QMqttTopicName::name() const
{
    return text;
}

void QMqttTopicName::setName(const QString& name)
{
    text = name;
}

bool QMqttTopicName::isValid() const
{
    return !text.isEmpty() && text.size() <= longestTopic && !text.contains(QLatin1Char('#'))
        && !text.contains(QLatin1Char('+')) && !text.contains(QChar(QChar::Null));
}
