#include "qmqtttopicname.h"

namespace
{
constexpr int longestTopic = 65535; // the protocol counts text lengths in 16 bits
} // namespace

QMqttTopicName::QMqttTopicName(const QString& name)
    : m_name(name)
{
}

QMqttTopicName::QMqttTopicName(const QLatin1String& name)
    : m_name(name)
{
}

QString QMqttTopicName::name() const
{
    return m_name;
}

void QMqttTopicName::setName(const QString& name)
{
    m_name = name;
}

bool QMqttTopicName::isValid() const
{
    return !m_name.isEmpty() && m_name.size() <= longestTopic && !m_name.contains(QLatin1Char('#'))
        && !m_name.contains(QLatin1Char('+')) && !m_name.contains(QChar(QChar::Null));
}
