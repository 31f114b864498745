// SPDX-License-Identifier: MIT
#include "qmqtttopicfilter.h"

#include <QVector>

#include <mosquitto.h>

namespace
{
constexpr int longestTopic = 65535; // the protocol counts text lengths in 16 bits
} // namespace

QMqttTopicFilter::QMqttTopicFilter(const QString& filter)
    : text(filter)
{
}

QMqttTopicFilter::QMqttTopicFilter(const QLatin1String& filter)
    : text(filter)
{
}

QString QMqttTopicFilter::filter() const
{
    return text;
}

void QMqttTopicFilter::setFilter(const QString& filter)
{
    text = filter;
}

bool QMqttTopicFilter::isValid() const
{
    if (text.isEmpty() || text.size() > longestTopic || text.contains(QChar(QChar::Null)))
        return false;
    const QVector<QStringRef> levels = text.splitRef(QLatin1Char('/'));
    for (int i = 0; i < levels.size(); ++i) {
        const QStringRef& level = levels.at(i);
        if (level.contains(QLatin1Char('+')) && level.size() > 1)
            return false;
        if (level.contains(QLatin1Char('#')) && (level.size() > 1 || i + 1 < levels.size()))
            return false;
    }
    return true;
}

bool QMqttTopicFilter::match(const QMqttTopicName& topic) const
{
    bool matches = false;
    return mosquitto_topic_matches_sub(text.toUtf8().constData(), topic.name().toUtf8().constData(), &matches)
        == MOSQ_ERR_SUCCESS
        && matches;
}
