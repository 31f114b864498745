// What the library alone needs at the start: its list of all devices with all access points.

#include <NetworkManagerQt/Manager>
#include <NetworkManagerQt/WirelessDevice>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    const QCoreApplication app(argc, argv);
    int points = 0;
    const NetworkManager::Device::List devices = NetworkManager::networkInterfaces();
    for (const NetworkManager::Device::Ptr& device : devices) {
        const auto wireless = device.objectCast<NetworkManager::WirelessDevice>();
        const QStringList paths = wireless ? wireless->accessPoints() : QStringList();
        for (const QString& path : paths)
            points += wireless->findAccessPoint(path) ? 1 : 0;
    }
    std::printf("%d\n", points);
    return 0;
}
