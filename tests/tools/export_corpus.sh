#!/usr/bin/env bash
# Exports every FBX file below a folder with the command-line program and
# prints one "sha256  relative/path.ts2" line per written file (files that
# are refused print "refused  relative/path"). Comparing two runs shows
# whether a change altered any exported byte:
#
#   tests/tools/export_corpus.sh build/tools/tessel ../shared/fbx > before.txt
#   ... change, rebuild ...
#   tests/tools/export_corpus.sh build/tools/tessel ../shared/fbx > after.txt
#   diff before.txt after.txt
#
# Extra arguments after the folder are passed to every export.
set -uo pipefail
Tool=$(realpath "$1"); Corpus=$(realpath "$2"); shift 2
Out=$(mktemp -d); trap 'rm -rf "$Out"' EXIT
cd "$Corpus" || exit 2
find . -iname '*.fbx' -type f | LC_ALL=C sort | while read -r File; do
    Name=${File#./}
    Target="$Out/$(echo "$Name" | tr '/' '_').ts2"
    if "$Tool" export "$Name" "$Target" "$@" >/dev/null 2>&1 && [ -f "$Target" ]; then
        echo "$(sha256sum < "$Target" | cut -d' ' -f1)  $Name"
    else
        echo "refused  $Name"
    fi
done
