// SPDX-License-Identifier: MIT
#pragma once

#include "log/log.h"

#include <NetworkManagerQt/Connection>
#include <NetworkManagerQt/Device>
#include <NetworkManagerQt/ModemDevice>
#include <NetworkManagerQt/WiredDevice>
#include <NetworkManagerQt/WirelessDevice>

#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <set>
#include <utility>

namespace Lanvoy
{

class IPC;

/**
 * Keeps the retained documents true between the moments at which the engine publishes them.
 *
 * An event that may have changed a document only marks it. A short time later each marked document is built
 * again, one per turn of the event loop, and published if it differs from the one published last. Documents
 * of devices that the engine has not loaded are left alone.
 *
 * A receiver object of its own, so that the engine's re-wiring and this one do not undo each other.
 */
class Follower : public QObject
{
    Q_OBJECT

public:
    /** Follows nothing yet. @p messaging must outlive the object. */
    explicit Follower(IPC& messaging);

    /** Follows what belongs to no device; later calls do nothing. The libraries must be in use. */
    void start();

    /** Follows a device from now on: the engine has just wired it and published its documents. */
    void deviceLoaded(const NetworkManager::Device::Ptr& device);

private:
    /** The documents that an event can change together, in the order in which they are checked. */
    enum Part { Status, State, Config, Scan };
    using Mark = std::pair<Part, QString>; // with the device's path; empty for Status

    void markStatus() { mark(Status, QString()); }
    void mark(Part part, const QString& uni);
    void markAll(Part part);
    void markModems();
    void forgetMarks();
    void beginRound();
    void checkNext();
    void check(const Mark& mark);
    void publish(Part part, const NetworkManager::Device::Ptr& device);

    void followWired(const NetworkManager::WiredDevice& device);
    void followWireless(const NetworkManager::WirelessDevice& device);
    void followProfiles(NetworkManager::Device& device);
    void onDeviceRemoved(const QString& uni);
    void onProfileUpdated();
    static void log(Log::Level level, const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);

    IPC& ipc;
    bool started = false;
    QMap<QString, NetworkManager::Device::Type> loaded; // the devices that are followed, by path
    QSet<QString> announced; // those of them whose new state the engine has not been told yet
    std::set<Mark> marks; // for the next round
    std::set<Mark> round; // what is left of the present one
    int checked = 0; // in the present round
    int published = 0; // likewise
    QTimer timer; // until the next round, or the next document of this one
    QTimer scanPause; // while it runs, the scan lists are not built again
};

} // namespace Lanvoy
