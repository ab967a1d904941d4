#!/bin/bash
# Rewrites every class of the jdk.compiler module (a call at the start of
# every method and before every return), links all of them under
# -Xverify:all, then compiles real sources with the rewritten compiler and
# with the original one: the class files produced must be the same.
# Usage: run_javac_rewritten.sh <build-dir> <java-home> <source-dir>
set -euo pipefail
build=$1
java_home=$2
here=$3
java=$java_home/bin/java
javac=$java_home/bin/javac
work=$build/javac-rewritten
"$here/extract_jdk_corpus.sh" "$build" "$java_home"

src_zip=$java_home/lib/src.zip
if [ ! -f "$src_zip" ]; then
    echo "FAIL: $src_zip is missing: install the Debian package openjdk-17-source (scripts/install-deps test)"
    exit 1
fi

rm -rf "$work"
mkdir -p "$work/hook" "$work/patch" "$work/sources" "$work/out-original" "$work/out-rewritten" "$work/tools"

# The hook class, compiled into the compiler's module.
"$javac" --patch-module jdk.compiler="$here/java" -d "$work/hook" "$here/java/CorvaneTestHook.java"
"$javac" -d "$work/tools" "$here/java/LinkAll.java"

"$build/tests/classfile/classfile_instrument" "$build/jdk-corpus/jdk.compiler" "$work/patch" \
    com/sun/tools/javac/CorvaneTestHook hit
cp -r "$work/hook/." "$work/patch/"

echo "== linking every rewritten class with -Xverify:all"
"$java" -Xverify:all --patch-module jdk.compiler="$work/patch" -cp "$work/tools" \
    LinkAll jdk.compiler "$work/patch" | tail -25

echo "== compiling java.util sources"
(cd "$work/sources" && unzip -q "$src_zip" 'java.base/java/util/*')
find "$work/sources" -name '*.java' | sort > "$work/files.txt"
count=$(wc -l < "$work/files.txt")
options=(--patch-module java.base="$work/sources/java.base" -nowarn -XDignore.symbol.file -implicit:none -proc:none)

start=$(date +%s)
"$java" -m jdk.compiler/com.sun.tools.javac.Main "${options[@]}" -d "$work/out-original" @"$work/files.txt" \
    > "$work/original.log" 2>&1 || { cat "$work/original.log"; echo "original compiler failed"; exit 1; }
middle=$(date +%s)
"$java" -Xverify:all --patch-module jdk.compiler="$work/patch" -m jdk.compiler/com.sun.tools.javac.Main \
    "${options[@]}" -d "$work/out-rewritten" @"$work/files.txt" \
    > "$work/rewritten.log" 2>&1 || { cat "$work/rewritten.log"; echo "rewritten compiler failed"; exit 1; }
end=$(date +%s)

calls=$(grep -o 'hook calls: [0-9]*' "$work/rewritten.log" | grep -o '[0-9]*$' || echo 0)
grep -v '^hook calls: ' "$work/rewritten.log" > "$work/rewritten-output.log" || true
produced=$(find "$work/out-original" -name '*.class' | wc -l)
echo "sources: $count, classes produced: $produced, original run: $((middle - start)) s," \
     "rewritten run: $((end - middle)) s, hook calls: $calls"
if ! diff -r -q "$work/out-original" "$work/out-rewritten"; then
    echo "FAIL: the rewritten compiler produced other class files"
    exit 1
fi
if ! diff -q "$work/original.log" "$work/rewritten-output.log" > /dev/null; then
    echo "FAIL: the rewritten compiler printed something else"
    diff "$work/original.log" "$work/rewritten-output.log" | head -20
    exit 1
fi
if [ "$produced" -lt 100 ] || [ "$calls" -lt 1000000 ]; then
    echo "FAIL: too little was compiled or called"
    exit 1
fi
echo "1 passed, 0 failed"
