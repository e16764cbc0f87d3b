# SPDX-License-Identifier: MIT
# Shared by the stand-ins in this folder; sourced, never run on its own.
# shellcheck shell=sh

# Windows commands end their lines with CR LF, and so do the stand-ins: a
# caller that only copes with bare line feeds should fail here already.
say() {
    printf '%s\r\n' "$1"
}

# \134 is the back-slash.
to_slashes() {
    printf '%s' "$1" | tr '\134' /
}

# find_processes [NAME]
#
# Prints "PID<TAB>resident KB<TAB>image name" for every live process with that
# image name (any process without NAME), lowest PID first.
#
# A process goes by the base name of argv[0], of its executable or, when an
# interpreter runs it, of its script. Names are only ever taken from there, so
# a NAME that merely occurs among somebody's arguments is no match. Left out are
# zombies, the calling stand-in with its helpers, and the script that called it.
#
# All of /proc is read by one grep and one stat: a fork per process would cost
# far more than the whole answer is allowed to take.
find_processes() {
    {
        LC_ALL=C grep -asHzm2 '' /proc/[0-9]*/cmdline | tr '\n\0' '?\n'
        QUOTING_STYLE=literal LC_ALL=C stat -c %N /proc/[0-9]*/exe 2>/dev/null
    } | WANTED="${1-}" SELF=$$ CALLER=$PPID LC_ALL=C awk '
        function base(path) {
            sub(/ \(deleted\)$/, "", path)   # executable replaced while it runs
            sub(/^.*[\/\\]/, "", path)
            return path
        }

        # Fills state, parent and rss; false when the process is gone.
        function look(pid,    file, line, field) {
            file = "/proc/" pid "/status"
            state = ""; parent = 0; rss = 0
            while ((getline line < file) > 0) {
                split(line, field)
                if (field[1] == "State:") state = field[2]
                else if (field[1] == "PPid:") parent = field[2] + 0
                else if (field[1] == "VmRSS:") rss = field[2] + 0
            }
            close(file)
            return state != "" && state != "Z" && state != "X"
        }

        function offer(pid, name) {
            if (name == "" || (pid in chosen)) return
            if (wanted == "" || tolower(name) == wanted) chosen[pid] = name
        }

        BEGIN {
            wanted = tolower(ENVIRON["WANTED"])
            self = ENVIRON["SELF"] + 0
            caller = ENVIRON["CALLER"] + 0
            split("sh dash bash python3", list, " ")
            for (i in list) interpreter[list[i]] = 1
        }

        {
            pid = substr($0, 7) + 0          # both kinds begin "/proc/PID/"
            rest = substr($0, 7 + length(pid))
        }

        rest ~ /^\/cmdline:/ {
            argument = substr(rest, 10)
            if (!(pid in first)) {
                first[pid] = base(argument)
                order[++count] = pid
            } else if (!(pid in second)) {
                second[pid] = argument
            }
            next
        }

        rest ~ /^\/exe -> / {
            image[pid] = base(substr(rest, 9))
        }

        END {
            for (i = 1; i <= count; i++) {
                pid = order[i]
                # A login shell carries a dash before its name.
                shell = first[pid]; sub(/^-/, "", shell)
                scripted = shell in interpreter
                if (pid == self || (pid == caller && scripted)) continue
                if (scripted && (pid in second) && second[pid] !~ /^-/)
                    offer(pid, base(second[pid]))
                offer(pid, first[pid])
                offer(pid, image[pid])
            }
            for (pid in chosen) {
                if (!look(pid)) continue
                kb = rss
                while (parent > 1 && parent != self && look(parent)) ;
                if (parent == self) continue
                printf "%d\t%d\t%s\n", pid, kb, chosen[pid]
            }
        }' | sort -n
}

# is_running PID: true until the process has ended; a zombie has.
is_running() {
    while read -r key value _; do
        if [ "$key" = State: ]; then
            case $value in [ZX]) return 1 ;; *) return 0 ;; esac
        fi
    done 2>/dev/null <"/proc/$1/status"
    return 1
}
