// SPDX-License-Identifier: MIT
// Builds the page. Texts from the log only become text nodes.

const RUNS_AT_ONCE = 30;
const LINES_AT_ONCE = 200;
const CHARACTERS_AT_ONCE = 2000;
const SLICE_MS = 40; // how long the page may block while it reads
const ENCODINGS = ["utf-8", "gb18030", "big5", "shift_jis", "euc-kr", "windows-1250", "windows-1251", "windows-1252",
    "utf-16le"];

const byId = id => document.getElementById(id);

const page = {
    language: navigator.language.toLowerCase().startsWith("zh") ? "zh" : "en",
    bytes: null, // of the file, to decode it again in another encoding
    detected: "",
    log: null,
    shown: [], // the runs to show, newest first
    reading: 0, // number of opened texts; reading an earlier one stops
};

const texts = () => DATA.texts[page.language];

/** An element with these attributes and children; texts become text nodes. */
function make(name, attributes = {}, ...children) {
    const element = document.createElement(name);
    for (const [key, value] of Object.entries(attributes))
        element.setAttribute(key, value);
    element.append(...children);
    return element;
}

/** Markdown's segments as elements. */
function rich(segments) {
    return segments.map(segment => {
        if (typeof segment === "string")
            return segment;
        if (segment.kind === "link")
            return make("a", {href: segment.href}, segment.text);
        return make(segment.kind, {}, segment.text);
    });
}

/** A cell of the document as a sentence with a capital; names at its start stay as they are. */
function sentence(segments) {
    return make("dd", typeof segments[0] === "string" ? {class: "sentence"} : {}, ...rich(segments));
}

function setStatus(text) {
    byId("status").textContent = text;
}

/** A button that adds more items and disappears when there are no more; the focus moves to the added items. */
function moreButton(label, add) {
    const button = make("button", {type: "button"}, label);
    button.addEventListener("click", () => {
        const first = add();
        button.remove();
        first.tabIndex = -1;
        first.focus();
    });
    return button;
}

/** Appends a text of any length. */
function appendLong(element, text) {
    const from = text.length > CHARACTERS_AT_ONCE ? CHARACTERS_AT_ONCE : text.length;
    element.append(visible(text.slice(0, from)));
    if (from === text.length)
        return;
    const label = texts().moreText.replace("{count}", text.length - from);
    element.append(" … ", moreButton(label, () => {
        const rest = make("span", {}, visible(text.slice(from)));
        element.append(rest);
        return rest;
    }));
}

function quotedLine(log, number) {
    const code = make("code", {dir: "ltr"});
    appendLong(code, log.line(number));
    return code;
}

function lineItem(log, number) {
    const rule = log.patterns[number]?.rule;
    const item = make("li", rule?.failed ? {class: "bad"} : {}, quotedLine(log, number));
    const note = rule?.failed ? texts().failed : rule ? "" : texts().unknown;
    if (note)
        item.append(" ", make("span", {class: rule ? "bad" : "quiet"}, `— ${note}`));
    return item;
}

/** The lines of a run from `from` on, and a button for those that follow. */
function appendLines(list, run, from) {
    const numbers = run.lines.slice(from, from + LINES_AT_ONCE);
    const items = numbers.map(number => lineItem(run.log, number));
    list.append(...items);
    const left = run.lines.length - from - numbers.length;
    if (left > 0) {
        const button = moreButton(texts().moreLines.replace("{count}", left), () => {
            const holder = button.parentNode;
            const first = appendLines(list, run, from + numbers.length);
            holder.remove();
            return first;
        });
        list.append(make("li", {}, button));
    }
    return items[0];
}

function explanationOf(run, {quoted, means, todo, size}) {
    const list = make("dl", {}, make("dt", {}, texts().means), sentence(means));
    if (size)
        list.append(make("dd", {}, roomText(size, texts())));
    list.append(make("dt", {}, texts().do), sentence(todo));
    const box = make("div", {class: "explanation"});
    for (const number of quoted)
        box.append(make("p", {}, quotedLine(run.log, number)));
    box.append(list);
    return box;
}

async function copyStory(run, item) {
    const text = storyText(run, page.language);
    try {
        await navigator.clipboard.writeText(text);
        setStatus(texts().copied);
    } catch {
        item.querySelector(".copy")?.remove();
        const area = make("textarea", {class: "copy", rows: "8", readonly: "", "aria-label": texts().copyByHand});
        area.value = text;
        item.append(area);
        area.focus();
        area.select();
        setStatus(texts().copyByHand);
    }
}

function timesText(run) {
    const [from, to] = run.times;
    return from === to ? from : `${from} – ${from.slice(0, 10) === to.slice(0, 10) ? to.slice(11) : to}`;
}

function storyList(run) {
    const items = new Story(run, texts()).steps.map(({time, text, failed}) => {
        const told = make("span", failed ? {class: "bad"} : {}, text);
        return make("li", {}, ...(time ? [make("time", {}, time), " "] : []), told);
    });
    for (const item of items.slice(0, -1))
        item.append(" · ");
    return make("ol", {class: "story"}, ...items);
}

function runItem(run) {
    const {outcome} = run;
    const title = make("h3", {}, make("span", {}, timesText(run)), " ",
        make("span", {class: "outcome"}, texts().outcomes[outcome]));
    const item = make("li", run.isTrouble ? {class: "trouble"} : {}, title, storyList(run));
    if (run.isCut)
        item.append(make("p", {class: "quiet"}, texts().cutStart));
    if (run.overlaps)
        item.append(make("p", {class: "quiet"}, texts().overlap));
    for (const [key, list] of Object.entries(explanations(run, page.language))) {
        if (list.length)
            item.append(make("h4", {}, texts()[key]), ...list.map(each => explanationOf(run, each)));
    }
    const summary = make("summary", {}, texts().lines.replace("{count}", run.lines.length));
    const details = make("details", {}, summary);
    details.addEventListener("toggle", () => {
        if (details.open && details.children.length === 1) {
            const list = make("ol", {class: "lines"});
            details.append(list);
            appendLines(list, run, 0);
        }
    });
    const copy = make("button", {type: "button"}, texts().copy);
    copy.addEventListener("click", () => copyStory(run, item));
    item.append(details, make("p", {}, copy));
    return item;
}

function showMoreRuns() {
    const list = byId("runs");
    const from = list.children.length;
    const items = page.shown.slice(from, from + RUNS_AT_ONCE).map(runItem);
    list.append(...items);
    const left = page.shown.length - list.children.length;
    byId("more-runs").hidden = left === 0;
    byId("more-runs").textContent = texts().moreRuns.replace("{count}", left);
    return items[0];
}

function showRuns() {
    const {log} = page;
    const runs = [...log.runs].reverse();
    page.shown = byId("only-failed").checked ? runs.filter(run => run.isTrouble) : runs;
    byId("runs").replaceChildren();
    showMoreRuns();
    byId("result").hidden = false;
    if (!log.patterns.some(pattern => pattern)) {
        setStatus(texts().empty);
        return;
    }
    const times = runs.flatMap(run => run.times).filter(time => time !== "");
    setStatus(texts().summary
        .replace("{runs}", runs.length)
        .replace("{failed}", runs.filter(run => run.isTrouble).length)
        .replace("{lines}", log.starts.length)
        .replace("{from}", times[times.length - 2] ?? "")
        .replace("{to}", times[1] ?? ""));
}

const nextTurn = () => new Promise(resolve => {
    const {port1, port2} = new MessageChannel();
    port1.onmessage = () => resolve();
    port2.postMessage(null);
});

/** Reads a text and shows its runs. Resolves once they are on the page. */
async function openText(text) {
    const turn = ++page.reading;
    setStatus(texts().reading);
    const log = new Log(text);
    while (log.read(SLICE_MS)) {
        await nextTurn();
        if (turn !== page.reading)
            return;
    }
    page.log = log;
    showRuns();
}

async function openBytes() {
    const {text, encoding} = decoded(page.bytes, byId("encoding").value);
    page.detected = encoding;
    showEncodings();
    await openText(text);
}

async function openFile(file) {
    if (!file)
        return;
    setStatus(texts().reading);
    try {
        page.bytes = new Uint8Array(await file.arrayBuffer());
    } catch {
        setStatus(texts().unreadable);
        return;
    }
    await openBytes();
}

function openPasted(data) {
    if (data.files.length > 0)
        return openFile(data.files[0]);
    page.bytes = null;
    return openText(data.getData("text/plain"));
}

function showEncodings() {
    const select = byId("encoding");
    const {value} = select;
    const automatic = page.detected && !value ? `${texts().automatic} (${page.detected})` : texts().automatic;
    const options = ENCODINGS.map(name => make("option", {value: name}, name));
    select.replaceChildren(make("option", {value: ""}, automatic), ...options);
    select.value = value;
}

function showLanguage() {
    document.documentElement.lang = page.language;
    document.title = texts().title;
    for (const element of document.querySelectorAll("[data-text]"))
        element.textContent = texts()[element.dataset.text];
    for (const button of document.querySelectorAll("[data-language]"))
        button.setAttribute("aria-pressed", String(button.dataset.language === page.language));
    byId("languages").setAttribute("aria-label", texts().language);
    showEncodings();
    if (page.log)
        showRuns();
}

byId("languages").addEventListener("click", event => {
    page.language = event.target.dataset.language || page.language;
    showLanguage();
});
byId("file").addEventListener("change", event => openFile(event.target.files[0]));
byId("encoding").addEventListener("change", () => page.bytes && openBytes());
byId("only-failed").addEventListener("change", () => page.log && showRuns());
byId("more-runs").addEventListener("click", () => {
    const first = showMoreRuns();
    first.tabIndex = -1;
    first.focus();
});
document.addEventListener("paste", event => {
    event.preventDefault();
    openPasted(event.clipboardData);
});
document.addEventListener("dragover", event => {
    event.preventDefault();
    document.body.classList.add("dropping");
});
document.addEventListener("dragleave", event => {
    if (!event.relatedTarget)
        document.body.classList.remove("dropping");
});
document.addEventListener("drop", event => {
    event.preventDefault();
    document.body.classList.remove("dropping");
    openPasted(event.dataTransfer);
});
showLanguage();
