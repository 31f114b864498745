// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QMetaType>
#include <QString>

/** Topic a message is published on. */
class QMqttTopicName
{
public:
    QMqttTopicName(const QString& name = QString());
    QMqttTopicName(const QLatin1String& name);

    QString name() const;
    void setName(const QString& name);

    /** @return whether the name has 1 to 65535 characters and holds no wildcard and no NUL */
    bool isValid() const;

    friend bool operator==(const QMqttTopicName& a, const QMqttTopicName& b) { return a.text == b.text; }
    friend bool operator!=(const QMqttTopicName& a, const QMqttTopicName& b) { return a.text != b.text; }
    friend bool operator<(const QMqttTopicName& a, const QMqttTopicName& b) { return a.text < b.text; }
    friend uint qHash(const QMqttTopicName& topic, uint seed = 0) { return ::qHash(topic.text, seed); }

private:
    QString text;
};

Q_DECLARE_METATYPE(QMqttTopicName)
