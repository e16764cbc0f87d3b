vcl 4.1;
# SPDX-License-Identifier: MIT

# The cache for packages, on the machine of the load balancer. Install it as /etc/varnish/updates.vcl. Packages never
# change, so each one is fetched from the nodes once and kept until the space is needed.

import directors;
import std;

# Varnish checks the health of each node itself, through the tunnels in haproxy.cfg.
probe health {
    .request =
        "GET /health HTTP/1.1"
        "Host: updates.example.com"
        "Connection: close";
    .interval = 1s;
    .timeout = 1s;
    .window = 4;
    .threshold = 2;
    .initial = 2;
}

backend node1 {
    .host = "127.0.0.1";
    .port = "8181";
    .probe = health;
    # An updater shows an error when no data has arrived for six seconds.
    .connect_timeout = 2s;
    .first_byte_timeout = 4s;
    .between_bytes_timeout = 5s;
}
backend node2 {
    .host = "127.0.0.1";
    .port = "8182";
    .probe = health;
    .connect_timeout = 2s;
    .first_byte_timeout = 4s;
    .between_bytes_timeout = 5s;
}
backend node3 {
    .host = "127.0.0.1";
    .port = "8183";
    .probe = health;
    .connect_timeout = 2s;
    .first_byte_timeout = 4s;
    .between_bytes_timeout = 5s;
}

# Hosts that may remove a withdrawn package, through a socket that HAProxy does not use.
acl purgers {
    "127.0.0.1";
}

sub vcl_init {
    new nodes = directors.round_robin();
    nodes.add_backend(node1);
    nodes.add_backend(node2);
    nodes.add_backend(node3);
}

sub vcl_recv {
    # One key per package, whatever a client adds.
    set req.url = regsub(req.url, "\?.*$", "");
    set req.http.Host = "updates.example.com";
    unset req.http.Cookie;
    unset req.http.Authorization;
    unset req.http.Accept-Encoding;

    # For the log: the client's address from HAProxy, without HAProxy's own address, which Varnish has appended.
    set req.http.X-Forwarded-For = regsub(req.http.X-Forwarded-For, ", [^,]*$", "");

    if (req.method == "PURGE") {
        if (local.socket != "purge" || client.ip !~ purgers) {
            return (synth(403));
        }
        return (purge);
    }
    if (req.method != "GET" && req.method != "HEAD") {
        return (synth(405));
    }
    # HAProxy checks whether Varnish answers.
    if (req.url == "/health") {
        return (synth(200));
    }
    if (req.url !~ "^/([A-Za-z0-9][A-Za-z0-9_-]*/)?packages/[^/]+$") {
        return (synth(404));
    }
    set req.backend_hint = nodes.backend();
    return (hash);
}

sub vcl_backend_fetch {
    # A package is fetched completely and for all clients, not only for the first one.
    unset bereq.http.X-Forwarded-For;
    unset bereq.http.Range;
    unset bereq.http.If-Range;
}

sub vcl_backend_response {
    if (beresp.status == 200) {
        set beresp.ttl = 365d;
        set beresp.grace = 365d;
        unset beresp.http.Set-Cookie;
        # Clients get the data while it arrives.
        set beresp.do_stream = true;
        return (deliver);
    }
    # Another node may have it or may be healthy.
    if (bereq.retries < 2) {
        return (retry);
    }
    # The package may arrive on the nodes a moment later, and its first clients must find it then.
    set beresp.ttl = 0s;
    set beresp.grace = 0s;
    set beresp.keep = 0s;
    return (deliver);
}

sub vcl_backend_error {
    if (bereq.retries < 2) {
        return (retry);
    }
}

sub vcl_deliver {
    unset resp.http.Via;
    unset resp.http.X-Varnish;
}
