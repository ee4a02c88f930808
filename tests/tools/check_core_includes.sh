#!/usr/bin/env bash
# The exporter core knows no art tool: no tessel_* source includes an fbx_*
# header, and nothing in src/exporter includes from the FBX folders.
# Prints every offending include and fails if there is one.
set -uo pipefail
Source=${1:-$(dirname "$0")/../..}
cd "$Source/src" || exit 2
Found=0
while IFS= read -r Line; do
    echo "core includes FBX: $Line"
    Found=1
done < <(grep -HnE '^\s*#\s*include\s*"([^"]*/)?fbx_[^"]*"' $(find . -name 'tessel_*.cpp' -o -name 'tessel_*.h') ;
         grep -HnE '^\s*#\s*include\s*"(fbx|fbx_tool)/' $(find exporter -name '*.cpp' -o -name '*.h'))
exit $Found
