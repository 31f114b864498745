// SPDX-License-Identifier: MIT
#include "config.h"

namespace Lanvoy
{

namespace
{

struct Line {
    const char* label;
    QString value;
};

QString word(bool flag)
{
    return flag ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

// Secrets are printed in clear; the guide shows how to protect the log.
void Config::printConfiguration()
{
    const auto& [mqtt, ethernet, wifi, modem] = records;
    const Line lines[] = {
        {"mqtt.url", mqtt.url},
        {"mqtt.port", QString::number(mqtt.port)},
        {"mqtt.user", mqtt.user},
        {"mqtt.pass", mqtt.pass},
        {"mqtt.base", mqtt.base},
        {"ethernet.id", ethernet.id},
        {"ethernet.autocon", word(ethernet.autocon)},
        {"ethernet.method", ethernet.ipv4.method},
        {"ethernet.address", ethernet.ipv4.address},
        {"ethernet.mask", ethernet.ipv4.mask},
        {"ethernet.gateway", ethernet.ipv4.gateway},
        {"ethernet.dns0", ethernet.ipv4.dns0},
        {"ethernet.dns1", ethernet.ipv4.dns1},
        {"wifi.id", wifi.id},
        {"wifi.autocon", word(wifi.autocon)},
        {"wifi.ssid", wifi.ssid},
        {"wifi.key", wifi.key},
        {"wifi.method", wifi.ipv4.method},
        {"wifi.address", wifi.ipv4.address},
        {"wifi.mask", wifi.ipv4.mask},
        {"wifi.gateway", wifi.ipv4.gateway},
        {"wifi.dns0", wifi.ipv4.dns0},
        {"wifi.dns1", wifi.ipv4.dns1},
        {"modem.id", modem.id},
        {"modem.autocon", QString::number(modem.autocon)}, // Compatibility: a number, not a word.
        {"modem.username", modem.username},
        {"modem.password", modem.password},
        {"modem.apn", modem.apn},
        {"modem.network_id", modem.network_id},
        {"modem.pin", modem.pin},
        {"modem.method", modem.ipv4.method},
        {"modem.address", modem.ipv4.address},
        {"modem.netmask", modem.ipv4.address}, // Compatibility: not the mask.
        {"modem.gateway", modem.ipv4.gateway},
        {"modem.dns0", modem.ipv4.dns0},
        {"modem.dns1", modem.ipv4.dns1},
        {"modem.usageSec", QString::number(static_cast<qint32>(modem.usageSec))}, // as a signed number
    };

    log(Log::Info, "Application Settings");
    log(Log::Info, "-----------------------------------------");
    for (const Line& line : lines)
        log(Log::Info, "%-17s: %s", line.label, qPrintable(line.value));
    log(Log::Info, "-----------------------------------------");
}

} // namespace Lanvoy
