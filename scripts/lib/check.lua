-- SPDX-License-Identifier: MIT
-- For wrk: the updater's check, from a hundred thousand addresses in turn, as a load balancer forwards them.
local body = '{"clientVersion":"1.0.0","deviceType":"Windows","platform":6}'
local headers = {
    ["X-Request-From"] = "internal",
    ["content-type"] = "application/json;charset=UTF-8",
}
local asked = 0

function init(arguments)
    -- "close": a new connection, and so a TLS handshake, for each check, as with real updaters.
    if arguments[1] == "close" then
        headers["Connection"] = "close"
    end
end

function request()
    asked = (asked + 1) % 100000
    headers["X-Forwarded-For"] = string.format("10.%d.%d.%d",
        math.floor(asked / 50000), math.floor(asked / 250) % 200, asked % 250)
    return wrk.format("POST", "/check", headers, body)
end

function done(summary, latency)
    local errors = summary.errors
    local failed = errors.connect + errors.read + errors.write + errors.status + errors.timeout
    io.write(string.format("%.0f answers/s, 99 %% within %.1f ms, %d bytes each, %d failed\n",
        summary.requests / summary.duration * 1e6, latency:percentile(99) / 1e3,
        summary.bytes / summary.requests, failed))
end
