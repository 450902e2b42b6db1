#!/usr/bin/env bash
# Rewrites include/dtm/dtm.h so that it includes every public header, grouped by subsystem.
set -euo pipefail
cd "$(dirname "$0")/../include"
{
    echo '#pragma once'
    echo
    echo '/// @file'
    echo '/// Everything a host needs: every public header of the terrain-model library.'
    for dir in support project network contours boundaries breaklines colourclasses profile; do
        headers=$(find "dtm/$dir" -name '*.h' 2>/dev/null | LC_ALL=C sort)
        [ -z "$headers" ] && continue
        echo
        for h in $headers; do echo "#include <$h>"; done
    done
} > dtm/dtm.h
