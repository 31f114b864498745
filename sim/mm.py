"""The ModemManager look-alike: one process, modems with SIM and bearers."""
from .bus import Bus, BusObject, DBusError, method, typed

NAME = "org.freedesktop.ModemManager1"
BASE = "/org/freedesktop/ModemManager1"
MODEM = NAME + ".Modem"
SIMPLE = MODEM + ".Simple"
MODEM_3GPP = MODEM + ".Modem3gpp"
USSD = MODEM_3GPP + ".Ussd"
CDMA = MODEM + ".ModemCdma"
SIM = NAME + ".Sim"
BEARER = NAME + ".Bearer"

STATE_LOCKED, STATE_REGISTERED, STATE_CONNECTED = 2, 8, 11
CAPABILITY_CDMA, CAPABILITY_GSM_UMTS, CAPABILITY_LTE = 1 << 1, 1 << 2, 1 << 3
METHOD_DHCP = 3  # MM_BEARER_IP_METHOD_DHCP
CORE_ERROR = NAME + ".Error.Core."

# bits of MMModemAccessTechnology
TECHNOLOGIES = {
    "unknown": 0, "pots": 1 << 0, "gsm": 1 << 1, "gsm-compact": 1 << 2, "gprs": 1 << 3, "edge": 1 << 4,
    "umts": 1 << 5, "hsdpa": 1 << 6, "hsupa": 1 << 7, "hspa": 1 << 8, "hspa-plus": 1 << 9, "1xrtt": 1 << 10,
    "evdo0": 1 << 11, "evdoa": 1 << 12, "evdob": 1 << 13, "lte": 1 << 14, "5gnr": 1 << 15, "any": 0xffffffff}


class Sim(BusObject):
    properties = {SIM: {"Active": "b", "SimIdentifier": "s", "Imsi": "s", "Eid": "s", "OperatorIdentifier": "s",
                        "OperatorName": "s", "EmergencyNumbers": "as", "PreferredNetworks": "a(su)", "Gid1": "ay",
                        "Gid2": "ay", "SimType": "u", "EsimStatus": "u", "Removability": "u"}}

    def __init__(self, path, modem):
        super().__init__(path)
        self.init(Active=True, SimIdentifier=modem.sim_identifier, Imsi=modem.imsi, Eid="",
                  OperatorIdentifier=modem.operator_code, OperatorName=modem.operator_name, EmergencyNumbers=[],
                  PreferredNetworks=[], Gid1=b"", Gid2=b"", SimType=1, EsimStatus=0, Removability=1)

    @method(SIM, "s")
    def SendPin(self, _pin):
        pass


class Bearer(BusObject):
    properties = {BEARER: {
        "Interface": "s", "Connected": "b", "ConnectionError": "(ss)", "Suspended": "b", "Multiplexed": "b",
        "Ip4Config": "a{sv}", "Ip6Config": "a{sv}", "Stats": "a{sv}", "ReloadStatsSupported": "b", "IpTimeout": "u",
        "BearerType": "u", "ProfileId": "i", "Properties": "a{sv}"}}

    def __init__(self, path, modem):
        super().__init__(path)
        self.modem = modem
        self.init(Interface="", Connected=False, ConnectionError=("", ""), Suspended=False, Multiplexed=False,
                  Ip4Config={}, Ip6Config={}, Stats={}, ReloadStatsSupported=False, IpTimeout=20, BearerType=1,
                  ProfileId=-1, Properties={"apn": typed("s", "internet")})
        self.init(Ip4Config=self.ip_config(0), Ip6Config=self.ip_config(0))

    @staticmethod
    def ip_config(ip_method):
        return {"method": typed("u", ip_method)}

    @method(BEARER)
    def Connect(self):
        self.modem.connect_data()

    @method(BEARER)
    def Disconnect(self):
        self.modem.disconnect_data()


class Modem(BusObject):
    """One modem. Which interfaces it has depends on its options, so the tables are trimmed per object."""

    properties = {
        MODEM: {
            "Sim": "o", "SimSlots": "ao", "PrimarySimSlot": "u", "Bearers": "ao", "SupportedCapabilities": "au",
            "CurrentCapabilities": "u", "MaxBearers": "u", "MaxActiveBearers": "u", "MaxActiveMultiplexedBearers": "u",
            "Manufacturer": "s", "Model": "s", "Revision": "s", "CarrierConfiguration": "s",
            "CarrierConfigurationRevision": "s", "HardwareRevision": "s", "DeviceIdentifier": "s", "Device": "s",
            "Drivers": "as", "Plugin": "s", "PrimaryPort": "s", "Ports": "a(su)", "EquipmentIdentifier": "s",
            "UnlockRequired": "u", "UnlockRetries": "a{uu}", "State": "i", "StateFailedReason": "u",
            "AccessTechnologies": "u", "SignalQuality": "(ub)", "OwnNumbers": "as", "PowerState": "u",
            "SupportedModes": "a(uu)", "CurrentModes": "(uu)", "SupportedBands": "au", "CurrentBands": "au",
            "SupportedIpFamilies": "u"},
        SIMPLE: {},
        MODEM_3GPP: {
            "Imei": "s", "RegistrationState": "u", "OperatorCode": "s", "OperatorName": "s",
            "EnabledFacilityLocks": "u", "SubscriptionState": "u", "EpsUeModeOperation": "u", "Pco": "a(ubay)",
            "InitialEpsBearer": "o", "InitialEpsBearerSettings": "a{sv}", "PacketServiceState": "u",
            "Nr5gRegistrationSettings": "a{sv}"},
        USSD: {"State": "u", "NetworkNotification": "s", "NetworkRequest": "s"},
        CDMA: {"ActivationState": "u", "Meid": "s", "Esn": "s", "Sid": "u", "Nid": "u",
               "Cdma1xRegistrationState": "u", "EvdoRegistrationState": "u"},
    }
    signals = {MODEM: {"StateChanged": "iiu"}}

    def __init__(self, service, gsm=True, ussd=True, cdma=False, sim=True, bearer=True, control_port="cdc-wdm0",
                 data_interface="wwan0", imei="352099001761481", meid="A10000009296F2", esn="80A1B2C3",
                 imsi="262990123456789", sim_identifier="8949990000000012345", operator_code="26299",
                 operator_name="Testnet", manufacturer="Simulated Radios", model="SR-4G", revision="1.2.3",
                 device_identifier="5e2c0a8d3f4b7c6a91e0d8b2f7a4c3e1d0b9a8f7", signal=72, technologies=("lte",),
                 known=True):
        """
        gsm, ussd, cdma, sim  which of these it has;  bearer  whether a connection has a bearer
        known                 False: NetworkManager has a device for it, but ModemManager does not show it
        signal                percent
        """
        self.properties = {i: names for i, names in type(self).properties.items()
                           if {MODEM_3GPP: gsm, USSD: gsm and ussd, CDMA: cdma}.get(i, True)}
        super().__init__(BASE + "/Modem/99")
        self.service = service
        self.known = known
        self.gsm, self.ussd, self.cdma, self.has_sim, self.has_bearer = gsm, ussd, cdma, sim, bearer
        self.control_port, self.data_interface = control_port, data_interface
        self.imei, self.meid, self.esn = imei, meid, esn
        self.imsi, self.sim_identifier = imsi, sim_identifier
        self.operator_code, self.operator_name = operator_code, operator_name
        self.manufacturer, self.model, self.revision = manufacturer, model, revision
        self.device_identifier = device_identifier
        self.signal = signal
        self.technologies = technology_bits(technologies)
        self.device = None  # NetworkManager's device for it
        self.sim = None
        self.bearer = None
        self.refuses = 0  # device state reason with which the next connections fail, 0 for none

    @property
    def capabilities(self):
        """MMModemCapability bits, which are NetworkManager's as well."""
        return (CAPABILITY_GSM_UMTS | CAPABILITY_LTE if self.gsm else 0) | (CAPABILITY_CDMA if self.cdma else 0)

    def appear(self):
        self.path = self.service.new_path("Modem")
        self.bearer = None
        self.sim = Sim(self.service.new_path("SIM"), self) if self.has_sim else None
        capabilities = self.capabilities
        self.init(
            MODEM, Sim=self.sim.path if self.sim else "/", SimSlots=[], PrimarySimSlot=0, Bearers=[],
            SupportedCapabilities=[capabilities], CurrentCapabilities=capabilities, MaxBearers=1, MaxActiveBearers=1,
            MaxActiveMultiplexedBearers=0, Manufacturer=self.manufacturer, Model=self.model, Revision=self.revision,
            CarrierConfiguration="", CarrierConfigurationRevision="", HardwareRevision="10",
            DeviceIdentifier=self.device_identifier, Device="/sys/devices/platform/sim/modem0",
            Drivers=["option1", "qmi_wwan"], Plugin="generic", PrimaryPort=self.control_port,
            Ports=[(self.control_port, 6), (self.data_interface, 2)], EquipmentIdentifier=self.imei,
            UnlockRequired=1, UnlockRetries={2: 3}, State=STATE_REGISTERED, StateFailedReason=0,
            AccessTechnologies=self.technologies, SignalQuality=(self.signal, True), OwnNumbers=[], PowerState=3,
            SupportedModes=[(14, 8)], CurrentModes=(14, 8), SupportedBands=[], CurrentBands=[], SupportedIpFamilies=7)
        if self.gsm:
            self.init(MODEM_3GPP, Imei=self.imei, RegistrationState=1, OperatorCode=self.operator_code,
                      OperatorName=self.operator_name, EnabledFacilityLocks=0, SubscriptionState=0,
                      EpsUeModeOperation=0, Pco=[], InitialEpsBearer="/", InitialEpsBearerSettings={},
                      PacketServiceState=2, Nr5gRegistrationSettings={})
            if self.ussd:
                self.init(USSD, State=1, NetworkNotification="", NetworkRequest="")
        if self.cdma:
            self.init(CDMA, ActivationState=4, Meid=self.meid, Esn=self.esn, Sid=1, Nid=1,
                      Cdma1xRegistrationState=2, EvdoRegistrationState=2)
        self.service.bus.export(*([self.sim] if self.sim else []), self)

    def disappear(self):
        for item in (self.bearer, self, self.sim):
            if item:
                self.service.bus.unexport(item)
        self.bearer = None

    def change_state(self, state):
        old = self.get("State", MODEM)
        if state != old:
            self.set(MODEM, State=state)
            self.emit(MODEM, "StateChanged", "iiu", old, state, 1)

    # radio

    def set_signal(self, percent, recent=True):
        self.signal = percent
        if self.bus:
            self.set(SignalQuality=(percent, recent))

    def set_technologies(self, words_or_bits):
        self.technologies = technology_bits(words_or_bits)
        if self.bus:
            self.set(AccessTechnologies=self.technologies)

    # data connection, also asked for by NetworkManager's modem device

    def connect_data(self):
        """Connects; returns 0 or the reason why not."""
        if self.refuses or not self.bus:
            return self.refuses
        if self.has_bearer:
            if not self.bearer:
                self.bearer = Bearer(self.service.new_path("Bearer"), self)
                self.service.bus.export(self.bearer)
                self.set(Bearers=[self.bearer.path])
            self.bearer.set(Interface=self.data_interface, Connected=True, Ip4Config=Bearer.ip_config(METHOD_DHCP))
        self.change_state(STATE_CONNECTED)
        return 0

    def disconnect_data(self):
        if self.bus:
            if self.bearer:
                self.bearer.set(Interface="", Connected=False, Ip4Config=Bearer.ip_config(0))
            self.change_state(STATE_REGISTERED)

    def set_data_interface(self, name):
        """Gives the bearer another interface name; the interface whose byte counters are read."""
        self.data_interface = name
        if self.bearer and self.bearer.get("Connected"):
            self.bearer.set(Interface=name)

    # D-Bus

    @method(MODEM, "b")
    def Enable(self, _enable):
        pass

    @method(MODEM, "", "ao")
    def ListBearers(self):
        return self.get("Bearers")

    @method(MODEM, "su", "s")
    def Command(self, _command, _timeout):
        raise DBusError(CORE_ERROR + "Unauthorized", "Operation only allowed in debug mode")

    @method(SIMPLE, "", "a{sv}")
    def GetStatus(self):
        return {"state": typed("u", self.get("State", MODEM)), "signal-quality": self.get("SignalQuality"),
                "access-technologies": self.get("AccessTechnologies")}

    @method(SIMPLE, "a{sv}", "o")
    def Connect(self, _properties):
        if self.connect_data():
            raise DBusError(CORE_ERROR + "Failed", "Could not connect")
        return self.bearer.path if self.bearer else "/"

    @method(SIMPLE, "o")
    def Disconnect(self, _bearer):
        self.disconnect_data()


def technology_bits(value):
    """Access technologies from words (a list) or a number."""
    if isinstance(value, int):
        return value & 0xffffffff
    bits = 0
    for word in value:
        bits |= TECHNOLOGIES[word.lower()]
    return bits


class Service(BusObject):
    properties = {NAME: {"Version": "s"}}

    def __init__(self):
        super().__init__(BASE)
        self.init(Version="1.20.4")

    @method(NAME)
    def ScanDevices(self):
        pass


class ModemManager:
    """All of the simulated ModemManager."""

    def __init__(self, world):
        self.world = world
        self.bus = None
        self.modems = []
        self._numbers = {}

    def new_path(self, kind):
        number = self._numbers.get(kind, 0)
        self._numbers[kind] = number + 1
        return f"{BASE}/{kind}/{number}"

    def start(self):
        if self.bus:
            return
        self.bus = Bus(self.world.address, NAME, BASE, self.world.calls)
        self._numbers = {}
        self.bus.export(Service())
        for modem in self.modems:
            if modem.known:
                modem.appear()
        self.bus.take_name()

    def stop(self):
        if self.bus:
            self.bus.close()
            self.bus = None
            for modem in self.modems:
                modem.bus = modem.bearer = None

    def add_modem(self, modem):
        self.modems.append(modem)
        if self.bus and modem.known:
            modem.appear()

    def remove_modem(self, modem):
        self.modems.remove(modem)
        if modem.bus:
            modem.disappear()
