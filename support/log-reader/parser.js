// What a log says: text to lines, lines to runs, runs to stories. Nothing here touches the page.
// DATA is put in front of this: what the generator took from the documents and beside them.

/** The documented lines, compiled: each pattern is a list of literals with values between them. */
const PATTERNS = DATA.lines.map(({line, rule}, index) => ({
    index,
    rule,
    line,
    parts: line.split(/("[A-Z]+"|\b(?:N|ERROR)$)/).filter(part => part !== "").map(part => ({
        text: part,
        kind: /^"[A-Z]+"$/.test(part) ? "quoted" : /^(N|ERROR)$/.test(part) ? "bare" : "literal",
    })),
}));

const KEY_LENGTH = 4;

/** Those that begin with a value in quotes, and the others by their first characters. */
const QUOTED_FIRST = PATTERNS.filter(pattern => pattern.parts[0].kind === "quoted");
const BY_KEY = new Map();
for (const pattern of PATTERNS) {
    if (QUOTED_FIRST.includes(pattern))
        continue;
    const key = pattern.line.slice(0, KEY_LENGTH);
    BY_KEY.set(key, [...(BY_KEY.get(key) || []), pattern]);
}

/** Where the text in quotes ends that begins at `start`: behind its last quote; -1 when it has none. */
function endOfQuoted(text, start, end) {
    if (text[start] !== '"')
        return -1;
    for (let quote = text.indexOf('"', start + 1); quote >= 0 && quote < end; quote = text.indexOf('"', quote + 1)) {
        let slashes = 0;
        while (text[quote - 1 - slashes] === "\\" && quote - 1 - slashes > start)
            ++slashes;
        if (slashes % 2 === 0)
            return quote + 1;
    }
    return -1;
}

/** Where a part of a pattern ends that begins at `start`; -1 when it does not. */
function endOfPart(part, text, start, end) {
    if (part.kind === "quoted")
        return endOfQuoted(text, start, end);
    if (part.kind === "literal")
        return text.startsWith(part.text, start) ? start + part.text.length : -1;
    const blank = text.slice(start, end).indexOf(" ");
    const next = blank < 0 ? end : start + blank;
    return next > start ? next : -1;
}

/** Whether these parts, from the one of this number on, are the line from `start` to `end`. */
function isMatch({parts}, first, text, start, end) {
    let at = start;
    for (let index = first; index < parts.length && at >= 0; ++index)
        at = endOfPart(parts[index], text, at, end);
    return at === end;
}

/** The pattern of the text of a line, from `start` to `end`; undefined when it is none of the program's. */
function patternAt(text, start, end) {
    const quotedEnd = endOfQuoted(text, start, end);
    if (quotedEnd >= 0)
        return QUOTED_FIRST.find(pattern => isMatch(pattern, 1, text, quotedEnd, end));
    const candidates = BY_KEY.get(text.slice(start, start + KEY_LENGTH));
    return candidates && candidates.find(pattern => isMatch(pattern, 0, text, start, end));
}

/** The values in a line of this pattern, without their quotes. */
function valuesOf({parts}, text, start, end) {
    const values = [];
    let at = start;
    for (const part of parts) {
        const next = endOfPart(part, text, at, end);
        if (part.kind !== "literal")
            values.push(part.kind === "quoted" ? text.slice(at + 1, next - 1) : text.slice(at, next));
        at = next;
    }
    return values;
}

const ESCAPES = {n: "\n", r: "\r", t: "\t", b: "\b", f: "\f", a: "\x07", v: "\v", 0: "\0"};

/** The text that the program has put in quotes. */
function unescaped(text) {
    // Most escapes are JSON's, which the browser reads faster.
    if (!/\\[^"\\bfnrtu]/.test(text)) {
        try {
            return JSON.parse(`"${text}"`);
        } catch {
            // A cut line, or control characters.
        }
    }
    const escape = /\\(?:x([0-9a-fA-F]{1,2})|u([0-9a-fA-F]{4})|U([0-9a-fA-F]{8})|([^]))/g;
    return text.replace(escape, (all, two, four, eight, one) => {
        if (one !== undefined)
            return ESCAPES[one] ?? one;
        const code = parseInt(two || four || eight, 16);
        return code <= 0x10ffff ? String.fromCodePoint(code) : "\ufffd";
    });
}

/** The log as text, its lines, and the runs that they belong to. */
class Log {
    constructor(text) {
        this.text = text;
        this.starts = []; // of each line
        this.ends = []; // of each line, without its line break
        this.heads = []; // length of what precedes the text of the line; 0 when there is no such head
        this.patterns = []; // of each line; undefined for those that are not the program's
        this.runs = [];
        this.clientOf = new Map(); // addresses in the configuration to the client that was started with them
        this.at = 0;
    }

    static get HEAD() {
        return /\[(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\] \[(\w*)\] \([^()\r\n]*:\d+\) /y;
    }

    /** Reads on until the end or for some milliseconds; true when there is more. */
    read(milliseconds = Infinity) {
        const began = performance.now();
        const head = Log.HEAD;
        while (this.at < this.text.length) {
            if (this.starts.length % 1024 === 0 && performance.now() - began > milliseconds)
                return true;
            this.takeLine(head);
        }
        return false;
    }

    takeLine(head) {
        const start = this.at;
        const lineBreak = this.text.indexOf("\n", start);
        this.at = lineBreak < 0 ? this.text.length : lineBreak + 1;
        let end = lineBreak < 0 ? this.text.length : lineBreak;
        if (end > start && this.text[end - 1] === "\r")
            --end;
        if (end === start)
            return;
        head.lastIndex = start;
        const length = head.test(this.text) && head.lastIndex <= end ? head.lastIndex - start : 0;
        const number = this.starts.length;
        this.starts.push(start);
        this.ends.push(end);
        this.heads.push(length);
        const pattern = length ? patternAt(this.text, start + length, end) : undefined;
        this.patterns.push(pattern);
        this.place(number, pattern);
    }

    line(number) {
        return this.text.slice(this.starts[number], this.ends[number]);
    }

    /** "2026-11-22 10:15:02", or an empty text for a line without a head. */
    time(number) {
        return this.heads[number] ? this.text.slice(this.starts[number] + 1, this.starts[number] + 20) : "";
    }

    /** The values of the line as they stand in it, without their quotes. */
    values(number) {
        const pattern = this.patterns[number];
        return valuesOf(pattern, this.text, this.starts[number] + this.heads[number], this.ends[number]);
    }

    /** Puts a line into the run that it belongs to. */
    place(number, pattern) {
        if (!pattern) {
            this.newestOr(number).lines.push(number);
            return;
        }
        const from = pattern.rule.from || [];
        const newest = this.runs[this.runs.length - 1];
        const run = this.openRunFor(number, pattern);
        if (run) {
            if (run !== newest)
                run.overlaps = newest.overlaps = true;
            run.take(number, pattern);
        } else if (from.includes("begin")) {
            this.begin(number, true).take(number, pattern);
        } else if (newest && !newest.isOver && newest.isCut) {
            newest.take(number, pattern);
        } else {
            this.begin(number, false).take(number, pattern);
        }
    }

    newestOr(number) {
        return this.runs[this.runs.length - 1] || this.begin(number, false);
    }

    begin(number, isWhole) {
        const run = new Run(this, isWhole);
        this.runs.push(run);
        return run;
    }

    /**
     * Two processes may write at once, and no line names its process. A line goes to the newest run that it can
     * follow in, and whose client and package it does not contradict; before that to one whose own names it has.
     */
    openRunFor(number, pattern) {
        const {from} = pattern.rule;
        if (!from)
            return this.runs[this.runs.length - 1];
        const candidates = this.runs.slice(-Log.OPEN_RUNS).filter(run => from.includes(run.stage)).reverse();
        let best = null;
        let bestScore = -1;
        for (const run of candidates) {
            const score = run.fits(number, pattern, candidates.length === 1);
            if (score > bestScore) {
                best = run;
                bestScore = score;
            }
        }
        // A line that may begin a run goes on with another only when it has its names.
        return from.includes("begin") && bestScore < 1 ? null : best;
    }
}
Log.OPEN_RUNS = 4;

const NO_ANSWER = {version: "", update: "", md5: "", url: "", size: 0};

/** One run of the updater. Its stage is how far it came: the names in the rules of the lines. */
class Run {
    constructor(log, isWhole) {
        this.log = log;
        this.lines = [];
        this.stage = "begin";
        this.before = "begin"; // the stage in which the client or the installer was started
        this.isCut = !isWhole;
        this.overlaps = false;
        this.failed = false;
        this.addresses = ""; // the two of the configuration
        this.client = "";
        this.package = "";
        this.answerLine = -1;
        this.knownAnswer = null;
    }

    get isOver() {
        return this.stage === "started" || this.stage === "ended";
    }

    take(number, pattern) {
        this.lines.push(number);
        const {rule} = pattern;
        const to = typeof rule.to === "object" ? rule.to[this.stage] : rule.to;
        if (rule.failed && this.stage !== "copied")
            this.failed = true;
        if (to) {
            this.before = this.stage;
            this.stage = to;
        }
        if (rule.step === "configured") {
            const [, check, packages] = this.log.values(number);
            this.addresses = `${check}\n${packages}`;
            this.client = this.log.clientOf.get(this.addresses) || "";
        } else if (rule.step === "answered") {
            this.answerLine = number;
        } else if (rule.step === "offered") {
            [this.package] = this.log.values(number);
            this.client = /([^\\/]*)[\\/]+[^\\/]*$/.exec(this.package)?.[1] || "";
            if (this.addresses && this.client)
                this.log.clientOf.set(this.addresses, this.client);
        }
    }

    /**
     * 1 when the line names this run's own client or package, 0 when it names neither, -1 when others; more when it
     * is about time for it. What takes long to find out is left out where there is nothing to compare.
     */
    fits(number, pattern, isAlone) {
        const agrees = (known, same) => (known === "" ? 0 : same ? 1 : -1);
        const {line} = pattern;
        let score = 0;
        if (line.startsWith('"PROGRAM"') || line.startsWith('"CLIENT"')) {
            const [program] = this.log.values(number);
            // A package that is verified and not unpacked is an installer, which is started itself.
            score = this.stage === "verified"
                ? agrees(this.package, program === this.package)
                : agrees(this.client, program.split(".")[0] === this.client);
            if (!isAlone && score >= 0 && this.startsAtOnce(number))
                score += 2;
        } else if (/^"PATH"  (open|Open|read|md5|successfully)/.test(line)) {
            score = agrees(this.package, this.log.values(number)[0] === this.package);
        } else if (line.startsWith("unzip ")) {
            const folder = this.package.slice(0, this.package.lastIndexOf("/") + 1);
            score = agrees(this.package, this.log.values(number)[0].startsWith(folder));
        } else if (!isAlone && line.startsWith("org: ")) {
            score = agrees(this.answer.md5, unescaped(this.log.values(number)[0]) === this.answer.md5);
        } else if (!isAlone && line.startsWith("update fileName")) {
            const name = this.answer.url.slice(this.answer.url.lastIndexOf("/") + 1);
            score = agrees(name, unescaped(this.log.values(number)[0]).endsWith(`/${name}`));
        }
        return score;
    }

    /** True when the client must be starting by the time of this line: only a prompt waits for a user. */
    startsAtOnce(number) {
        const milliseconds = line => Date.parse(this.log.time(line).replace(" ", "T"));
        const sinceLast = milliseconds(number) - milliseconds(this.lines[this.lines.length - 1]);
        const {update, version} = this.answer;
        const isWaiting = ["configured", "offered"].includes(this.stage)
            || (this.stage === "answered" && update !== "0" && version !== this.installedVersion);
        return !isWaiting && sinceLast <= 2000;
    }

    get installedVersion() {
        const line = this.lines.find(number => this.log.patterns[number]?.rule.step === "configured");
        return line === undefined ? "" : unescaped(this.log.values(line)[0]);
    }

    /** What the service answered; empty texts when it did not, or not in this form. */
    get answer() {
        if (this.answerLine < 0)
            return NO_ANSWER;
        this.knownAnswer = this.knownAnswer || this.readAnswer();
        return this.knownAnswer;
    }

    readAnswer() {
        try {
            const {biz} = JSON.parse(unescaped(this.log.values(this.answerLine)[0]));
            const text = value => (typeof value === "string" ? value : "");
            return {
                version: text(biz.latestVersion),
                update: text(biz.update),
                md5: text(biz.md5),
                url: text(biz.latestVersionUrl),
                size: Number.isFinite(biz.packageSize) ? biz.packageSize : 0,
            };
        } catch {
            return NO_ANSWER;
        }
    }

    /** A key of the outcomes in the texts. */
    get outcome() {
        if (this.stage === "started") {
            if (this.failed && ["begin", "configured", "running", "answered"].includes(this.before))
                return "checkFailed";
            return {
                answered: "nothing",
                running: "handedOver",
                offered: "later",
                verified: "installer",
                failed: "failed",
                copied: "updated",
                installed: "updated",
            }[this.before] || "started";
        }
        if (this.stage === "running" && this.hasLink)
            return "handedOver";
        const isFailed = ["ended", "broken", "stalled", "refused", "failed"].includes(this.stage);
        return isFailed || this.failed ? "failed" : "unfinished";
    }

    get isTrouble() {
        return ["failed", "checkFailed", "unfinished"].includes(this.outcome);
    }

    get arguments() {
        const isArgument = number => this.log.patterns[number]?.rule.step === "argument";
        return this.lines.filter(isArgument).map(number => unescaped(this.log.values(number)[0]));
    }

    get hasLink() {
        return this.arguments.some(argument => argument.includes("://"));
    }

    /** The first and the last time in the run; empty texts when no line has one. */
    get times() {
        const times = this.lines.map(number => this.log.time(number)).filter(time => time !== "");
        return [times[0] || "", times[times.length - 1] || ""];
    }
}

// --- The story --------------------------------------------------------------------------------------------

/** A version as it may be shown to anybody: never an address or a path. */
const harmlessVersion = version => (/^[0-9A-Za-z][\w.+-]{0,31}$/.test(version) ? version : "");

/** The text with this count: once, twice, three times. */
function counted(forms, count) {
    return forms[Math.min(count, forms.length - 1)].replace("{count}", count);
}

/** Turns the lines of a run into steps: {time, text, failed}. */
class Story {
    constructor(run, texts) {
        this.run = run;
        this.texts = texts;
        this.steps = [];
        this.attempts = 1;
        this.isAnswered = false; // the prompt
        this.isOpen = false; // an interruption without the end of its six seconds
        this.lost = {count: 0, stalled: 0, time: ""};
        for (const number of run.lines)
            this.tell(number);
        this.tellLost();
        if (!run.isOver && run.outcome !== "handedOver")
            this.add(this.lastTime, "ends", {failed: run.isTrouble});
    }

    get lastTime() {
        return this.run.times[1].slice(11);
    }

    add(time, key, {failed = false, ...values} = {}) {
        let text = this.texts.steps[key];
        for (const [name, value] of Object.entries(values))
            text = text.replace(`{${name}}`, value);
        this.steps.push({time, text: text.trim(), failed});
    }

    /** Of several attempts one step. */
    tellLost() {
        const {count, stalled, time} = this.lost;
        const told = number => ({failed: true, times: counted(this.texts.times, number)});
        if (count > 0)
            this.add(time, this.isOpen ? "breaking" : "interrupted", told(count));
        if (stalled > 0)
            this.add(time, "stalled", told(stalled));
        this.lost = {count: 0, stalled: 0, time: ""};
    }

    get attempt() {
        return counted(this.texts.attempt, this.attempts);
    }

    tell(number) {
        const step = this.run.log.patterns[number]?.rule.step;
        const time = this.run.log.time(number).slice(11);
        if (!step)
            return;
        const download = ["diskUnknown", "packageNotMade", "interrupted", "stalled", "unreadable", "downloaded"];
        if (download.includes(step) && !this.isAnswered && this.run.package !== "") {
            this.isAnswered = true;
            this.add("", this.run.arguments.includes("-immediately") ? "unasked" : "chose");
        }
        if (step !== "interrupted" && step !== "stalled")
            this.tellLost();
        (this[step] || this.plain).call(this, time, number, step);
    }

    plain(time, number, step) {
        this.add(time, step, {failed: Boolean(this.run.log.patterns[number].rule.failed)});
    }

    argument() {}

    answered() {}

    configured(time, number) {
        const version = harmlessVersion(unescaped(this.run.log.values(number)[0]));
        this.add(time, version ? "configured" : "configuredUnknown", {version});
    }

    alreadyRunning(time) {
        this.add(time, "alreadyRunning");
        if (this.run.stage === "running" && this.run.hasLink)
            this.add(time, "handedOver");
    }

    offered(time) {
        const version = harmlessVersion(this.run.answer.version);
        this.add(time, version ? "offered" : "offeredUnknown", {version});
    }

    interrupted(time) {
        if (this.isOpen)
            return;
        this.isOpen = true;
        ++this.lost.count;
        ++this.attempts;
        this.lost.time = this.lost.time || time;
    }

    stalled(time) {
        if (!this.isOpen) {
            ++this.lost.stalled;
            ++this.attempts;
        }
        this.isOpen = false;
        this.lost.time = this.lost.time || time;
    }

    downloaded(time) {
        this.isOpen = false;
        this.add(time, "downloaded");
    }

    refused(time) {
        ++this.attempts;
        this.add(time, "refused", {failed: true});
    }

    unreadable(time) {
        this.add(time, this.run.package === "" ? "configurationFailed" : "unreadable", {failed: true});
    }

    installed(time) {
        this.add(time, "installed", {attempt: this.attempt});
    }

    starting(time) {
        const {before, answer, failed} = this.run;
        if (before === "verified") {
            this.add(time, "installer", {attempt: this.attempt});
            return;
        }
        if (before === "offered") {
            this.add(time, "later");
        } else if (before === "answered" && !failed) {
            const {version, update} = answer;
            const installed = this.run.installedVersion;
            this.add(time, version === installed ? "upToDate" : update === "0" ? "notOffered" : "silenced");
        }
        this.add(time, "clientStarted");
    }
}

/** What the document says about this line, and the lines that show it: {quoted, means, todo}. */
function explanation(run, number, language) {
    const {log} = run;
    const pattern = log.patterns[number];
    const [error] = pattern.line.endsWith(" ERROR") ? log.values(number) : [];
    const known = DATA.errors.find(({name}) => error && (name === error || name.endsWith(`::${error}`)));
    const {means, todo} = (known || DATA.lines[pattern.index])[language];
    const place = run.lines.indexOf(number);
    const isRefused = pattern.rule.step === "refused"; // the line before has both digests
    return {quoted: run.lines.slice(isRefused ? Math.max(0, place - 1) : place, place + 1), means, todo};
}

/** What the document says about the failures of a run, each once, and about an end without a line. */
function explanations(run, language) {
    const failures = [];
    const asides = [];
    const told = new Set();
    let isBroken = false;
    for (const number of run.lines) {
        const pattern = run.log.patterns[number];
        const step = pattern?.rule.step;
        const isEcho = step === "stalled" && isBroken;
        isBroken = step === "interrupted";
        if (!pattern || isEcho || !(pattern.rule.failed || pattern.rule.minor))
            continue;
        const key = pattern.line.endsWith(" ERROR") ? run.log.line(number).slice(run.log.heads[number]) : pattern.line;
        if (told.has(key))
            continue;
        told.add(key);
        const isAside = pattern.rule.minor || !run.isTrouble;
        (isAside ? asides : failures).push(explanation(run, number, language));
    }
    const endings = run.isOver || run.outcome === "handedOver" ? [] : [ending(run, language)];
    return {failures, asides, endings};
}

/** What the document says about a run that just ends. */
function ending(run, language) {
    const last = run.lines.filter(number => run.log.patterns[number]?.rule.step).pop();
    const line = last === undefined ? "" : run.log.patterns[last].line;
    const known = DATA.endings.find(({name}) => name === line);
    const {means, todo} = (known || DATA.endings[DATA.endings.length - 1])[language];
    const size = run.stage === "offered" ? run.answer.size : 0;
    return {quoted: last === undefined ? [] : [last], means, todo, size};
}

/** Characters that change how others look, or that cannot be seen, as their numbers. */
function visible(text) {
    const unseen = /(?!\t)[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/gu;
    return text.replace(unseen, character => `\\u${character.codePointAt(0).toString(16).padStart(4, "0")}`);
}

/** Markdown's segments as plain text. */
const plainText = segments => segments.map(segment => (typeof segment === "string" ? segment : segment.text)).join("");

const MIB = 1024 * 1024;
const inMib = bytes => (bytes / MIB).toFixed(1);

/** How much room the package needs, where that is what may be missing. */
function roomText(size, texts) {
    return size > 0 ? texts.needs.replace("{size}", inMib(size)).replace("{room}", inMib(3 * size)) : "";
}

/** The story to be sent on: of the log only times, versions and numbers. */
function storyText(run, language) {
    const texts = DATA.texts[language];
    const [from, to] = run.times;
    const lines = [`${from} – ${to.slice(11)} ${texts.outcomes[run.outcome]}`];
    for (const {time, text} of new Story(run, texts).steps)
        lines.push(`${time} ${text}`.trim());
    for (const {means, todo, size} of Object.values(explanations(run, language)).flat()) {
        lines.push("", `${texts.means}${texts.colon}${plainText(means)}`);
        if (size)
            lines.push(roomText(size, texts));
        lines.push(`${texts.do}${texts.colon}${plainText(todo)}`);
    }
    return lines.join("\n") + "\n";
}

// --- The encoding -----------------------------------------------------------------------------------------

const isContinuation = byte => byte >= 0x80 && byte < 0xc0;

/** Without parts of characters at both ends: a log may have been cut anywhere. */
function withoutHalves(bytes) {
    let start = 0;
    while (start < 3 && isContinuation(bytes[start]))
        ++start;
    let end = bytes.length;
    let last = end - 1;
    while (last > end - 4 && last >= start && isContinuation(bytes[last]))
        --last;
    const lead = bytes[last];
    const length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
    if (last >= start && length > end - last)
        end = last;
    return bytes.subarray(start, end);
}

/** Whether bytes beyond ASCII come in pairs, as they do in Chinese text of the older encodings. */
function comesInPairs(bytes) {
    let all = 0;
    let alone = 0;
    for (let index = 0; index < bytes.length && all < 100000; ++index) {
        if (bytes[index] < 0x80)
            continue;
        ++all;
        if (!(bytes[index - 1] >= 0x80) && !(bytes[index + 1] >= 0x80))
            ++alone;
    }
    return alone * 4 < all;
}

/** The text of a file. The program writes in the system's encoding, which nothing in the log names. */
function decoded(bytes, encoding) {
    if (encoding)
        return {text: new TextDecoder(encoding).decode(bytes), encoding};
    if (bytes[0] === 0xff && bytes[1] === 0xfe)
        return decoded(bytes, "utf-16le");
    if (bytes[0] === 0xfe && bytes[1] === 0xff)
        return decoded(bytes, "utf-16be");
    try {
        const whole = withoutHalves(bytes);
        const text = new TextDecoder("utf-8", {fatal: true}).decode(whole);
        return whole.length === bytes.length ? {text, encoding: "utf-8"} : decoded(bytes, "utf-8");
    } catch {
        return decoded(bytes, comesInPairs(bytes) ? "gb18030" : "windows-1252");
    }
}
