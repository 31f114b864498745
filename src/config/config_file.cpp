// SPDX-License-Identifier: MIT
#include "config.h"

#include "diskroom.h"

#include <QSettings>
#include <QVariant>

#include <variant>

namespace Lanvoy
{

/** One key of the file, the field that it fills and the value that stands for an absent key. */
struct Config::Key {
    const char* name;
    std::variant<QString*, bool*, quint16*, quint32*> field;
    QVariant fallback;
};

/** The keys in the order in which they are read and written; QSettings sorts them in the file. */
std::vector<Config::Key> Config::keysOf(Records& r)
{
    Ipv4Config& ethernet = r.ethernet.ipv4;
    Ipv4Config& wifi = r.wifi.ipv4;
    Ipv4Config& modem = r.modem.ipv4;
    return {
        {"Mqtt/url", &r.mqtt.url, "localhost"},
        {"Mqtt/port", &r.mqtt.port, 1883},
        {"Mqtt/user", &r.mqtt.user, ""},
        {"Mqtt/pass", &r.mqtt.pass, ""},
        {"Mqtt/base", &r.mqtt.base, "vexo/network"},
        {"Ethernet/id", &r.ethernet.id, "Ethernet"},
        {"Ethernet/autocon", &r.ethernet.autocon, true},
        {"Ethernet/method", &ethernet.method, "auto"},
        {"Ethernet/address", &ethernet.address, ""},
        {"Ethernet/mask", &ethernet.mask, ""},
        {"Ethernet/gateway", &ethernet.gateway, ""},
        {"Ethernet/dns0", &ethernet.dns0, ""},
        {"Ethernet/dns1", &ethernet.dns1, ""},
        {"Wifi/id", &r.wifi.id, "Wifi"},
        {"Wifi/autocon", &r.wifi.autocon, true},
        {"Wifi/method", &wifi.method, "auto"},
        {"Wifi/ssid", &r.wifi.ssid, ""},
        {"Wifi/key", &r.wifi.key, ""},
        {"Wifi/address", &wifi.address, ""},
        {"Wifi/mask", &wifi.mask, ""},
        {"Wifi/gateway", &wifi.gateway, ""},
        {"Wifi/dns0", &wifi.dns0, ""},
        {"Wifi/dns1", &wifi.dns1, ""},
        {"Modem/id", &r.modem.id, "Broadband"},
        {"Modem/autocon", &r.modem.autocon, true},
        {"Modem/username", &r.modem.username, ""},
        {"Modem/password", &r.modem.password, ""},
        {"Modem/apn", &r.modem.apn, "internet"},
        {"Modem/network_id", &r.modem.network_id, ""},
        {"Modem/pin", &r.modem.pin, ""},
        {"Modem/method", &modem.method, "auto"},
        {"Modem/dns0", &modem.dns0, ""},
        {"Modem/dns1", &modem.dns1, ""},
        {"Modem/address", &modem.address, ""},
        {"Modem/netmask", &modem.mask, ""}, // Compatibility: "mask" in the other two groups.
        {"Modem/gateway", &modem.gateway, ""},
        {"Modem/usageSec", &r.modem.usageSec, 120},
    };
}

namespace
{

void read(QString* field, const QVariant& value)
{
    *field = value.toString();
}

void read(bool* field, const QVariant& value)
{
    *field = value.toBool();
}

void read(quint16* field, const QVariant& value)
{
    *field = static_cast<quint16>(value.toUInt()); // only the low 16 bits are kept
}

void read(quint32* field, const QVariant& value)
{
    *field = static_cast<quint32>(value.toInt()); // read as signed
}

QVariant valueOf(const quint16* field)
{
    return static_cast<int>(*field);
}

template<typename T> QVariant valueOf(const T* field)
{
    return *field;
}

} // namespace

void Config::readConfiguration()
{
    for (const Key& key : keysOf(records)) {
        const QVariant value = settings->value(QLatin1String(key.name), key.fallback);
        std::visit([&value](auto* field) { read(field, value); }, key.field);
    }
}

void Config::writeDefaultConfiguration()
{
    if (!hasRoomToSave(settings->fileName()))
        return;
    for (const Key& key : keysOf(records)) {
        // Compatibility: a new file has "Modem/dns0" written twice and no "Modem/dns1"; the first save adds
        // it.
        const char* name = qstrcmp(key.name, "Modem/dns1") == 0 ? "Modem/dns0" : key.name;
        settings->setValue(QLatin1String(name), key.fallback);
    }
    settings->sync();
}

void Config::writeConfiguration()
{
    // Compatibility: not reported, like any file that cannot be written. The next save writes all of it.
    if (!hasRoomToSave(settings->fileName()))
        return;
    for (const Key& key : keysOf(records)) {
        const QVariant value = std::visit([](const auto* field) { return valueOf(field); }, key.field);
        settings->setValue(QLatin1String(key.name), value);
    }
    settings->sync();
}

} // namespace Lanvoy
