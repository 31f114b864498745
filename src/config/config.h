// SPDX-License-Identifier: MIT
#pragma once

#include "log/log.h"

#include <QObject>
#include <QString>

#include <vector>

class QSettings;

namespace Lanvoy
{

/**
 * The wanted settings of the service: broker access and one NetworkManager connection per device kind.
 *
 * Read once from an INI file at construction; every change through a setter is saved at once.
 */
class Config : public QObject
{
    Q_OBJECT

public:
    /** Text as in the file; nothing is parsed or validated here. */
    struct Ipv4Config {
        QString method; // "auto", "manual"; anything else means link-local
        QString address;
        QString mask;
        QString gateway;
        QString dns0;
        QString dns1;
    };

    struct Mqtt {
        QString url; // host name or address of the broker
        quint16 port = 0;
        QString user; // empty for none
        QString pass; // empty for none
        QString base; // topic under which every topic of the service lies
    };

    struct Ethernet {
        QString id; // name of the NetworkManager connection
        bool autocon = false;
        Ipv4Config ipv4;
    };

    struct Wifi {
        QString id;
        bool autocon = false;
        QString ssid;
        QString key; // pre-shared key
        Ipv4Config ipv4;
    };

    struct Modem {
        QString id;
        bool autocon = false;
        QString username;
        QString password;
        QString apn;
        QString network_id; // operator code
        QString pin;
        Ipv4Config ipv4;
        quint32 usageSec = 0; // period of the data-usage sampling in seconds, 0 for none
    };

    /**
     * Opens @p fileName, creates it with defaults when it is missing, reads it and prints it to the log.
     *
     * An empty @p fileName stands for "config.ini" beside the executable. Never fails: a setting that cannot
     * be read has its default, and one that cannot be written is kept in memory only.
     */
    Config(const QString& fileName, QObject* parent);

    /** The records; the references stay valid as long as the object and show later changes. */
    const Mqtt& mqtt() const { return records.mqtt; }
    const Ethernet& ethernet() const { return records.ethernet; }
    const Wifi& wifi() const { return records.wifi; }
    const Modem& modem() const { return records.modem; }

    /** Replace a record and save the whole file before returning; a file that cannot be written is no error.
     */
    void setEthernet(const Ethernet& ethernet);
    void setWifi(const Wifi& wifi);
    void setModem(const Modem& modem);

    /** True when @p path is an existing regular file. */
    static bool fileExists(const QString& path);

private:
    struct Records {
        Mqtt mqtt;
        Ethernet ethernet;
        Wifi wifi;
        Modem modem;
    };
    struct Key;

    static std::vector<Key> keysOf(Records& records);
    void readConfiguration();
    void writeDefaultConfiguration();
    void writeConfiguration();
    void printConfiguration();
    void log(Log::Level level, const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(3, 4);

    QSettings* settings = nullptr; // a child of this object
    Records records;
};

} // namespace Lanvoy
