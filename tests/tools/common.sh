# Shared by the scripts that run programs against simulated units. The folder of the build comes first: SCRIPT FOLDER
set -euo pipefail
cd "$1"
# expect EXIT_STATUS PATTERN COMMAND...: the pattern has to be found in the output, whose lines stand behind each other
expect() {
    local status=0 output
    output=$("${@:3}" 2>&1) || status=$?
    if [ "$status" != "$1" ] || ! grep -qE "$2" <<<"$(tr '\n' ' ' <<<"$output")"; then
        echo "${*:3} ended with $status, not with $1, or didn't print $2:"
        echo "$output"
        exit 1
    fi
}
work=$(mktemp -d)
sims=()
finish() {
    if [ ${#sims[@]} -gt 0 ]; then kill "${sims[@]}" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap finish EXIT
# start ADDRESS OPTION...: a simulated unit, without any signal in the air
start() {
    sim/hxr-sim --address "$@" >"$work/$1" &
    sims+=($!)
    for _ in $(seq 100); do
        if grep -q ready "$work/$1"; then return; fi
        sleep 0.05
    done
    echo "the simulated unit doesn't start" && exit 1
}

