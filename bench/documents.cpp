// Prints what one access point costs in each of the two lists, in microseconds, for 10, 100 and 1000 of them.

#include "ipc/documents.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

using namespace Lanvoy;

namespace
{

template<typename Build> double microseconds(Build build)
{
    constexpr int runs = 200;
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        build();
        const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
        best = std::min(best, time.count());
    }
    return best;
}

QVector<AccessPointFacts> somePoints(int count)
{
    QVector<AccessPointFacts> points;
    for (int i = 0; i < count; ++i)
        points.append({QStringLiteral("Net-%1").arg(i / 4), 2412, QStringLiteral("02:00:00:00:00:%1").arg(i),
                       54000, i % 101, QStringLiteral("infra"), QStringLiteral("wpa2")});
    return points;
}

QVector<NetworkFacts> networksOfFour(const QVector<AccessPointFacts>& points)
{
    QVector<NetworkFacts> networks;
    for (int i = 0; i < points.size(); i += 4)
        networks.append(
            {points[i].ssid, points[i].signalStrength, QStringLiteral("wlan0"), points[i], points.mid(i, 4)});
    return networks;
}

} // namespace

int main()
{
    const QString device = QStringLiteral("wlan0");
    for (const int count : {10, 100, 1000}) {
        const QVector<AccessPointFacts> points = somePoints(count);
        const QVector<NetworkFacts> networks = networksOfFour(points);
        std::printf("%d %.3f %.3f\n", count,
                    microseconds([&] { accessPointsDocument(device, points); }) / count,
                    microseconds([&] { networksDocument(device, networks); }) / count);
    }
    return 0;
}
