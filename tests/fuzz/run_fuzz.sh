#!/bin/bash
# Builds the class-file fuzzer with clang in <build>/fuzz, makes its seed
# classes with javac, and fuzzes parsing, writing and editing for a bounded
# time (FUZZ_SECONDS, default 60).
# Usage: run_fuzz.sh <build-dir> <source-root> <java-home>
set -euo pipefail
build=$1
root=$2
java_home=$3
seconds=${FUZZ_SECONDS:-60}
work=$build/fuzz

if ! command -v clang++ > /dev/null; then
    echo "FAIL: clang is missing: install the Debian packages clang and libclang-rt-14-dev (scripts/install-deps test)"
    exit 1
fi
cmake -S "$root/tests/fuzz/target" -B "$work/build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=Debug -DJAVA_HOME="$java_home" > "$work.configure.log" 2>&1 \
    || { cat "$work.configure.log"; exit 1; }
cmake --build "$work/build" -j2 > "$work.build.log" 2>&1 || { tail -40 "$work.build.log"; exit 1; }

# Seeds: the program of many method shapes that the rewriting tests run,
# and a class for an older target, compiled for several class file versions,
# with and without debug tables. No class of the JDK goes in.
rm -rf "$work/seeds"
mkdir -p "$work/seeds" "$work/corpus" "$work/home"
compile() {
    local out=$work/seeds/$1
    shift
    mkdir -p "$out"
    "$java_home/bin/javac" -nowarn -d "$out" "$@"
}
shapes=("$root/tests/unit/instrumentation/java/Shapes.java"
        "$root/tests/unit/instrumentation/java/com/corvane/runtime/Callback.java")
compile v51 --release 7 -g "$root/tests/fuzz/seeds/Legacy.java"
compile v52 --release 8 "${shapes[@]}"
compile v55 --release 11 -g "${shapes[@]}"
compile v61 -g "${shapes[@]}" "$root/tests/fuzz/seeds/Legacy.java"
compile v61-plain -g:none "${shapes[@]}"
i=0
for f in $(find "$work/seeds" -name '*.class' | sort); do
    cp "$f" "$work/corpus/seed-$i.class"
    i=$((i + 1))
done
echo "seed classes: $i"

export CORVANE_HOME=$work/home
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
"$work/build/classfile_fuzzer" "$work/corpus" -max_total_time="$seconds" -max_len=65536 -timeout=10 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$work/" > "$work/fuzz.log" 2>&1 \
    || { tail -60 "$work/fuzz.log"; echo "1 failed, 0 passed"; exit 1; }
grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::new_units_added)' "$work/fuzz.log" || tail -5 "$work/fuzz.log"
echo "1 passed, 0 failed"
