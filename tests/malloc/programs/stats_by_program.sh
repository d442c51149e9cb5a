#!/bin/sh
# g++ runs each of its programs (cc1plus, as, collect2, ld) through this
# script, so that each names its heap statistics file after itself.
if [ -n "${QUENDAL_MALLOC_STATS:-}" ]; then
  QUENDAL_MALLOC_STATS="$(dirname "$QUENDAL_MALLOC_STATS")/$(basename "$1").%p"
  export QUENDAL_MALLOC_STATS
fi
exec "$@"
