// SPDX-License-Identifier: MIT
// What the user changes: join a network, IPv4 of a device, access of a modem. Nothing entered outlives its dialog.
import {focusKept, h} from "./charts.js";
import {deviceNamed, gateway, kindOf, note, onChange, run} from "./state.js";

export function isAddress(text) {
    return /^(\d{1,3}\.){3}\d{1,3}$/.test(text) && text.split(".").every(part => Number(part) <= 255);
}

export function isNetmask(text) {
    return isAddress(text) && /^1+0*$/.test(text.split(".").map(p => Number(p).toString(2).padStart(8, "0")).join(""));
}

const methods = [["auto", "Automatic (DHCP)"], ["manual", "Static"], ["link-local", "Link-local only"]];
const address = {check: isAddress, hint: "four numbers from 0 to 255, such as 192.0.2.40", manual: true};
const ipv4Fields = [
    {name: "method", label: "Method", choices: methods},
    {...address, name: "address", label: "Address", needed: true},
    {...address, name: "netmask", label: "Netmask", needed: true, check: isNetmask, hint: "such as 255.255.255.0"},
    {...address, name: "gateway", label: "Gateway"},
    {...address, name: "dns0", label: "First name server"},
    {...address, name: "dns1", label: "Second name server"},
];
const modemFields = [
    {name: "apn", label: "Access point name (APN)"},
    {name: "username", label: "User name"},
    {name: "password", label: "Password", secret: true},
    {name: "networkId", label: "Only this network (number; empty for any)"},
    {name: "pin", label: "PIN of the SIM", secret: true},
];

/** Whether the browser reaches this page over the device: "yes", "perhaps" or "" for no. */
export function reachedOver(device, host, status) {
    if (device.ipv4?.address === host)
        return "yes";
    const isElsewhere = ["localhost", "127.0.0.1", "[::1]"].includes(host)
        || gateway.devices.some(other => other.ipv4?.address === host);
    return !isElsewhere && status.primaryConnection?.interface === device.interface ? "perhaps" : "";
}

function warningFor(device) {
    const over = reachedOver(device, window.location.hostname, gateway.status);
    const how = {yes: "You reach this page over ", perhaps: "You may reach this page over "}[over];
    return how ? h("p", {class: "warning", role: "note"}, how + device.interface
        + ". A wrong setting locks you out, and the gateway does not go back to the old one.") : null;
}

/** A row with a field. Its entry reads "value"; "initial" is what needs no change. */
function entryFor(field, config, device) {
    const initial = field.secret ? "" : config?.[field.name] ?? "";
    const id = `field-${field.name}`;
    const entry = {field, initial: initial === "0.0.0.0" ? "" : initial};
    const properties = {id, "name": field.name, "autocomplete": field.secret ? "new-password" : "off",
        "aria-describedby": `${id}-error`, "spellcheck": "false", "autocapitalize": "off"};
    entry.input = field.choices
        ? h("select", properties, field.choices.map(([value, text]) => h("option", {value}, text)))
        : h("input", {...properties, type: field.secret ? "password" : "text"});
    entry.input.value = field.choices && entry.initial !== "manual" && entry.initial !== "link-local" ? "auto"
        : entry.initial;
    const hasStored = field.secret && Boolean(config?.[field.name]);
    if (hasStored)
        entry.input.placeholder = "unchanged";
    const show = field.secret && h("button", {type: "button", class: "show", "aria-pressed": "false",
        "aria-label": `Show ${field.label}`, click: async () => {
            const isShown = entry.input.type === "text";
            if (!isShown && hasStored && entry.input.value === "") {
                const {value} = await run(["--secrets", "show", "--", device.interface]);
                entry.initial = entry.input.value = value?.devices[0]?.config?.[field.name] ?? "";
            }
            entry.input.type = isShown ? "password" : "text";
            show.textContent = isShown ? "Show" : "Hide";
            show.setAttribute("aria-pressed", String(!isShown));
        }}, "Show");
    entry.error = h("p", {id: `${id}-error`, class: "error"});
    entry.row = h("div", {class: "field"}, h("label", {for: id}, field.label),
        h("div", {class: "entry"}, entry.input, show || null), entry.error);
    return entry;
}

function problemOf({field, input}) {
    const value = input.value.trim();
    if (field.needed && value === "")
        return `${field.label} is needed.`;
    return value !== "" && field.check && !field.check(value) ? `This is no ${field.label.toLowerCase()}: ${field.hint}.`
        : "";
}

/**
 * Opens a dialog that runs lanvoyctl once with what is entered.
 *
 * @param command  gives arguments and lines of input for the changed entries, or null when there is nothing to do
 */
function openForm({title, device, entries, extra = [], action, command}) {
    const name = device.interface;
    const outcome = h("p", {class: "outcome", role: "status"});
    const submit = h("button", {type: "submit", class: "primary"}, action);
    const close = h("button", {type: "button", click: () => dialog.close()}, "Cancel");
    const body = h("fieldset", {}, entries.map(entry => entry.row), extra);
    const form = h("form", {novalidate: true}, h("h2", {id: "dialog-title"}, title), warningFor(device), body, outcome,
        h("div", {class: "buttons"}, close, submit));
    const dialog = h("dialog", {"aria-labelledby": "dialog-title"}, form);
    const tell = (text, result = "") => {
        outcome.textContent = text;
        outcome.dataset.result = result;
    };
    const isHidden = entry => entry.field.manual && form.elements.namedItem("method").value !== "manual";
    const arrange = () => entries.forEach(entry => { entry.row.hidden = isHidden(entry); });
    form.addEventListener("change", arrange);
    arrange();

    form.addEventListener("submit", async event => {
        event.preventDefault();
        const shown = entries.filter(entry => !isHidden(entry));
        for (const entry of shown) {
            entry.error.textContent = problemOf(entry);
            entry.input.setAttribute("aria-invalid", String(entry.error.textContent !== ""));
        }
        const wrong = shown.find(entry => entry.error.textContent !== "");
        if (wrong) {
            wrong.input.focus();
            return;
        }
        const order = command(shown);
        if (order === null) {
            tell("Nothing is changed.");
            return;
        }
        body.disabled = submit.disabled = true;
        close.textContent = "Close";
        tell("Sending …", "busy");
        const stop = onChange(() => tell(`${deviceNamed(name)?.stateStr ?? "Gone"} …`, "busy"));
        const {status, value, text} = await run(["-y", "-i", name, ...order.args], order.lines);
        stop();
        const words = value?.text ?? text;
        tell(words, status === 0 ? "good" : "bad");
        note(name, words);
        body.disabled = submit.disabled = false;
        submit.hidden = status === 0;
        (status === 0 ? close : entries[0]?.input ?? submit).focus();
    });
    const opener = document.activeElement?.dataset.keep;
    dialog.addEventListener("close", () => {
        dialog.remove();
        focusKept(document, opener);
    });
    document.body.append(dialog);
    dialog.showModal();
    (entries[0]?.input ?? submit).focus();
}

async function configOf(device) {
    const {value} = await run(["show", "--", device.interface]);
    return value?.devices[0]?.config ?? null;
}

/** Every value goes through standard input: none can be seen by others or be taken for something else. */
function setCommand(device, isKnown) {
    return shown => {
        // The gateway may keep an old address that it does not show while another method is in force.
        const isNewlyStatic = shown.some(({field, input, initial}) =>
            field.name === "method" && input.value === "manual" && initial !== "manual");
        const given = shown.filter(({input, initial}) => !isKnown || isNewlyStatic || input.value.trim() !== initial);
        const assign = ({field}) => `${field.name}=@-`;
        return given.length === 0 ? null : {args: ["--", "set", kindOf(device), ...given.map(assign)],
            lines: given.map(({field, input}) => (field.secret ? input.value : input.value.trim()))};
    };
}

async function openSettings(name, title, fields) {
    const device = deviceNamed(name);
    const config = await configOf(device);
    const isKnown = methods.some(([word]) => word === config?.method);
    const hasNoSecret = fields === modemFields && !config?.password && !config?.pin;
    const extra = [
        isKnown ? null : "The present settings are not known, so all of these fields are sent.",
        hasNoSecret ? "The gateway shows neither password nor PIN. If there is one, enter it too." : null,
    ].filter(text => text !== null).map(text => h("p", {class: "hint"}, text));
    openForm({title, device, extra, action: "Apply", entries: fields.map(field => entryFor(field, config, device)),
        command: setCommand(device, isKnown)});
}

export function openAddress(name) {
    return openSettings(name, `IPv4 of ${name}`, ipv4Fields);
}

export function openModem(name) {
    return openSettings(name, `Mobile access of ${name}`, modemFields);
}

export async function openJoin(name, ssid, security) {
    const device = deviceNamed(name);
    const config = await configOf(device);
    const isConfigured = config?.ssid === ssid;
    const field = {name: "key", label: "Key", secret: true, needed: true};
    const entries = security === "none" ? [] : [entryFor(field, isConfigured ? config : null, device)];
    entries.forEach(entry => { entry.input.placeholder = ""; });
    const automatic = h("input", {type: "checkbox", id: "automatic", checked: !isConfigured});
    openForm({
        title: `Join ${ssid}`, device, entries, action: "Connect",
        extra: [h("label", {class: "choice", for: "automatic"}, automatic, "Get the address automatically (DHCP)")],
        command: () => ({
            args: [...(automatic.checked ? ["--replace"] : []), "--key-file", "-", "--", "wifi", "connect", ssid],
            lines: entries.map(entry => entry.input.value),
        }),
    });
}
