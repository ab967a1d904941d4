#!/bin/bash
# Extracts the classes of the JDK runtime image into <build>/jdk-corpus, once
# per runtime image: a changed image (a JDK update) is extracted anew.
# Usage: extract_jdk_corpus.sh <build-dir> <java-home>
set -euo pipefail
build=$1
java_home=$2
corpus=$build/jdk-corpus
image=$java_home/lib/modules
# Tests that need the corpus may run at the same time: one extracts, the
# others wait for it.
mkdir -p "$build"
exec 9>"$build/jdk-corpus.lock"
flock 9
stamp=$(stat -L -c '%s-%Y' "$image")
if [ -f "$corpus/.complete" ] && [ "$(cat "$corpus/.complete")" = "$stamp" ]; then exit 0; fi
rm -rf "$corpus" "$corpus.tmp"
"$java_home/bin/jimage" extract --dir "$corpus.tmp" "$image"
echo "$stamp" > "$corpus.tmp/.complete"
mv "$corpus.tmp" "$corpus"
