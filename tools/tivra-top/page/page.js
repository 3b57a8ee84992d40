"use strict";
// The picture as the events bring it: "all" once after connecting, then "change" for what has changed.
const MINUTES = 10, MOST_POINTS = 1200, MOST_CHANGES = 500;
const byId = id => document.getElementById(id);
const rows = new Map();
let clock = {server: 0, own: 0}; // the server's time of the last picture, and this browser's then
let columns = [], history = [[], [], [], [], []], changes = [], hubs = [], sort = 0, descending = false, shown = null;

function plot(id, series, log) {
    const element = byId(id);
    const colours = ["#3b82f6", "#f59e0b", "#ef4444", "#10b981", "#8b5cf6", "#ec4899"];
    const ink = getComputedStyle(document.body).color;
    const axis = {stroke: ink, grid: {stroke: "#8883"}, ticks: {stroke: "#8883"}};
    return new uPlot({
        width: element.clientWidth, height: 160, scales: {y: log ? {distr: 3} : {}},
        axes: [axis, {...axis, size: 60, grid: {stroke: "#8883", width: log ? 0.3 : 1}}],
        series: [{}, ...series.map((label, i) => ({label, stroke: colours[i % colours.length], width: 1.5, points: {show: false}, spanGaps: true}))],
    }, [[], ...series.map(() => [])], element);
}

const rates = plot("rates", ["updates/s"]);
const latency = plot("latency", ["decode p50", "decode p99", "callback p99"], true);
let symbolPlot = null, symbolData = null;

function text(element, value, kind) {
    if (element.textContent !== value) element.textContent = value;
    if (kind !== undefined && element.className !== kind) element.className = kind;
}

function addFigures(point) {
    point.forEach((value, i) => history[i].push(i === 0 ? value / 1000 : i > 1 && value <= 0 ? null : value));
    if (history[0].length > MOST_POINTS) history.forEach(each => each.shift());
}

function drawFigures() {
    rates.setData([history[0], history[1]]);
    latency.setData([history[0], history[2], history[3], history[4]]);
}

function ageOf(row) {
    if (row.time === null) return "-";
    const seconds = Math.max(0, Math.floor((clock.server + performance.now() - clock.own - row.time) / 1000));
    return seconds < 600 ? seconds + "s" : seconds < 36000 ? Math.floor(seconds / 60) + "m" : Math.floor(seconds / 3600) + "h";
}

/// 1 or -1 for a number that has risen or fallen, else 0.
function moveOf(before, value) {
    if (!before || !value || !Number.isFinite(Number(before)) || !Number.isFinite(Number(value))) return 0;
    return Math.sign(Number(value) - Number(before));
}

function cell(tr, index) {
    while (tr.cells.length <= index) tr.insertCell();
    return tr.cells[index];
}

function head() {
    const names = ["Symbol", ...columns, "Rate", "Age", "State"];
    const tr = document.createElement("tr");
    names.forEach((name, i) => {
        const th = document.createElement("th");
        th.textContent = name + (i === sort ? (descending ? " ▾" : " ▴") : "");
        if (i > 0 && i < names.length - 1) th.className = "n";
        th.onclick = () => { descending = i === sort && !descending; sort = i; head(); order(); };
        tr.append(th);
    });
    byId("columns").replaceChildren(tr);
}

function showRow(row, now) {
    const known = rows.get(row.name);
    const tr = known ? known.tr : document.createElement("tr");
    if (!known) tr.onclick = () => choose(row.name);
    text(cell(tr, 0), row.name);
    columns.forEach((_, i) => {
        const value = row.cells[i] ?? "", move = row.isStale || !known ? 0 : moveOf(known.row.cells[i], value);
        const kind = move > 0 ? "n up" : move < 0 ? "n down" : "n";
        text(cell(tr, i + 1), value, kind);
    });
    text(cell(tr, columns.length + 1), String(row.rate), "n");
    text(cell(tr, columns.length + 2), ageOf(row), "n");
    text(cell(tr, columns.length + 3), row.state, row.state === "refused" ? "bad" : "");
    tr.className = row.isStale ? "stale" : "";
    rows.set(row.name, {row, tr});
    if (symbolData && shown === row.name) addValues(row, now);
    return !known;
}

function value(row, column) {
    if (column === 0) return row.name;
    if (column <= columns.length) { const number = parseFloat(row.cells[column - 1]); return isNaN(number) ? -Infinity : number; }
    return [row.rate, row.time === null ? Infinity : -row.time, row.state][column - columns.length - 1];
}

function order() {
    const wanted = byId("filter").value.toLowerCase();
    const list = [...rows.values()].filter(each => each.row.name.toLowerCase().includes(wanted));
    list.sort((a, b) => {
        const x = value(a.row, sort), y = value(b.row, sort);
        return (x < y ? -1 : x > y ? 1 : a.row.name < b.row.name ? -1 : 1) * (descending ? -1 : 1);
    });
    byId("board").replaceChildren(...list.map(each => each.tr));
}

function timeline(name, now) {
    const begin = now - MINUTES * 60000, bar = document.createElement("div");
    bar.className = "bar";
    const own = changes.filter(each => each[1] === name);
    own.forEach((each, i) => {
        const from = Math.max(each[0], begin), to = i + 1 < own.length ? own[i + 1][0] : now;
        if (to <= begin) return;
        const part = document.createElement("i");
        part.className = each[2];
        part.title = each[2] + " " + new Date(each[0]).toLocaleTimeString();
        part.style.flexGrow = String(Math.max(to - from, 1));
        bar.append(part);
    });
    return bar;
}

function showHubs(now) {
    byId("hubs").replaceChildren(...hubs.map(hub => {
        const tr = document.createElement("tr");
        [hub.name, hub.state, hub.rate, hub.p50.toFixed(0), hub.p99.toFixed(0), hub.queued.toFixed(0), hub.fill + "%"].forEach((each, i) => text(cell(tr, i), String(each), i > 1 ? "n" : i === 1 ? hub.state : ""));
        cell(tr, 7).append(timeline(hub.name, now));
        text(cell(tr, 8), hub.state === "ready" ? "" : hub.cause);
        return tr;
    }));
}

function showFrame(picture, now) {
    text(byId("state"), picture.state, picture.state === "established" ? "" : "bad");
    text(byId("rate"), (history[1].at(-1) ?? 0) + "/s");
    text(byId("counts"), `${picture.symbols} symbols` + (picture.gaps === null ? "" : `, ${picture.gaps} gaps`) + (picture.leftOut ? `, ${picture.leftOut} updates left out` : "") +
        (picture.symbols > rows.size ? `, ${picture.symbols - rows.size} not on the page` : ""));
    text(byId("title"), picture.title);
    document.title = `${picture.state} - tivra-top`;
    hubs = picture.hubs;
    byId("hubsection").hidden = hubs.length === 0;
    showHubs(now);
    text(byId("log"), picture.log.map(line => new Date(line.time).toISOString().slice(11, 19) + " " + line.text).reverse().join("\n"));
    drawFigures();
}

async function choose(name) {
    shown = name;
    // Values that come meanwhile are not of the symbol that is drawn.
    symbolData = null;
    let answer = null;
    try {
        answer = await (await fetch("/symbol?name=" + encodeURIComponent(name))).json();
    } catch (error) { /* said below */ }
    if (shown !== name) return;
    byId("chart").hidden = false;
    text(byId("chartname"), name + (answer ? ": last minutes" : ": no answer; click again"));
    if (symbolPlot) symbolPlot.destroy();
    symbolPlot = null;
    if (!answer) return;
    // Sizes would press prices flat.
    const wanted = answer.columns.map((column, i) => [column, i + 1]).filter(each => !each[0].endsWith(".SIZE"));
    symbolData = {indexes: wanted.map(each => each[1]), data: [answer.points.map(point => point[0] / 1000), ...wanted.map(each => answer.points.map(point => point[each[1]] ?? null))]};
    symbolPlot = plot("symbol", wanted.map(each => each[0]));
    symbolPlot.setData(symbolData.data);
}

function addValues(row, now) {
    const data = symbolData.data;
    data[0].push(now / 1000);
    symbolData.indexes.forEach((index, i) => { const number = parseFloat(row.cells[index - 1]); data[i + 1].push(isNaN(number) ? null : number); });
    if (data[0].length > 600) data.forEach(each => each.shift());
    symbolPlot.setData(data);
}

function take(event, isAll) {
    const picture = JSON.parse(event.data);
    if (isAll) {
        rows.clear();
        history = [[], [], [], [], []];
        picture.history.forEach(addFigures);
        changes = picture.changes;
    } else {
        addFigures(picture.figures);
    }
    const now = isAll ? picture.now : picture.figures[0];
    clock = {server: now, own: performance.now()};
    if (isAll || picture.columns.join() !== columns.join()) { columns = picture.columns; head(); }
    if (!isAll)
        picture.hubs.forEach(hub => {
            const last = changes.filter(each => each[1] === hub.name).at(-1);
            if (!last || last[2] !== hub.state) changes.push([now, hub.name, hub.state]);
        });
    changes.splice(0, changes.length - MOST_CHANGES);
    (picture.gone ?? []).forEach(name => rows.delete(name));
    const isNew = picture.rows.map(row => showRow(row, now)).includes(true);
    if (isAll || isNew || picture.gone.length > 0 || sort > 0) order();
    showFrame(picture, now);
}

byId("filter").oninput = order;
setInterval(() => rows.forEach(({row, tr}) => text(cell(tr, columns.length + 2), ageOf(row))), 1000);
addEventListener("resize", () => [[rates, "rates"], [latency, "latency"], [symbolPlot, "symbol"]].forEach(([each, id]) =>
    each && each.setSize({width: byId(id).clientWidth, height: 160})));
function dial() {
    const source = new EventSource("/events");
    source.addEventListener("all", event => { text(byId("link"), ""); take(event, true); });
    source.addEventListener("change", event => take(event, false));
    source.onerror = () => {
        // The browser dials again by itself, but not after a refusal.
        const isRefused = source.readyState === EventSource.CLOSED;
        text(byId("link"), `tivra-top ${isRefused ? "has as many viewers as it takes" : "doesn't answer"}; what is shown is old`, "bad");
        if (isRefused) setTimeout(dial, 2000);
    };
}
dial();
