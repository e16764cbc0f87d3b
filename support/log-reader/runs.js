// SPDX-License-Identifier: MIT
// Groups lines into runs, and finds out how far each run came.

/** The log as text, its lines, and the runs that they belong to. */
class Log {
    constructor(text) {
        this.text = text;
        this.starts = []; // of each line
        this.ends = []; // of each line, without its line break
        this.heads = []; // length of the time stamp and level before a line's text; 0 without them
        this.patterns = []; // of each line; undefined for lines that the program does not write
        this.runs = [];
        this.clientOf = new Map(); // from addresses in the configuration to the client that was started with them
        this.at = 0;
    }

    static get HEAD() {
        return /\[(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\] \[(\w*)\] \([^()\r\n]*:\d+\) /y;
    }

    /** Reads until the end or for so many milliseconds; true when there is more. */
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
        const pattern = length ? patternOf(this.text.slice(start + length, end)) : undefined;
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

    /** The values in the line, without their quotes. */
    values(number) {
        const start = this.starts[number] + this.heads[number];
        return valuesOf(this.patterns[number], this.text.slice(start, this.ends[number]));
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
     * Two processes may write at the same time, and no line names its process. A line belongs to a run whose names
     * it contains; otherwise to the newest run that it can continue and whose client and package it does not
     * contradict.
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
        // A line that may begin a run continues another one only when it contains its names.
        return from.includes("begin") && bestScore < 1 ? null : best;
    }
}
Log.OPEN_RUNS = 4;

const NO_ANSWER = {version: "", update: "", md5: "", url: "", size: 0};

/** One run of the updater. Its stage says how far it came; the rules of the lines name the stages. */
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
     * 1 when the line names this run's client or package, -1 when it names others, 0 when it names none; more when
     * this line is due in this run. Skips slow comparisons when there is no other run to compare with.
     */
    fits(number, pattern, isAlone) {
        const agrees = (known, same) => (known === "" ? 0 : same ? 1 : -1);
        const {line} = pattern;
        let score = 0;
        if (line.startsWith('"PROGRAM"') || line.startsWith('"CLIENT"')) {
            const [program] = this.log.values(number);
            // A package that is verified and not unpacked is an installer, which the updater starts.
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

    /** Whether the run must be starting its client at the time of this line: only a prompt waits for the user. */
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

    /** The service's answer; empty texts without an answer of the expected form. */
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
