// SPDX-License-Identifier: MIT
// Decodes the bytes of a file.

const isContinuation = byte => byte >= 0x80 && byte < 0xc0;

/** The bytes without incomplete characters at both ends, because a log may have been cut anywhere. */
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

/** The text of a file. The program writes in the system's encoding, and the log does not say which one that is. */
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
