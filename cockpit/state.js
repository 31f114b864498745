// SPDX-License-Identifier: MIT
// What is known about the gateway, and the only way to it: lanvoyctl, run as the user who is logged in.
/* global cockpit */

export const gateway = {
    status: {},
    devices: [], // state documents
    networks: new Map(), // by interface: the list of "wifi/networks"
    usage: {}, // "modem/stats"
    strengths: new Map(), // by interface: [{time, percent}], the oldest first
    log: [], // [{time, interface, text}], the oldest first
    problem: "", // why nothing is known now; empty when all is well
    findings: [], // failures that "lanvoyctl doctor" found
    loaded: false,
};

export const chartMs = 10 * 60 * 1000;
const topics = ["status", "ethernet/state", "wifi/state", "wifi/aps", "wifi/networks", "modem/state",
    "modem/signal", "modem/stats"];
const againMs = 2000;
const afterStartMs = 3000; // finds what changed before the stream was up
const heartbeatMs = 60000; // finds a service or a device that went away without a word
const answerSeconds = "5"; // most answers take milliseconds
const longestLog = 200;

const listeners = new Set();

/** Calls back after each change, until the returned function is called. */
export function onChange(listener) {
    listeners.add(listener);
    return () => listeners.delete(listener);
}

function changed() {
    listeners.forEach(listener => listener());
}

function spawn(args) {
    // As root where the session allows that: the service's configuration file says how to reach the broker.
    return cockpit.spawn(["lanvoyctl", "--json", ...args], {superuser: "try", err: "message"});
}

/**
 * Runs lanvoyctl to its end. Its exit status, JSON value (or null) and error text are the result.
 * The lines of input are for "@-" and "--key-file -".
 */
export function run(args, lines = []) {
    return new Promise(resolve => {
        const process = spawn(args);
        const end = (status, output, text) =>
            resolve({status, value: output ? JSON.parse(output) : null, text: text ?? ""});
        process.then(output => end(0, output), (problem, output) => end(problem.exit_status ?? -1, output,
            problem.problem === "not-found" ? "lanvoyctl is not installed." : problem.message));
        if (lines.length > 0)
            process.input(lines.join("\n") + "\n");
    });
}

export function kindOf(device) {
    return device.typeStr.toLowerCase();
}

export function deviceNamed(name) {
    return gateway.devices.find(device => device.interface === name);
}

/** Signal of a wifi device's access point or of a modem in percent, or null. */
export function strengthOf(device) {
    return device.ap?.signalStrength ?? device.signal ?? null;
}

export function note(name, text, time = new Date().toTimeString().slice(0, 8)) {
    gateway.log = [...gateway.log, {time, interface: name, text}].slice(-longestLog);
    changed();
}

function addStrength(name, percent) {
    const now = Date.now();
    const points = gateway.strengths.get(name) ?? [];
    if (points.length > 0 || percent !== null)
        gateway.strengths.set(name, [...points, {time: now, percent}]
            .filter((point, i, all) => i === all.length - 1 || all[i + 1].time > now - chartMs));
}

function takeDevice(device, time) {
    const before = deviceNamed(device.interface);
    gateway.devices = before ? gateway.devices.map(d => (d === before ? device : d)) : [...gateway.devices, device];
    if (before && before.stateStr !== device.stateStr)
        note(device.interface, `${before.stateStr} → ${device.stateStr}`, time);
    else if (before?.ipv4?.address && device.ipv4?.address && before.ipv4.address !== device.ipv4.address)
        note(device.interface, `${before.ipv4.address} → ${device.ipv4.address}`, time);
    if ("ap" in device || "signal" in device)
        addStrength(device.interface, strengthOf(device));
}

/** Leaves the given devices, in their order. */
function takeAway(left) {
    for (const {interface: name} of gateway.devices.filter(d => !left.some(other => other.interface === d.interface))) {
        gateway.strengths.delete(name);
        gateway.networks.delete(name);
        note(name, "removed");
    }
    gateway.devices = left;
}

const handlers = {
    "status": status => { gateway.status = status; },
    "ethernet/state": takeDevice,
    "wifi/state": takeDevice,
    "modem/state": takeDevice,
    "wifi/networks": found => gateway.networks.set(found.interface, found.networks),
    "modem/stats": usage => { gateway.usage = usage; },
    "wifi/aps": found => {
        const device = deviceNamed(found.interface);
        const used = found.aps.find(ap => ap.hardwareAddress === device?.ap?.hardwareAddress);
        if (used)
            takeDevice({...device, ap: used});
    },
    "modem/signal": ({interface: name, quality, accessTechnologies}) => {
        const device = deviceNamed(name);
        if (device)
            takeDevice({...device, signal: quality, accessTechnologies});
    },
};

async function loadMore() {
    const wifi = gateway.devices.filter(device => kindOf(device) === "wifi");
    const questions = wifi.map(device => ["get", "--", "wifi/networks", device.interface]);
    if (gateway.devices.some(device => kindOf(device) === "modem"))
        questions.push(["get", "modem/stats"]);
    await Promise.all(questions.map(async question => {
        const {value} = await run(question);
        if (value)
            handlers[value.networks ? "wifi/networks" : "modem/stats"](value);
    }));
    changed();
}

let asking = false;
let health = null; // exit status of the last question
let timer = 0;

/** Takes an answer, except where the stream has been faster: the answer may be older than that. */
function takeAnswer(answer, before) {
    const isNewer = document => document !== undefined && !before.includes(document);
    const devices = answer.devices.map(device => [deviceNamed(device.interface)].find(isNewer) ?? device);
    if (!isNewer(gateway.status))
        gateway.status = answer.status;
    devices.forEach(device => takeDevice(device));
    takeAway(devices);
    gateway.loaded = true;
}

async function ask() {
    if (asking)
        return;
    asking = true;
    clearTimeout(timer);
    let pauseMs = againMs;
    try {
        const before = [gateway.status, ...gateway.devices];
        const {status, value, text} = await run(["--timeout", answerSeconds, "status"]);
        const isNew = status !== health;
        if (status === 0)
            takeAnswer(value, before);
        if (isNew)
            gateway.findings = [];
        gateway.problem = status === 0 ? "" : text;
        health = status;
        changed();
        if (isNew && status === 0)
            await loadMore();
        if (isNew)
            await examine(status);
        if (status === 0)
            pauseMs = isNew ? afterStartMs : heartbeatMs;
    } finally {
        asking = false;
        timer = setTimeout(ask, pauseMs);
    }
}

async function examine(status) {
    const {value} = await run(["--timeout", answerSeconds, "doctor"]);
    if (status === health)
        gateway.findings = value?.checks.filter(check => check.result === "failure") ?? [];
    changed();
}

/** Follows the gateway, and begins again whenever the broker, the service or lanvoyctl was lost. */
export function follow() {
    let rest = "";
    const again = problem => {
        gateway.problem = problem.message ?? "lanvoyctl has ended.";
        health = null;
        changed();
        setTimeout(follow, againMs);
    };
    const stream = spawn(["watch", ...topics]);
    stream.stream(data => {
        const lines = (rest + data).split("\n");
        rest = lines.pop();
        for (const {time, topic, document} of lines.map(line => JSON.parse(line)))
            handlers[topic](document, time);
        changed();
    });
    stream.then(again, again);
    ask();
}
