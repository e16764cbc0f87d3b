# SPDX-License-Identifier: MIT
# shellcheck shell=bash disable=SC2034,SC2154 # shares variables with scripts/demo
# A display, and a user with a mouse and a keyboard who takes pictures of it. Sourced by scripts/demo, whose variables
# $demo, $log, $scale and $pictures it reads.

window= # the window that is pressed and photographed, as find_window found it

# start_display: an Xvfb with a screen of 1440 x 960 pixels at 100 %, on $DISPLAY; $dpi is its resolution.
start_display() {
    exec 4<> <(:)
    # -noreset: otherwise it restarts when its last client leaves, and refuses a client that comes in that moment.
    # Xvfb stores the screen's size in whole millimetres: only one of such a size has exactly this resolution.
    dpi=$((96 * scale / 100))
    Xvfb -displayfd 4 -noreset -dpi "$dpi" -screen 0 "$((15 * dpi))x$((10 * dpi))x24" -nolisten tcp \
        2>"$demo/xvfb.log" &
    started+=("$!")
    read -r -t 30 -u 4 number || fail "Xvfb does not start: $(cat "$demo/xvfb.log")"
    export DISPLAY=:$number
}

# find_window TITLE [FORMER]: waits for a window other than FORMER.
find_window() {
    for _ in $(seq 200); do
        window=$(xdotool search --onlyvisible --name "^$1\$" 2>/dev/null | tail -n 1) || true
        if [ -n "$window" ] && [ "$window" != "${2:-}" ]; then return; fi
        sleep 0.1
    done
    fail "no window named $1 came up; the log: $(tail -n 3 "$log" 2>/dev/null)"
}

# ask_for_places: learns from the updater's own dialogs how large they are and where their buttons are.
declare -A place_x place_y
ask_for_places() {
    local name x y
    while read -r name x y; do
        place_x[$name]=$x place_y[$name]=$y
    done < <(QT_QPA_PLATFORM=offscreen build/native/bench/printplaces)
    [ -n "${place_x[window]:-}" ] || fail "the places of the buttons are not known"
}

# press BUTTON: by its object name. The window may have a frame, whose sides and bottom are of one width.
press() {
    local WIDTH HEIGHT frame below
    [ -n "${place_x[$1]:-}" ] || fail "the updater has no button $1"
    eval "$(xdotool getwindowgeometry --shell "$window" | grep -E '^(WIDTH|HEIGHT)=[0-9]+$')"
    frame=$(((WIDTH - place_x[window] * scale / 100) / 2))
    below=$((place_y[window] - place_y[$1]))
    xdotool mousemove --window "$window" \
        $((place_x[$1] * scale / 100 + frame)) $((HEIGHT - frame - below * scale / 100)) click 1
}

# shoot NAME: a picture of the window, once it has been drawn.
shoot() {
    sleep 0.7
    import -window "$window" "$demo/$1.png"
    echo "    $1.png"
    if [ -n "$pictures" ]; then
        mkdir -p "$pictures"
        cp "$demo/$1.png" "$pictures/"
    fi
}

# wait_for_log TEXT
wait_for_log() {
    for _ in $(seq 300); do
        if grep -qF "$1" "$log" 2>/dev/null; then return; fi
        sleep 0.1
    done
    fail "the log never said: $1"
}
