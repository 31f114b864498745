#pragma once

#include <QHash>
#include <QMetaType>
#include <QString>

/** Pattern of topics to subscribe to. */
class QMqttTopicFilter
{
public:
    QMqttTopicFilter(const QString& filter = QString());
    QMqttTopicFilter(const QLatin1String& filter);

    QString filter() const;
    void setFilter(const QString& filter);

    /** @return whether it has 1 to 65535 characters, no NUL, "+" alone in its level and "#" alone in the last
     * one */
    bool isValid() const;

    friend bool operator==(const QMqttTopicFilter& a, const QMqttTopicFilter& b)
    {
        return a.m_filter == b.m_filter;
    }
    friend bool operator!=(const QMqttTopicFilter& a, const QMqttTopicFilter& b)
    {
        return a.m_filter != b.m_filter;
    }
    friend bool operator<(const QMqttTopicFilter& a, const QMqttTopicFilter& b)
    {
        return a.m_filter < b.m_filter;
    }
    friend uint qHash(const QMqttTopicFilter& topic, uint seed = 0) { return ::qHash(topic.m_filter, seed); }

private:
    QString m_filter;
};

Q_DECLARE_METATYPE(QMqttTopicFilter)
