// SPDX-License-Identifier: MIT
// What is drawn: signal bars, the signal of the last minutes, data usage. Nodes only, no text is ever markup.
import {chartMs, gateway} from "./state.js";

const svgNames = "http://www.w3.org/2000/svg";

function setAll(node, properties) {
    for (const [name, value] of Object.entries(properties)) {
        if (typeof value === "function")
            node.addEventListener(name, value);
        else if (typeof value === "boolean")
            node.toggleAttribute(name, value);
        else if (value !== null && value !== undefined)
            node.setAttribute(name, value);
    }
    return node;
}

/** An element; children are nodes or texts, null ones are left out. A property that is a function listens. */
export function h(tag, properties = {}, ...children) {
    const node = setAll(document.createElement(tag), properties);
    node.append(...children.flat(Infinity).filter(child => child !== null));
    return node;
}

/** Gives the keyboard back to a button that was drawn again. */
export function focusKept(place, name) {
    [...place.querySelectorAll("[data-keep]")].find(node => node.dataset.keep === name)?.focus();
}

function svg(tag, properties, ...children) {
    const node = setAll(document.createElementNS(svgNames, tag), properties);
    node.append(...children);
    return node;
}

/** Four bars and the number beside them. */
export function bars(percent) {
    const lit = [5, 30, 55, 80].filter(limit => percent > limit).length;
    return h("span", {class: "signal"},
        svg("svg", {"viewBox": "0 0 19 14", "class": `bars lit${lit}`, "aria-hidden": "true"},
            ...[0, 1, 2, 3].map(i => svg("rect", {x: 5 * i, y: 9 - 3 * i, width: 4, height: 5 + 3 * i, rx: 1,
                class: i < lit ? "on" : "off"}))),
        `${percent} %`);
}

/** Steps, because a value holds until the next one; a gap where there was none. */
function stepsOf(points, now) {
    let path = "";
    points.forEach(({time, percent}, i) => {
        const x = at => (600 * (1 - Math.min(now - at, chartMs) / chartMs)).toFixed(1);
        const end = x(points[i + 1]?.time ?? now);
        const isJoined = i > 0 && points[i - 1].percent !== null;
        if (percent !== null)
            path += `${isJoined ? "L" : "M"}${x(time)} ${100 - percent}H${end}`;
    });
    return path;
}

export function signalChart() {
    const now = Date.now();
    const series = [...gateway.strengths].filter(([, points]) => points.length > 0);
    if (series.length === 0)
        return [h("p", {class: "faint"}, "No Wi-Fi or mobile signal.")];
    const last = points => points.at(-1).percent;
    const words = series.map(([name, points]) => `${name} ${last(points) === null ? "none" : last(points) + " %"}`);
    const chart = svg("svg", {"viewBox": "0 0 600 100", "preserveAspectRatio": "none", "role": "img",
        "aria-label": `Signal now: ${words.join(", ")}`},
    ...[0, 25, 50, 75, 100].map(y => svg("path", {class: "grid", d: `M0 ${y}H600`})),
    ...series.map(([, points], i) => svg("path", {class: `line series${i % 4}`, d: stepsOf(points, now)})));
    const axis = (name, ...labels) => h("div", {"class": `axis ${name}`, "aria-hidden": "true"},
        labels.map(label => h("span", {}, label)));
    return [
        h("div", {class: "chart"}, axis("y", "100 %", "50 %", "0 %"), chart,
            axis("x", "10 min ago", "5 min", "now")),
        h("ul", {class: "legend"}, words.map((word, i) => h("li", {class: `series${i % 4}`}, word))),
    ];
}

// The service counts in 32 bits and reads them as signed.
function megabytes(value) {
    return value < 0 ? value + 4294.97 : value;
}

function amount(value) {
    return value >= 1000 ? `${(value / 1000).toFixed(2)} GB` : `${value.toFixed(value >= 100 ? 0 : 1)} MB`;
}

export function usageChart() {
    const months = Object.entries(gateway.usage).sort().map(([month, {download, upload}]) =>
        ({month, download: megabytes(download), upload: megabytes(upload)}));
    if (months.length === 0)
        return [h("p", {class: "faint"}, "Nothing has been counted.")];
    const most = Math.max(...months.map(m => m.download + m.upload)) || 1;
    const bar = ({download, upload}) => svg("svg",
        {"viewBox": "0 0 100 8", "preserveAspectRatio": "none", "class": "usage", "aria-hidden": "true"},
        svg("rect", {class: "download", width: 100 * download / most, height: 8}),
        svg("rect", {class: "upload", x: 100 * download / most, width: 100 * upload / most, height: 8}));
    return [h("table", {},
        h("thead", {}, h("tr", {}, [["Month"], ["Down", "series0"], ["Up", "series1"]].map(([name, color]) =>
            h("th", {scope: "col", class: color}, name)),
            h("td", {}))),
        h("tbody", {}, months.map(m => h("tr", {}, h("th", {scope: "row"}, m.month),
            h("td", {}, amount(m.download)), h("td", {}, amount(m.upload)), h("td", {class: "wide"}, bar(m))))))];
}
