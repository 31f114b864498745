// SPDX-License-Identifier: MIT
#pragma once

#include <ModemManagerQt/GenericTypes>
#include <NetworkManagerQt/ActiveConnection>
#include <NetworkManagerQt/Device>
#include <NetworkManagerQt/IpConfig>

#include <QDBusObjectPath>
#include <QFlags>
#include <QHash>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <optional>

class QDBusMessage;

namespace ModemManager
{
class Modem;
}

namespace Lanvoy
{

/**
 * What the client libraries leave out on the system bus: who NetworkManager is, the announcements that they
 * do not follow or miss, and the loss of the bus itself.
 */
class BusWatch : public QObject
{
    Q_OBJECT

public:
    using Technologies = QFlags<MMModemAccessTechnology>;

    /** Connects to the bus and begins to watch that connection; to be made before the event loop runs. */
    BusWatch();

    /** Starts watching, which must come before the first use of the libraries; later calls do nothing. */
    void start();

    /** Whether start() was called, and the libraries with it may be in use. */
    bool isStarted() const { return started; }

    /** Has modemChanged() report all of a modem's values, not only those of the watch's own signals. */
    void followModems();

    /** The unique bus name of NetworkManager as last announced; empty while it does not run. */
    QString networkManager() const { return owner; }

    /**
     * Notes that the library has read all that one instance of NetworkManager has.
     *
     * @param instance its unique bus name
     * @return false when that instance has ended since
     */
    bool libraryHasRead(const QString& instance);

    /**
     * Whether NetworkManager has restarted and the library still holds the old instance's objects, whose
     * D-Bus paths may now name others. Asks the bus; an answer that fails counts as "no".
     */
    bool libraryIsStale() const;

    /**
     * The IPv4 configuration of an active connection or a device as NetworkManager has it now.
     *
     * NetworkManager changes these objects in place, but the library reads each one only once. After such a
     * change, the first call asks NetworkManager and blocks; calls after it do not.
     */
    NetworkManager::IpConfig ipv4Of(const NetworkManager::ActiveConnection& connection);
    NetworkManager::IpConfig ipv4Of(const NetworkManager::Device& device);

    /**
     * A modem's signal quality (percent) and access technologies: what ModemManager announced last, or what
     * the library holds while nothing has been announced. The library subscribes to changes only after it has
     * read a modem, so it misses those in between.
     */
    uint signalQualityOf(const ModemManager::Modem& modem) const;
    Technologies accessTechnologiesOf(const ModemManager::Modem& modem) const;

Q_SIGNALS:
    /** ModemManager announced a new value for the modem at the D-Bus path @p modem. */
    void accessTechnologiesChanged(const QString& modem, QFlags<MMModemAccessTechnology> technologies);
    void signalQualityChanged(const QString& modem, uint quality);
    /** NetworkManager announced another IPv4 configuration of a device or connection, or a change inside one.
     */
    void ipv4ConfigChanged();
    /** ModemManager announced a change of some modem, its SIM or its network. */
    void modemChanged();
    /** The bus has closed the connection; QtDBus does not open another one. */
    void disconnected();

private Q_SLOTS:
    void onNetworkManagerChanged(const QString& interface, const QVariantMap& changed);
    void onModemChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated,
                        const QDBusMessage& message);
    void onModemInterfacesRemoved(const QDBusObjectPath& modem, const QStringList& interfaces);

private:
    struct ModemValues {
        std::optional<uint> signalQuality; // percent
        std::optional<Technologies> accessTechnologies;
    };

    void followOwners();
    void followProperties();

    QString owner;
    std::optional<QString> ownerRead; // the instance whose objects the library holds; none if unknown
    bool started = false;
    bool ipv4Changed = false; // since NetworkManager started or was first seen
    QHash<QString, NetworkManager::IpConfig> ipv4; // by path of the device or active connection
    QHash<QString, ModemValues> modems; // by path
};

} // namespace Lanvoy
