// SPDX-License-Identifier: MIT
// Finds the pattern and the values of a line. support/make-log-reader puts DATA before this script, from the documents,
// lines.json and texts.json.

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

/** The patterns that begin with a value in quotes; the others are grouped by their first characters. */
const QUOTED_FIRST = PATTERNS.filter(pattern => pattern.parts[0].kind === "quoted");
const BY_KEY = new Map();
for (const pattern of PATTERNS) {
    if (QUOTED_FIRST.includes(pattern))
        continue;
    const key = pattern.line.slice(0, KEY_LENGTH);
    BY_KEY.set(key, [...(BY_KEY.get(key) || []), pattern]);
}

/** The end of the quoted text that begins at `start`, after its last quote; -1 without one. */
function endOfQuoted(text, start) {
    if (text[start] !== '"')
        return -1;
    for (let quote = text.indexOf('"', start + 1); quote >= 0; quote = text.indexOf('"', quote + 1)) {
        let slashes = 0;
        while (text[quote - 1 - slashes] === "\\" && quote - 1 - slashes > start)
            ++slashes;
        if (slashes % 2 === 0)
            return quote + 1;
    }
    return -1;
}

/** The end of a part of a pattern that begins at `start`; -1 when it does not begin there. */
function endOfPart(part, text, start) {
    if (part.kind === "quoted")
        return endOfQuoted(text, start);
    if (part.kind === "literal")
        return text.startsWith(part.text, start) ? start + part.text.length : -1;
    const blank = text.indexOf(" ", start);
    const next = blank < 0 ? text.length : blank;
    return next > start ? next : -1;
}

/** Whether the parts, from number `first` on, match the text from `start` on. */
function isMatch({parts}, first, text, start) {
    let at = start;
    for (let index = first; index < parts.length && at >= 0; ++index)
        at = endOfPart(parts[index], text, at);
    return at === text.length;
}

/** The pattern of a line's text; undefined for a line that the program does not write. */
function patternOf(text) {
    const quotedEnd = endOfQuoted(text, 0);
    if (quotedEnd >= 0)
        return QUOTED_FIRST.find(pattern => isMatch(pattern, 1, text, quotedEnd));
    const candidates = BY_KEY.get(text.slice(0, KEY_LENGTH));
    return candidates && candidates.find(pattern => isMatch(pattern, 0, text, 0));
}

/** The values in the text of a line of this pattern, without their quotes. */
function valuesOf({parts}, text) {
    const values = [];
    let at = 0;
    for (const part of parts) {
        const next = endOfPart(part, text, at);
        if (part.kind !== "literal")
            values.push(part.kind === "quoted" ? text.slice(at + 1, next - 1) : text.slice(at, next));
        at = next;
    }
    return values;
}

const ESCAPES = {n: "\n", r: "\r", t: "\t", b: "\b", f: "\f", a: "\x07", v: "\v", 0: "\0"};

/** The text that the program has put in quotes. */
function unescaped(text) {
    // Most escapes are JSON's, and the browser's parser is faster.
    if (!/\\[^"\\bfnrtu]/.test(text)) {
        try {
            return JSON.parse(`"${text}"`);
        } catch {
            // The line is cut or has control characters.
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
