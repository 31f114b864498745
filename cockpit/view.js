// SPDX-License-Identifier: MIT
// The page: what is known, drawn again whenever it changes.
import {bars, focusKept, h, signalChart, usageChart} from "./charts.js";
import {openAddress, openJoin, openModem} from "./dialogs.js";
import {follow, gateway, kindOf, onChange, strengthOf} from "./state.js";

const kinds = {ethernet: "Ethernet", wifi: "Wi-Fi", modem: "Mobile"};
const securities = {"none": "open", "wep": "WEP", "wpa1": "WPA", "wpa2": "WPA2", "wpa1-wpa2": "WPA, WPA2"};
const chartEveryMs = 5000; // the chart moves on by itself

function cidr(ipv4) {
    if (!ipv4?.address)
        return "";
    const ones = ipv4.netmask.split(".").map(part => Number(part).toString(2).replaceAll("0", "").length);
    return `${ipv4.address}/${ones.reduce((sum, n) => sum + n, 0)}`;
}

function serversOf(ipv4) {
    return Object.keys(ipv4 ?? {}).filter(name => name.startsWith("dns")).map(name => ipv4[name]).join(", ");
}

function spaced(word) {
    return word.replace(/([a-z])([A-Z])/g, "$1 $2").toLowerCase();
}

function reasonOf(device) {
    const word = device.reasonStr.replace(/Reason$/, "");
    return ["Unknown", "No", "unknown"].includes(word) || device.stateStr === "Connected" ? "" : spaced(word);
}

function stateBadge(word, reason = "") {
    const tone = word.startsWith("Connected") ? "good" : word.endsWith("ing") ? "busy" : "bad";
    return h("span", {class: `badge ${tone}`}, word, reason ? `: ${reason}` : "");
}

/** Replaces what a place shows if it differs, and leaves the keyboard where it was. */
function paint(id, ...nodes) {
    const place = document.getElementById(id);
    const fresh = place.cloneNode(false);
    fresh.append(...nodes.flat().filter(node => node !== null));
    if (fresh.isEqualNode(place))
        return;
    const kept = place.contains(document.activeElement) ? document.activeElement.dataset.keep : undefined;
    place.replaceChildren(...fresh.childNodes);
    if (kept !== undefined)
        focusKept(place, kept);
}

let isOpening = false; // a dialog first asks the gateway

function button(text, label, open) {
    const click = async () => {
        if (isOpening)
            return;
        isOpening = true;
        await open().finally(() => { isOpening = false; });
    };
    return h("button", {"type": "button", "data-keep": label, "aria-label": label, click}, text);
}

function lines(rows) {
    return h("dl", {}, rows.filter(([, value]) => value).map(([name, value]) =>
        [h("dt", {}, name), h("dd", {}, value)]));
}

function cardOf(device) {
    const kind = kindOf(device);
    const name = device.interface;
    const strength = strengthOf(device);
    return h("article", {"class": "card", "aria-label": name},
        h("h3", {}, name, h("span", {class: "faint"}, ` ${kinds[kind] ?? kind}`)),
        h("p", {}, stateBadge(device.stateStr, reasonOf(device))),
        lines([
            ["Network", device.ap?.ssid],
            ["Operator", device.gsm?.operatorName],
            ["Technology", device.accessTechnologies?.map(word => word.replace("_PLUS", "+")).join(", ")],
            ["Signal", strength === null ? null : bars(strength)],
            ["Address", cidr(device.ipv4)],
            ["Gateway", device.ipv4?.gateway],
            ["Name servers", serversOf(device.ipv4)],
            ["MAC address", device.mac],
            ["SIM", device.sim && (device.sim.id || "none")],
        ]),
        h("div", {class: "buttons"}, button("IPv4 …", `IPv4 of ${name}`, () => openAddress(name)),
            kind === "modem" ? button("Mobile access …", `Mobile access of ${name}`, () => openModem(name)) : null));
}

function networkRow(device, network) {
    const name = device.interface;
    const security = network.referenceAP?.security ?? "unknown";
    const isUsed = device.stateStr === "Connected" && device.ap?.ssid === network.ssid;
    return h("tr", {class: isUsed ? "used" : null},
        h("th", {scope: "row"}, network.ssid, isUsed ? h("span", {class: "badge good"}, "in use") : null),
        h("td", {}, bars(Math.max(0, network.signalStrength))),
        h("td", {}, securities[security] ?? security),
        h("td", {}, button("Join …", `Join ${network.ssid} with ${name}`, () => openJoin(name, network.ssid, security))));
}

function networkTable() {
    const rows = gateway.devices.filter(device => kindOf(device) === "wifi").flatMap(device =>
        (gateway.networks.get(device.interface) ?? []).map(network => ({device, network})));
    rows.sort((a, b) => b.network.signalStrength - a.network.signalStrength
        || a.network.ssid.localeCompare(b.network.ssid));
    if (rows.length === 0)
        return [h("p", {class: "faint"}, "None.")];
    return [h("table", {}, h("thead", {}, h("tr", {}, ["Network", "Signal", "Security"].map(name =>
        h("th", {scope: "col"}, name)), h("td", {}))),
    h("tbody", {}, rows.map(({device, network}) => networkRow(device, network))))];
}

function summary() {
    const {hostname, stateStr, connectivityStr, primaryConnection: primary} = gateway.status;
    if (!gateway.loaded || !stateStr)
        return [h("p", {}, gateway.problem ? "Nothing is known about the gateway." : "Asking the gateway …")];
    const place = primary && [primary.interface, cidr(primary.ipv4)].filter(Boolean).join(", ");
    return [h("p", {}, h("strong", {}, hostname), " ", stateBadge(stateStr),
        ` · connectivity ${spaced(connectivityStr.replace("Connectivity", ""))} · `,
        primary ? `primary connection ${primary.connectionName} (${place})` : "no primary connection")];
}

function banner() {
    const {problem, findings, loaded} = gateway;
    const advice = problem && findings.length === 0 ? [{text: problem.replace(/^lanvoyctl: /, "")}] : findings;
    if (advice.length === 0)
        return [];
    const effect = loaded ? "No news from the gateway; what is below may be out of date." : "The gateway does not answer.";
    return [h("div", {class: "banner"}, h("strong", {}, problem ? effect : "Something needs to be mended."),
        h("ul", {}, advice.map(({text, mend}) => h("li", {}, text, mend ? h("span", {}, ` ${mend}`) : null))))];
}

let lastLogged = null;

// Entries are added one by one: a screen reader reads what is new.
function drawLog() {
    const list = document.getElementById("log");
    for (const entry of gateway.log.slice(gateway.log.indexOf(lastLogged) + 1)) {
        list.prepend(h("li", {}, h("time", {}, entry.time), " ", h("strong", {}, entry.interface), ` ${entry.text}`));
        lastLogged = entry;
    }
}

function draw() {
    document.body.classList.toggle("stale", gateway.problem !== "");
    paint("banner", banner());
    paint("summary", summary());
    paint("devices", gateway.devices.map(cardOf));
    paint("networks", networkTable());
    paint("signal", signalChart());
    paint("usage", usageChart());
    drawLog();
}

onChange(draw);
setInterval(() => paint("signal", signalChart()), chartEveryMs);
draw();
follow();
