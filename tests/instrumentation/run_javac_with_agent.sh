#!/bin/bash
# javac with the agent loaded: every class it loads is rewritten (tracing with
# all methods instrumented, allocation sites as well, natives wrapped), and
# linked under -Xverify:all. It compiles java.util and java.util.concurrent
# from the JDK's sources; the class files must be the same as without the
# agent, the log must show no failed rewrite, and classes must really have
# been rewritten.
# Usage: run_javac_with_agent.sh <libcorvane.so> <java-home> <work-dir>
set -euo pipefail
library=$1
java_home=$2
work=$3
java=$java_home/bin/java

src_zip=$java_home/lib/src.zip
if [ ! -f "$src_zip" ]; then
    echo "FAIL: $src_zip is missing: install the Debian package openjdk-17-source (scripts/install-deps test)"
    exit 1
fi

rm -rf "$work"
mkdir -p "$work/sources"
(cd "$work/sources" && unzip -q "$src_zip" 'java.base/java/util/*')
find "$work/sources" -name '*.java' | sort > "$work/files.txt"
count=$(wc -l < "$work/files.txt")
options=(--patch-module java.base="$work/sources/java.base" -nowarn -XDignore.symbol.file -implicit:none -proc:none)

compile() {  # <name> [agent options]
    local name=$1
    local agent=()
    if [ $# -gt 1 ]; then agent=(-agentpath:"$library=$2,logdir=$work/log-$name,dir=$work/snapshots,_dump_classes=$work/dump-$name"); fi
    mkdir -p "$work/out-$name"
    local start
    start=$(date +%s)
    if ! "$java" -Xverify:all "${agent[@]}" -m jdk.compiler/com.sun.tools.javac.Main "${options[@]}" \
            -d "$work/out-$name" @"$work/files.txt" > "$work/$name.out" 2>&1; then
        cat "$work/$name.out"
        echo "FAIL: javac ($name) failed"
        exit 1
    fi
    echo "javac ($name): $(( $(date +%s) - start )) s"
}

# Checks a run with the agent against the run without.
check() {  # <name> <stub> <least number of its calls in the rewritten code>
    local name=$1
    local log
    log=$(ls "$work/log-$name"/*.log | head -1)
    if ! diff -r -q "$work/out-plain" "$work/out-$name"; then
        echo "FAIL: javac ($name) produced other class files"
        exit 1
    fi
    # The agent's own lines (log file, snapshot at exit) aside.
    if ! diff -q "$work/plain.out" <(grep -v -E '^\[Corvane|^19\.8-109 ' "$work/$name.out") > /dev/null; then
        echo "FAIL: javac ($name) printed something else"
        diff "$work/plain.out" "$work/$name.out" | head -20
        exit 1
    fi
    if grep -E "exception caught at [^ ]*/instrumentation/|the previous exception happened|bytecode too long|constant pool is too big|invalid class|cannot instrument method|Wrong instruction|unexpected (type|instruction kind|primitive type|bytecode)|Illegal instruction type|INVOKESPECIAL in" "$log"; then
        echo "FAIL: ($name) the log shows a failed rewrite"
        exit 1
    fi
    local totals processed instrumented
    totals=$(grep -o 'total classes: processed=[0-9]* instrumented=[0-9]*' "$log" | tail -1)
    processed=$(echo "$totals" | sed 's/.*processed=\([0-9]*\).*/\1/')
    instrumented=$(echo "$totals" | sed 's/.*instrumented=\([0-9]*\).*/\1/')
    echo "($name) classes processed: $processed, rewritten: $instrumented"
    if [ -z "$instrumented" ] || [ "$instrumented" -lt 1000 ]; then
        echo "FAIL: ($name) too few classes were rewritten"
        exit 1
    fi
    # Each class the hook saw is dumped as <name>_<n>_before.class, and as
    # <name>_<n>.class when it was rewritten. The ones left as they were must
    # have no code at all (interfaces of abstract methods only), be the agent's
    # own, or be named in the list of exceptions.
    local unchanged others
    unchanged=$(for before in "$work/dump-$name"/*_before.class; do
                    [ -f "${before%_before.class}.class" ] || echo "$before"
                done | xargs -r -n 400 "$java_home/bin/javap" -c -p 2>/dev/null |
                awk '/^([a-z]+ )*(class|interface|enum) / { match($0, /(class|interface|enum) [^ <{]+/);
                                                            split(substr($0, RSTART, RLENGTH), w, " "); current = w[2] }
                     /^ *Code:$/ { if (!(current in seen)) { seen[current] = 1; print current } }' | sort)
    others=$(echo "$unchanged" | grep -v -x -F -f <(printf '%s\n' "${left_alone[@]}") | grep -v -E '^com\.corvane\.(runtime|probes)\.' || true)
    if [ -n "$others" ]; then
        echo "FAIL: ($name) classes with code left as they were, other than the expected ones:"
        echo "$others"
        exit 1
    fi
    echo "($name) classes with code left as they were: $(echo "$unchanged" | wc -l), as expected"
    check_calls "$name" "$2" "$3"
}

# The classes as handed to the JVM were dumped: counts the calls of a method in their code.
check_calls() {  # <name> <stub> <least number of its calls> [<grep pattern of the call>]
    local name=$1
    local call=$2
    local pattern=${4:-"Method com/corvane/runtime/Callback.$call:"}
    local calls
    if [ ! -f "$work/$name.javap" ]; then
        find "$work/dump-$name" -name '*.class' ! -name '*_before.class' -print0 |
            xargs -0 -n 400 "$java_home/bin/javap" -c -p > "$work/$name.javap" 2>/dev/null || true
    fi
    calls=$(grep -c -- "$pattern" "$work/$name.javap" || true)
    echo "($name) calls of $call in the rewritten classes: $calls"
    if [ "$calls" -lt "$3" ]; then
        echo "FAIL: ($name) too few calls of $call"
        exit 1
    fi
}

# The classes with code, other than the agent's own, that the hook sees and
# leaves alone, and why.
left_alone=(
    'java.lang.Module$ReflectionData' # left alone on Java 12 and newer unless the internal
    java.lang.WeakPairMap             # option _no_FIX_20190122 is given
)

compile plain
produced=$(find "$work/out-plain" -name '*.class' | wc -l)
echo "sources: $count, classes produced: $produced"
if [ "$produced" -lt 300 ]; then
    echo "FAIL: too little was compiled"
    exit 1
fi
# One run with both rewrites: method entry and exit in every method, and every
# allocation site recorded (each 100th allocation with its stack), natives
# wrapped.
compile agent "tracing,alloceach=100,disable_heap_sampling,_instrument_all_methods,debug=bci_times"
check agent kztMethodEntry 10000
check_calls agent kztInit 5000
# Natives are wrapped by default: each wrapper calls its native under the prefix.
check_calls agent 'wrapped natives' 20 'Method [^ ]*\$\$KZT\$\$'
echo "1 passed, 0 failed"
