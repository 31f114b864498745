// SPDX-License-Identifier: MIT
#pragma once

#include "qmqtttopicname.h"

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
    /** @return whether messages of this topic come to a subscription with the filter */
    bool match(const QMqttTopicName& topic) const;

    friend bool operator==(const QMqttTopicFilter& a, const QMqttTopicFilter& b) { return a.text == b.text; }
    friend bool operator!=(const QMqttTopicFilter& a, const QMqttTopicFilter& b) { return a.text != b.text; }
    friend bool operator<(const QMqttTopicFilter& a, const QMqttTopicFilter& b) { return a.text < b.text; }
    friend uint qHash(const QMqttTopicFilter& topic, uint seed = 0) { return ::qHash(topic.text, seed); }

private:
    QString text;
};

Q_DECLARE_METATYPE(QMqttTopicFilter)
