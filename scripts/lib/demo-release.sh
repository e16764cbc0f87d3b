# SPDX-License-Identifier: MIT
# shellcheck shell=bash disable=SC2034,SC2154 # shares variables with scripts/demo
# The old client, the release that replaces it, and the service that offers the release. Sourced by scripts/demo, whose
# options and variables it reads.

site=$demo/site

# make_client FOLDER VERSION
make_client() {
    cp "$built/$sample" "$1/$client.exe"
    mkdir "$1/~version"
    printf '{"client": {"version": "%s"}}\n' "$2" >"$1/~version/version.json"
    printf 'This is the sample client, version %s.\n' "$2" >"$1/readme.txt"
}

make_clients() {
    make_client "$demo/Client" 1.0.0
    echo 'This file is not in the package and stays.' >"$demo/Client/of the user.txt"
    make_client "$demo/New" 2.1.3
    mkdir -p "$demo/New/plug ins/languages" "$demo/New/empty"
    echo 'New in 2.1.3.' >"$demo/New/plug ins/languages/zh.txt"
    # Large enough to watch the download.
    head -c 6000000 /dev/urandom >"$demo/New/plug ins/data.bin"
}

# make_installer FILE
make_installer() {
    if [ -n "$windows" ]; then
        # Installs nothing, but records that it was started.
        cp "$built/tests/standin.exe" "$1"
    else
        cat >"$1" <<SETUP
#!/bin/sh
# The sample installer: puts the new client in place and starts it.
cp -R "$demo/New/." "$demo/Client/"
exec "$demo/Client/$client.exe" "\$@"
SETUP
    fi
    # A real installer is mostly data; this is enough to watch the download.
    head -c 4000000 /dev/urandom >>"$1"
}

publish_release() {
    local update=optional package=(zip --client "$demo/New" --name "$client" --config-file '~version/version.json')
    if [ -n "$forced" ]; then update=forced; fi
    if [ -n "$installer" ]; then
        make_installer "$demo/NorvaneSetup-2.1.3.exe"
        package=(installer --file "$demo/NorvaneSetup-2.1.3.exe")
    fi
    cat >"$demo/notes-zh.txt" <<'NOTES'
<b>2.1.3 版本更新</b><br>1. 会议中可以共享白板。<br>2. 修复了若干问题。
NOTES
    cat >"$demo/notes-en.txt" <<'NOTES'
<b>New in 2.1.3</b><br>1. Share a white board in a meeting.<br>2. Fixes a number of errors.
NOTES
    build/native/publish "${package[@]}" --version 2.1.3 --update "$update" --share 100 --out "$site" \
        --notes-zh "$demo/notes-zh.txt" --notes-en "$demo/notes-en.txt"
    if [ -n "$corrupt" ]; then
        sed -i 's/"md5": *"[^"]*"/"md5": "00000000000000000000000000000000"/' "$site"/check/answers/2.1.3/*.json
    fi
}

# configure_service: chooses its ports and slows the packages down, so that the download can be watched. The download
# accepts only a certificate that the machine trusts. Windows under Wine is made to trust the service's own; the store
# of this machine is left alone, so the native program downloads without TLS.
configure_service() {
    port=$(free_port)
    plain_port=$(free_port)
    package_url=https://localhost:$port/packages/
    trust=()
    if [ -z "$untrusted" ]; then
        if [ -n "$windows" ]; then
            trust=(--trust "$demo/service/certificate.pem")
        else
            package_url=http://localhost:$plain_port/packages/
        fi
    fi
    mkdir "$demo/slow"
    sed '/^location .*packages/a limit_rate 800k;' release/nginx/updates/service.conf >"$demo/slow/service.conf"
    grep -q limit_rate "$demo/slow/service.conf" || fail "release/nginx/updates/service.conf has another form"
}

start_demo_service() {
    start_service "$site" "$port" "$plain_port" "$demo/service" --replace "$demo/slow" ||
        fail "the service does not start"
    started+=("$service_process")
}

stop_demo_service() {
    kill "$service_process"
    wait "$service_process" 2>/dev/null || true
}

# install_updater: into a direct sub-folder of the client's.
install_updater() {
    cp "$built/AutoUpdate$suffix" "$demo/Client/AutoUpdate/"
    cat >"$demo/Client/AutoUpdate/updateconfig.json" <<CONFIG
{
    "appName": "$client.exe",
    "appConfigFile": "~version/version.json",
    "appPath": "$root$demo/Client/",
    "updateCheckUrl": "https://localhost:$port/check",
    "updatePackageUrl": "$package_url",
    "noRemindVersion": "",
    "noRemind": 0,
    "currentVersion": "1.0.0"
}
CONFIG
}
