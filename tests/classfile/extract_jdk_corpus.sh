#!/bin/bash
# Extracts the classes of the JDK runtime image into <build>/jdk-corpus, once.
# Usage: extract_jdk_corpus.sh <build-dir> <java-home>
set -euo pipefail
build=$1
java_home=$2
corpus=$build/jdk-corpus
if [ -f "$corpus/.complete" ]; then exit 0; fi
rm -rf "$corpus" "$corpus.tmp"
"$java_home/bin/jimage" extract --dir "$corpus.tmp" "$java_home/lib/modules"
touch "$corpus.tmp/.complete"
mv "$corpus.tmp" "$corpus"
