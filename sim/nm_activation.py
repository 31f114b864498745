"""How a device gets connected and disconnected: the walk through the states, with NetworkManager's signal order."""
import ipaddress
import time

from . import nm_states as dev
from .nm_active import (ACTIVATED, ACTIVATING, DEACTIVATED, DEACTIVATING, REASON_DEVICE_DISCONNECTED,
                        ActiveConnection, Dhcp4Config)
from .nm_settings import AUTOCONNECT_TRIES


LAYER2_READY, IP4_READY = 4, 8  # NMActivationStateFlags


def follow_device(active, device_state):
    """Gives an active connection the state that its device's state means."""
    if dev.PREPARE <= device_state < dev.ACTIVATED:
        active.change_state(ACTIVATING)
    elif device_state == dev.ACTIVATED:
        active.change_state(ACTIVATED)
    elif device_state == dev.DEACTIVATING:
        active.change_state(DEACTIVATING)
    else:
        active.change_state(DEACTIVATED, REASON_DEVICE_DISCONNECTED)


def activate(device, profile, specific_object):
    """Starts connecting; a device in use is disconnected first. Returns the new active connection."""
    daemon = device.daemon
    device.stop_script()
    end_waiting(device)
    in_use = device.active is not None
    if in_use and device.state != dev.DEACTIVATING:
        device.change_state(dev.DEACTIVATING, dev.NEW_ACTIVATION)
    active = ActiveConnection(profile, device, specific_object)
    daemon.bus.export(active)
    daemon.manager.add_active(active)
    device.run(_walk(device, active, in_use))
    return active


def deactivate(device, reason):
    """Starts disconnecting in the orderly way, over the deactivating state."""
    if device.state in (dev.UNMANAGED, dev.UNAVAILABLE, dev.DISCONNECTED):
        return
    device.stop_script()
    if device.state != dev.DEACTIVATING:
        device.change_state(dev.DEACTIVATING, reason)
    device.run(_leave(device, reason), device.daemon.options["step_ms"])


def _leave(device, reason):
    drop(device, dev.DISCONNECTED, reason)
    device.refresh_available()
    device.daemon.manager.consider_autoconnect()
    return
    yield


def drop(device, state, reason):
    """Takes the connection off the device at once and puts the device into `state`."""
    daemon = device.daemon
    active = device.active
    device.link_down()
    device.active = None
    if active:
        active.set(Default=False)
    device.set(ActiveConnection="/")
    if device.state != state:
        device.change_state(state, reason)
    if active:
        follow_device(active, state)
        daemon.manager.refresh_state()
        active.set(Devices=[])
    daemon.manager.refresh_primary()
    device.set(IpInterface="", Dhcp4Config="/")
    if device.ip4:
        device.ip4.clear()
    daemon.manager.refresh_connectivity()
    if active:
        daemon.bus.unexport(active)
        daemon.manager.remove_active(active)
    if state <= dev.UNAVAILABLE:
        end_waiting(device)
    if device.dhcp4:
        daemon.bus.unexport(device.dhcp4)
        device.dhcp4 = None


def end_waiting(device, profile=None):
    """Ends activations that still wait for the device to be free; of one profile or of any."""
    daemon = device.daemon
    for item in [a for a in daemon.manager.actives if a.device is device and a is not device.active]:
        if profile in (None, item.profile):
            item.change_state(DEACTIVATED, REASON_DEVICE_DISCONNECTED)
            daemon.bus.unexport(item)
            daemon.manager.remove_active(item)


def _walk(device, active, in_use):
    daemon = device.daemon
    step_ms = daemon.options["step_ms"]
    if in_use:
        yield step_ms
        drop(device, dev.DISCONNECTED, dev.NEW_ACTIVATION)
    if not active.bus:  # its profile was deleted meanwhile
        device.refresh_available()
        daemon.manager.consider_autoconnect()
        return
    device.active = active
    device.set(ActiveConnection=active.path, Autoconnect=True)
    device.change_state(dev.PREPARE)
    yield step_ms
    reason = yield from device.bring_up(active)
    if reason:
        yield from _fail(device, active, reason)
        return
    active.set(StateFlags=LAYER2_READY)
    device.change_state(dev.IP_CONFIG)
    yield daemon.options["dhcp_ms"] if _method(active) == "auto" else step_ms
    configure_ip(device, active)
    active.set(StateFlags=LAYER2_READY | IP4_READY)
    daemon.manager.refresh_primary()
    for state in (dev.IP_CHECK, dev.SECONDARIES, dev.ACTIVATED):
        device.change_state(state)
        if state != dev.ACTIVATED:
            yield step_ms
    active.profile.timestamp = int(time.time())
    active.profile.autoconnect_tries = AUTOCONNECT_TRIES
    # The daemon hands the IP configuration to the active connection only after it reported Activated.
    yield step_ms
    active.set(Ip4Config=device.ip4.path)
    if device.dhcp4:
        active.set(Dhcp4Config=device.dhcp4.path)
    device.set(Ip4Connectivity=4)
    daemon.manager.refresh_connectivity()


def _fail(device, active, reason):
    if active is None:
        pass
    elif reason == dev.NO_SECRETS:
        active.profile.autoconnect_tries = 0
    elif device.state < dev.ACTIVATED:
        active.profile.autoconnect_tries = max(0, active.profile.autoconnect_tries - 1)
    device.change_state(dev.FAILED, reason)
    yield device.daemon.options["step_ms"]
    drop(device, dev.DISCONNECTED, dev.NONE)
    device.refresh_available()
    device.daemon.manager.consider_autoconnect()


def fail(device, reason):
    """Lets the device fail, whatever it is doing; it is disconnected a moment later."""
    device.run(_fail(device, device.active, reason))


def _method(active):
    return str(active.profile.group("ipv4").get("method", "auto"))


def configure_ip(device, active):
    """Fills the device's IPv4 configuration: static settings of the profile, joined to the lease in method auto."""
    ipv4 = active.profile.group("ipv4")
    addresses = [(str(a["address"]), int(a["prefix"])) for a in ipv4.get("address-data", [])]
    gateway = str(ipv4.get("gateway", ""))
    servers = [str(n) for n in ipv4.get("dns-data", ())]
    method = _method(active)
    if method == "disabled":
        return
    if method == "link-local":
        addresses = [("169.254.7.%d" % (10 + device.type_number), 16)]
    if method == "auto" and device.lease:
        lease = ipaddress.IPv4Interface(device.lease)
        router = str(lease.network.network_address + 1)
        addresses.append((str(lease.ip), lease.network.prefixlen))
        gateway = gateway or router
        servers.append(router)
        device.dhcp4 = Dhcp4Config(device.daemon, {"address": str(lease.ip), "prefix": lease.network.prefixlen,
                                                   "gateway": router, "dns": [router]})
        device.daemon.bus.export(device.dhcp4)
        device.set(Dhcp4Config=device.dhcp4.path)
    device.set(IpInterface=device.ip_interface)
    device.ip4.fill(addresses, gateway, servers, device.metric)


def boot_time_ms():
    return int(time.clock_gettime(time.CLOCK_BOOTTIME) * 1000)
