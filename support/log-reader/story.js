// SPDX-License-Identifier: MIT
// Turns a run into a story: what happened, why, and what to do.

/** A version that anybody may see; empty for anything that could be an address or a path. */
const harmlessVersion = version => (/^[0-9A-Za-z][\w.+-]{0,31}$/.test(version) ? version : "");

/** The text with this count: once, twice, three times. */
function counted(forms, count) {
    return forms[Math.min(count, forms.length - 1)].replace("{count}", count);
}

const MAX_STEPS = 60; // of a story; further ones are omitted in the middle

/** Turns the lines of a run into steps: {time, text, failed}. */
class Story {
    constructor(run, texts) {
        this.run = run;
        this.texts = texts;
        this.steps = [];
        this.attempts = 1;
        this.isAnswered = false; // the prompt
        this.isOpen = false; // an interruption whose six seconds have not ended
        this.lost = {count: 0, stalled: 0, time: ""};
        for (const number of run.lines)
            this.tell(number);
        this.tellLost();
        if (!run.isOver && run.outcome !== "handedOver")
            this.add(this.lastTime, "ends", {failed: run.isTrouble});
        const beyond = this.steps.length - MAX_STEPS;
        if (beyond > 0)
            this.steps.splice(MAX_STEPS / 2, beyond, {time: "", text: "…", failed: false});
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

    /** Makes one step of several attempts. */
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

/** The explanation of a line, or of the error in it if the documents have it. */
function topicOf(log, number) {
    const pattern = log.patterns[number];
    const [error] = pattern.line.endsWith(" ERROR") ? log.values(number) : [];
    return DATA.errors.find(({name}) => name === error) || DATA.lines[pattern.index];
}

/** The document's explanation of a line, and the lines that show it: {quoted, means, todo}. */
function explanation(run, number, language) {
    const pattern = run.log.patterns[number];
    const {means, todo} = topicOf(run.log, number)[language];
    const place = run.lines.indexOf(number);
    const isRefused = pattern.rule.step === "refused"; // the previous line has both digests
    return {quoted: run.lines.slice(isRefused ? Math.max(0, place - 1) : place, place + 1), means, todo};
}

/** The document's explanations of a run's failures, each once, and of an end without a line. */
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
        const topic = topicOf(run.log, number);
        if (told.has(topic))
            continue;
        told.add(topic);
        const isAside = pattern.rule.minor || !run.isTrouble;
        (isAside ? asides : failures).push(explanation(run, number, language));
    }
    const endings = run.isOver || run.outcome === "handedOver" ? [] : [ending(run, language)];
    return {failures, asides, endings};
}

/** The document's explanation of a run that ends without a line. */
function ending(run, language) {
    const last = run.lines.filter(number => run.log.patterns[number]?.rule.step).pop();
    const line = last === undefined ? "" : run.log.patterns[last].line;
    const known = DATA.endings.find(({name}) => name === line);
    const {means, todo} = (known || DATA.endings[DATA.endings.length - 1])[language];
    const size = run.stage === "offered" ? run.answer.size : 0;
    return {quoted: last === undefined ? [] : [last], means, todo, size};
}

/** The text with invisible characters, and those that change how others look, replaced by their numbers. */
function visible(text) {
    const unseen = /(?!\t)[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/gu;
    return text.replace(unseen, character => `\\u${character.codePointAt(0).toString(16).padStart(4, "0")}`);
}

/** Markdown's segments as plain text. */
const plainText = segments => segments.map(segment => (typeof segment === "string" ? segment : segment.text)).join("");

const MIB = 1024 * 1024;
const inMib = bytes => (bytes / MIB).toFixed(1);

/** How much disk space the package needs, for errors that a full disk may cause. */
function roomText(size, texts) {
    return size > 0 ? texts.needs.replace("{size}", inMib(size)).replace("{room}", inMib(3 * size)) : "";
}

/** The story for sending to others: from the log it has only times, versions and numbers. */
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
