# Shared by the benchmark scripts (sourced): medians, and runs of several
# setups alternated so that no setup always follows the same one.

median() {
    sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

# alternate <runs> <work dir> <setup>...: one warm-up run of each setup, then
# <runs> rounds, each in a rotated order. `measure <setup>` (the caller's)
# prints one line of fields; they go to <work dir>/<setup>.txt.
alternate() {
    local runs=$1 work=$2
    shift 2
    local setups=("$@") i j setup
    for setup in "${setups[@]}"; do measure "$setup" > /dev/null; done
    for ((i = 0; i < runs; i++)); do
        for ((j = 0; j < ${#setups[@]}; j++)); do
            setup=${setups[$(((i + j) % ${#setups[@]}))]}
            measure "$setup" >> "$work/$setup.txt"
        done
    done
}

# field <n> <work dir> <setup>: the median of field n over the setup's runs.
field() {
    awk -v n="$1" '{ print $n }' "$2/$3.txt" | median
}

# need_classes <bench> <dir> <class>: fails unless the build made the program.
need_classes() {
    [ -f "$2/$3.class" ] || { echo "$1: $2/$3.class is missing: run make first" >&2; exit 1; }
}
