// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

namespace Lanvoy
{

/** One outgoing document: where it goes under the base topic and how. */
struct Topic {
    const char* name;
    quint8 qos;
    bool retain;
};

/** Every topic that the service publishes on. */
namespace Topics
{
constexpr Topic info = {"info", 2, true};
constexpr Topic status = {"status", 2, true};
constexpr Topic ethernetState = {"ethernet/state", 2, true};
constexpr Topic wifiState = {"wifi/state", 2, true};
constexpr Topic modemState = {"modem/state", 2, true};
constexpr Topic ethernetConfig = {"ethernet/config", 2, true};
constexpr Topic wifiConfig = {"wifi/config", 2, true};
constexpr Topic modemConfig = {"modem/config", 2, true};
constexpr Topic wifiAccessPoints = {"wifi/aps", 2, true};
constexpr Topic wifiNetworks = {"wifi/networks", 2, true};
constexpr Topic modemSignal = {"modem/signal", 2, true};
// Compatibility: usage goes out at QoS 0 but retained, errors at QoS 0 and not retained.
constexpr Topic modemStats = {"modem/stats", 0, true};
constexpr Topic error = {"error", 0, false};
} // namespace Topics

} // namespace Lanvoy
