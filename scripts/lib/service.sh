# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Starts the update service on the loopback. Sourced by scripts that need it.

service_process=

# free_port: prints a port that no program listens on, below those that the system assigns to connections.
free_port() {
    python3 -c '
import random, socket
while True:
    with socket.socket() as probe:
        try:
            probe.bind(("127.0.0.1", random.randrange(20000, 30000)))
            print(probe.getsockname()[1])
            break
        except OSError:
            pass'
}

listens_on() {
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

# start_service TREE PORT PLAIN_PORT WORK OPTION...: starts scripts/serve and returns once it answers; $service_process
# is its process. Fails when it does not start. Its output is in WORK.out.
start_service() {
    local tree=$1 port=$2 plain_port=$3 work=$4
    shift 4
    scripts/serve "$tree" --port "$port" --plain-port "$plain_port" --work "$work" "$@" >"$work.out" 2>&1 &
    service_process=$!
    for _ in $(seq 300); do
        if listens_on "$port" && listens_on "$plain_port"; then return; fi
        kill -0 "$service_process" 2>/dev/null || break
        sleep 0.1
    done
    cat "$work.out" >&2
    return 1
}
