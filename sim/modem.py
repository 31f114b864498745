# SPDX-License-Identifier: MIT
"""ModemManager: modems with SIM and bearer, and NetworkManager's device for each."""
from . import device as dev
from .interfaces import BEARER, CDMA, IP4CONFIG, MM, MODEM, MODEM_3GPP, NM_MODEM, SIM, USSD
from .table import Item, typed, world

REGISTERED, CONNECTED = 8, 11  # MMModemState
NO_CARRIER = 25  # NMDeviceStateReason
NO_IP, DHCP = 0, 3  # MMBearerIpMethod
TECHNOLOGIES = ("pots gsm gsm-compact gprs edge umts hsdpa hsupa hspa hspa-plus 1xrtt evdo0 evdoa evdob lte "
                "5gnr").split()  # bits of MMModemAccessTechnology


def technology_bits(words):
    """Access technologies from words or a number."""
    return words & 0xffffffff if isinstance(words, int) else sum(1 << TECHNOLOGIES.index(word) for word in words)


def plug(control_port="cdc-wdm0", data_interface="wwan0", imei="352099001761481", address="10.64.64.2/30", gsm=True,
         ussd=True, cdma=False, sim=True, bearer=True, known=True):
    """Plugs a modem in, which has these; not `known`: NetworkManager has it, but ModemManager does not show it."""
    interfaces = [MODEM] + [MODEM_3GPP] * gsm + [USSD] * (gsm and ussd) + [CDMA] * cdma
    modem = Item(*interfaces, path=MM + "/Modem/99", data_interface=data_interface, has_bearer=bearer, bearer=None,
                 known=known, refusal=dev.NONE)  # the reason with which the next connections fail
    modem.sim = Item(SIM).begin(SimIdentifier="8949990000000012345", Imsi="262990123456789",
                                OperatorIdentifier="26299", OperatorName="Testnet") if sim else None
    modem.begin(
        Manufacturer="Simulated Radios", Model="SR-4G", Revision="1.2.3", EquipmentIdentifier=imei, Imei=imei,
        DeviceIdentifier="5e2c0a8d3f4b7c6a91e0d8b2f7a4c3e1d0b9a8f7", PrimaryPort=control_port, State=REGISTERED,
        AccessTechnologies=technology_bits(["lte"]), SignalQuality=(72, True), RegistrationState=1,
        OperatorCode="26299", OperatorName="Testnet", Meid="A10000009296F2", Esn="80A1B2C3")
    world.modems.append(modem)
    if world.mm.connection:
        appear(modem)
    modem.device = dev.plug("modem", control_port, address=address, modem=modem)
    return modem.device


def unplug(device):
    dev.unplug(device)
    world.modems.remove(device.modem)
    for item in (device.modem.bearer, device.modem, device.modem.sim):
        world.mm.hide(item)


def appear(modem):
    if not modem.known:
        return
    modem.bearer = None
    if modem.sim:
        world.mm.show(modem.sim, "SIM")
    modem.put(Sim=modem.sim.path if modem.sim else "/", Bearers=[], State=REGISTERED)
    world.mm.show(modem, "Modem")


def set_data(modem, connected):
    """The data connection comes up, or is lost."""
    if modem.bearer:
        modem.bearer.put(Interface=modem.data_interface if connected else "", Connected=connected,
                         Ip4Config={"method": typed("u", DHCP if connected else NO_IP)})
    old, new = modem["State"], CONNECTED if connected else REGISTERED
    if old != new:
        modem.put(State=new)
        modem.emit(MODEM, "StateChanged", "iiu", old, new, 1)


def _bring_up(device, _active):
    modem, step_ms = device.modem, world.options["step_ms"]
    yield step_ms
    if modem.refusal:
        return modem.refusal
    if modem.service:
        if modem.has_bearer and not modem.bearer:
            modem.bearer = world.mm.show(Item(BEARER).begin(IpTimeout=20), "Bearer")
            modem.put(Bearers=[modem.bearer.path])
        set_data(modem, True)
    dev.change_state(device, dev.CONFIG)
    yield step_ms
    # It belongs to the data interface, which exists while connected only.
    device.ip4 = world.nm.show(Item(IP4CONFIG), "IP4Config")
    device.put(Ip4Config=device.ip4.path)
    return dev.NONE


def _link_down(device):
    set_data(device.modem, False)
    if device.ip4:
        device.put(IpInterface="", Ip4Config="/")
        if device.active:
            device.active.put(Ip4Config="/")
        world.nm.hide(device.ip4)
        device.ip4 = None


dev.KINDS["modem"] = dev.Kind(
    8, NM_MODEM, "gsm", 700, bring_up=_bring_up, link_down=_link_down, removed_reason=dev.REMOVED,
    values=lambda device: {"Udi": device.modem.path, "HwAddress": "", "IpInterface": ""})
