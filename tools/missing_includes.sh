#!/bin/sh
# missing_includes.sh FILE...: prints each header that a source file or its own header uses but gets
# only through another one, where another system or the next change may not have it.
set -eu
cd "$(dirname "$0")/.."

status=0
for file in "$@"; do
    # What only the library itself uses internally does not concern us.
    { include-what-you-use -Xiwyu --no_fwd_decls -Xiwyu --mapping_file=tools/iwyu.imp \
        -Xiwyu --max_line_length=200 -std=gnu++20 -I src -I . \
        '-DZOT_VERSION=""' "$file"; } 2>&1 | awk '
        / should add these lines:$/ { name = $1; adding = 1; next }
        /^$/ || / should remove these lines:$/ { adding = 0 }
        / error: / { print; failed = 1 }
        /Assertion failed: .*lang extensions/ { judged = 1 }  # it gives up on vector types
        / has correct #includes|^The full include-list for / { judged = 1 }
        adding && $0 !~ inner { print name ": " $0; failed = 1 }
        END {
            if (!judged) print file ": include-what-you-use does not judge it"
            exit failed || !judged
        }' inner='ext/alloc_traits|<syscall.h>|<sys/statfs.h>|// for (alloc|__)[^ ]*(, alloc[^ ]*)?$' \
        file="$file" || status=1
done
exit $status
