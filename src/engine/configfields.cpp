// SPDX-License-Identifier: MIT
#include "configfields.h"

#include <initializer_list>

namespace Lanvoy
{

namespace
{

struct Field {
    const char* key;
    QString* target;
};

void assign(std::initializer_list<Field> fields, const QJsonObject& data)
{
    for (const Field& field : fields)
        *field.target = data.value(QLatin1String(field.key)).toString();
}

void assign(Config::Ipv4Config& ipv4, const QJsonObject& data)
{
    assign(
        {
            {"method", &ipv4.method},
            {"address", &ipv4.address},
            {"netmask", &ipv4.mask},
            {"gateway", &ipv4.gateway},
            {"dns0", &ipv4.dns0},
            {"dns1", &ipv4.dns1},
        },
        data);
}

} // namespace

void assignFields(Config::Ethernet& record, const QJsonObject& data)
{
    assign(record.ipv4, data);
}

void assignFields(Config::Wifi& record, const QJsonObject& data)
{
    assign(record.ipv4, data);
    assign({{"ssid", &record.ssid}, {"key", &record.key}}, data);
}

void assignFields(Config::Modem& record, const QJsonObject& data)
{
    assign(record.ipv4, data);
    assign(
        {
            {"apn", &record.apn},
            {"username", &record.username},
            {"password", &record.password},
            {"networkId", &record.network_id},
            {"pin", &record.pin},
        },
        data);
}

} // namespace Lanvoy
