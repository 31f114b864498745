// The configuration file, whatever it holds.

#include "fuzz.h"

#include "config/config.h"

#include <QFile>

#include <unistd.h>

#include <tuple>

using namespace Lanvoy;

namespace
{

auto tie(const Config::Ipv4Config& r)
{
    return std::tie(r.method, r.address, r.mask, r.gateway, r.dns0, r.dns1);
}

bool same(const Config& a, const Config& b)
{
    const auto all = [](const Config& c) {
        const Config::Mqtt& q = c.mqtt();
        const Config::Ethernet& e = c.ethernet();
        const Config::Wifi& w = c.wifi();
        const Config::Modem& m = c.modem();
        return std::tuple_cat(
            std::tie(q.url, q.port, q.user, q.pass, q.base), std::tie(e.id, e.autocon), tie(e.ipv4),
            std::tie(w.id, w.autocon, w.ssid, w.key), tie(w.ipv4),
            std::tie(m.id, m.autocon, m.username, m.password, m.apn, m.network_id, m.pin, m.usageSec),
            tie(m.ipv4));
    };
    return all(a) == all(b);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A new name each time: Qt remembers files by name.
    static int run = 0;
    const QString path = QStringLiteral("/dev/shm/lanvoy-fuzz-%1-%2.conf").arg(getpid()).arg(++run);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return -1;
    file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    file.close();

    Config config(path, nullptr);
    config.setModem(config.modem());
    // Read by another name, so that Qt looks at the file and not at what it remembers.
    const QString copy = path + QLatin1String(".copy");
    QFile::rename(path, copy);
    const Config saved(copy, nullptr);
    QFile::remove(copy);
    require(same(config, saved), "what is saved is what is read");
    return 0;
}
