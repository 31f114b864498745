# SPDX-License-Identifier: MIT
"""The page in Cockpit: Debian's web console and browser, in front of the service and the simulated gateway."""
import os
import pathlib
import shutil
import socket
import subprocess
import time
import urllib.request

import pytest
from conftest import ROOT, until

needed = [shutil.which(program) for program in ("chromium", "chromedriver", "cockpit-bridge")]
if not all(needed) or not os.path.exists("/usr/lib/cockpit/cockpit-ws"):
    pytest.skip("needs chromium, chromium-driver, cockpit-ws and cockpit-bridge", allow_module_level=True)
webdriver = pytest.importorskip("selenium.webdriver", reason="needs python3-selenium")
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.support.select import Select  # noqa: E402
from sim.stack import free_port  # noqa: E402

CTL = pathlib.Path(os.environ.get("LANVOYCTL_BINARY", ROOT / "build/debug/src/ctl/lanvoyctl")).resolve()
PICTURES = ROOT / "build/cockpit"
EVIL = "<img src=x onerror=alert(1)>"
SETTINGS = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse", "Modem/pin": "7391", "Modem/usageSec": 0}
# The page's clock can be put forward, so that a picture shows ten minutes.
CLOCK = "window.ahead = 0; const now = Date.now.bind(Date); Date.now = () => now() + window.ahead;"


@pytest.fixture(scope="module")
def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--lang=en"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    os.environ["no_proxy"] = "127.0.0.1,localhost"
    driver = webdriver.Chrome(options=options, service=webdriver.chrome.service.Service(shutil.which("chromedriver")))
    driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": CLOCK})
    yield driver
    driver.quit()


class Page:
    def __init__(self, browser, world, port):
        self.browser, self.world = browser, world
        self.address = f"http://127.0.0.1:{port}/cockpit/@localhost/lanvoy/index.html"
        self.size(1280, 900)
        browser.get(self.address)

    def size(self, width, height, **media):
        """Also how wide a telephone is, which no window of this browser can be."""
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})
        features = [{"name": "prefers-color-scheme", "value": media.get("scheme", "light")}]
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})

    def text(self, selector):
        return self.browser.execute_script("return document.querySelector(arguments[0])?.innerText ?? ''", selector)

    def wait(self, selector, *words):
        until(lambda: all(word in self.text(selector) for word in words),
              lambda: f"{words} in {selector}: {self.text(selector)!r}; {self.text('body')!r};"
              f" {(self.world.folder / 'cockpit.log').read_text()}")

    def press(self, label):
        """Presses a button by the name that a screen reader says."""
        def pressed():
            for button in self.browser.find_elements(By.CSS_SELECTOR, "dialog button" if self.dialog else "button"):
                if button.accessible_name == label:
                    button.click()
                    return True
        until(pressed, f"a button '{label}'")

    @property
    def dialog(self):
        return self.browser.find_elements(By.TAG_NAME, "dialog")

    def open(self, label):
        self.press(label)
        until(lambda: self.dialog, "a dialog")

    def field(self, name):
        return self.browser.find_element(By.CSS_SELECTOR, f"dialog [name={name}]")

    def enter(self, **values):
        for name, value in values.items():
            if self.field(name).tag_name == "select":
                Select(self.field(name)).select_by_value(value)
            else:
                self.field(name).clear()
                self.field(name).send_keys(value)

    def outcome(self, *words):
        self.wait("dialog .outcome", *words)
        until(lambda: self.text("dialog .outcome") and not self.text("dialog .outcome").endswith("…"), "an outcome")

    def close(self):
        self.press("Close")
        until(lambda: not self.dialog, "the dialog is gone")

    def picture(self, name, width, **media):
        self.size(width, 900, **media)
        height = self.browser.execute_script("return document.documentElement.scrollHeight")
        wide = self.browser.execute_script("return document.documentElement.scrollWidth")
        assert wide <= width, f"{name} is {wide} pixels wide"
        self.size(width, height, **media)
        PICTURES.mkdir(parents=True, exist_ok=True)
        self.browser.save_screenshot(str(PICTURES / f"{name}.png"))


@pytest.fixture
def page(world, browser):
    """The page in front of a gateway, whose wifi knows no network yet; nothing is in the browser's console."""
    world.environment["LANVOY_FOLLOW"] = "1"
    (world.folder / "stats").mkdir()
    months = [time.strftime("%Y-%m", time.localtime(time.time() - days * 86400)) for days in (0, 31, 62, 93)]
    (world.folder / "stats/modem.ini").write_text("".join(
        f"[{month}]\nrxbytes={270000000 + i * 411000000}\ntxbytes={32000000 + i * 9000000}\n"
        for i, month in enumerate(months)))
    world.sim.add_access_point(ssid=EVIL, security="wpa2", strength=44)
    world.run({**SETTINGS, "Wifi/ssid": "", "Wifi/key": ""})
    world.client.wait("modem/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"])
    world.client.wait("ethernet/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"])
    shutil.copytree(ROOT / "cockpit", world.folder / "share/cockpit/lanvoy")
    port = free_port()
    log = open(world.folder / "cockpit.log", "wb")
    world.spawn(["/usr/lib/cockpit/cockpit-ws", "--no-tls", "--address", "127.0.0.1", "--port", str(port),
                 "--local-session=/usr/bin/cockpit-bridge"], stdout=log, stderr=log, stdin=subprocess.DEVNULL, env={
                     "PATH": f"{CTL.parent}:{os.environ['PATH']}", "HOME": str(world.folder), "LC_ALL": "C.UTF-8",
                     "XDG_DATA_DIRS": f"{world.folder}/share:/usr/share", "XDG_RUNTIME_DIR": str(world.folder),
                     "LANVOYCTL_HOST": "127.0.0.1", "LANVOYCTL_PORT": str(world.port)})
    until(lambda: not socket.socket().connect_ex(("127.0.0.1", port)), "Cockpit listens")
    page = Page(browser, world, port)
    page.wait("#devices", "eth0", "wlan0", "cdc-wdm0")
    yield page
    messages = browser.get_log("browser")
    assert [m for m in messages if m["level"] != "DEBUG"] == []  # advice on forms, for developers only
    browser.get("about:blank")


def test_first_paint(page):
    """What the gateway is shows at once; what a network calls itself is text; all that can be pressed has a name."""
    page.wait("#summary", "gateway", "Connected", "primary connection Ethernet (eth0, 192.0.2.17/24)")
    page.wait("#devices", "192.0.2.17/24", "192.0.2.1", "02:00:00:00:00:02", "Testnet", "LTE", "72 %",
              "8949990000000012345")
    page.wait("#networks", "Gateway-Home", "82 %", "WPA, WPA2", EVIL)
    page.wait("#usage", time.strftime("%Y-%m"), "270 MB", "32.0 MB", "1.50 GB")
    assert not page.browser.find_elements(By.CSS_SELECTOR, "#networks img")
    assert page.text("#banner") == ""
    names = [e.accessible_name for e in page.browser.find_elements(By.CSS_SELECTOR, "button")]
    assert all(names) and f"Join {EVIL} with wlan0" in names
    with urllib.request.urlopen(page.address) as answer:
        policy = answer.headers["Content-Security-Policy"]
    assert "default-src 'self'" in policy and "unsafe" not in policy


def test_changes_without_reload(page):
    page.world.sim.set_carrier("eth0", False)
    page.wait("#devices", "Disconnected: carrier")
    page.wait("#log", "eth0 Connected → Disconnected")
    page.world.sim.set_signal(13)
    page.wait("#devices", "13 %")
    page.wait("#signal", "cdc-wdm0 13 %")
    page.wait("#summary", "primary connection Broadband")
    page.world.sim.add_device("wired", interface="eth1")
    page.wait("#devices", "eth1")
    page.world.sim.remove_access_point("Hotspot")
    until(lambda: "Hotspot" not in page.text("#networks"), "the network is gone")


def test_join(page):
    page.open("Join Gateway-Home with wlan0")
    page.press("Connect")
    page.wait("dialog", "Key is needed.")
    page.enter(key="wrong horse")
    assert page.field("key").get_attribute("type") == "password"
    page.press("Show Key")
    assert page.field("key").get_attribute("type") == "text"
    page.press("Connect")
    page.outcome("Failed: the key or password is wrong")
    page.enter(key="correct horse")
    page.press("Connect")
    page.outcome("Connected, 198.51.100.23")
    page.close()
    page.wait("#devices", "198.51.100.23/24", "Gateway-Home")
    page.wait("#networks tr.used", "Gateway-Home", "in use")
    page.wait("#log", "Connecting → Connected")
    assert "horse" not in page.browser.page_source
    assert page.world.sim.profile("Gateway-Home")["802-11-wireless-security"]["psk"] == "correct horse"

    page.open(f"Join {EVIL} with wlan0")
    assert f"Join {EVIL}" in page.text("dialog h2")
    page.press("Cancel")


def test_static_address(page):
    page.open("IPv4 of eth0")
    page.press("Apply")
    page.outcome("Nothing is changed.")
    assert not page.field("address").is_displayed()
    page.enter(method="manual", address="192.0.2.400", netmask="255.0.255.0", gateway="192.0.2.1")
    page.press("Apply")
    page.wait("dialog", "This is no address", "This is no netmask")
    assert page.browser.switch_to.active_element == page.field("address")
    assert not page.world.client.on("ethernet/config/set")
    page.enter(address="192.0.2.40", netmask="255.255.255.0")
    page.press("Apply")
    page.outcome("Connected, 192.0.2.40")
    page.close()
    page.wait("#devices", "192.0.2.40/24")
    page.open("IPv4 of eth0")
    page.enter(dns1="9.9.9.9")
    page.press("Apply")
    page.outcome("Connected, 192.0.2.40")
    sent = page.world.client.on("ethernet/config/set")
    assert len(sent) == 2 and sent[1].document["gateway"] == "192.0.2.1" and sent[1].document["dns1"] == "9.9.9.9"


def test_modem_access_and_its_secrets(page):
    page.open("Mobile access of cdc-wdm0")
    assert page.field("pin").get_attribute("value") == "" and "7391" not in page.browser.page_source
    page.press("Show PIN of the SIM")
    until(lambda: page.field("pin").get_attribute("value") == "7391", "the PIN is fetched")
    page.enter(apn="@iot.example", password="päss word")
    page.press("Apply")
    page.outcome("Connected")
    sent = page.world.client.on("modem/config/set")[-1].document
    assert (sent["apn"], sent["password"], sent["pin"]) == ("@iot.example", "päss word", "7391")
    page.close()
    assert not page.browser.execute_script("return [...document.querySelectorAll('input')].map(i => i.value)")


def test_warns_of_the_own_connection(page):
    """The browser of this test reaches the page over loopback, so the rule is asked itself."""
    over = page.browser.execute_async_script("""
        const [path, done] = arguments;
        const device = {interface: "eth0", ipv4: {address: "192.0.2.17"}};
        import(path).then(({reachedOver}) => done(["192.0.2.17", "gateway.example", "127.0.0.1", "10.64.64.2"].map(host =>
            reachedOver(device, host, {primaryConnection: device}))));""", page.address.replace("index.html", "dialogs.js"))
    assert over == ["yes", "perhaps", "", ""]


def test_broker_away_and_back(page):
    world = page.world
    world.broker.kill()
    world.broker.wait()
    page.wait("#banner", "broker", "-H, -p, -u say where and who")
    world.client.close()
    world.begin()
    until(lambda: page.text("#banner") == "", lambda: f"no banner: {page.text('#banner')}")
    world.sim.set_carrier("eth0", False)
    page.wait("#devices", "Disconnected: carrier")
    world.end_service()
    page.browser.refresh()
    page.wait("#banner", "Start lanvoy")
    world.run(None)
    page.wait("#devices", "eth0")
    until(lambda: page.text("#banner") == "", lambda: f"no banner: {page.text('#banner')}")


def test_pictures(page):
    """Written to build/cockpit, to be looked at; nothing sticks out at any width."""
    sim = page.world.sim
    page.open("Join Gateway-Home with wlan0")
    page.enter(key="correct horse")
    page.press("Connect")
    page.outcome("Connected")
    page.picture("dialog", 360)
    page.close()
    for minute, strength in enumerate((68, 63, 66, 51, 39, 24, 33, 47, 58, 61), 1):
        page.browser.execute_script("window.ahead = arguments[0] * 57000", minute)
        sim.set_signal(strength)
        page.wait("#signal", f"cdc-wdm0 {strength} %")
    sim.set_carrier("eth0", False)
    page.wait("#log", "eth0 Connected → Disconnected")
    sim.set_carrier("eth0", True)
    page.wait("#log li", "eth0", "→ Connected")
    page.picture("wide", 1920)
    sim.remove_access_point(EVIL)
    until(lambda: EVIL not in page.text("#networks"), "it is gone")
    page.picture("middle", 1180)  # that of the README
    page.picture("dark", 1280, scheme="dark")
    page.picture("narrow", 360)
    page.open("IPv4 of eth0")
    page.enter(method="manual", address="nonsense")
    page.press("Apply")
    page.picture("dialog-dark", 1280, scheme="dark")
    page.press("Cancel")
    page.world.broker.kill()
    page.wait("#banner", "-H, -p, -u say")
    page.picture("banner", 1180)
