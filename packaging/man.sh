#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: man.sh SOURCE OUTPUT
# Makes a man page from its scdoc source and takes away what mandoc's lint has to say about scdoc's
# habits: paragraph macros that begin nothing, lines over 80 bytes, a title in small letters.
set -eu
scdoc <"$1" >"$2.new"
awk '
    function flush_paragraph() { if (held) { print ".P"; held = 0 } }
    function fold(line, cut) {
        while (length(line) > 79) {
            cut = 79
            while (cut > 0 && substr(line, cut, 1) != " ") cut--
            if (cut == 0) break
            print substr(line, 1, cut - 1)
            line = substr(line, cut + 1)
        }
        print line
    }
    /^\.TH / { split($0, part, "\""); sub(part[2], toupper(part[2])) }
    /^\.P$/ { held = !heading; next }
    /^\.SH / { held = 0; heading = 1; print; next }
    /^\.RE/ { print; next }
    /^\.RS/ { held = 0 }
    /^\.nf/ { literal = 1 }
    /^\.fi/ { literal = 0 }
    {
        flush_paragraph()
        heading = 0
        if (literal || /^\./) print
        else fold($0)
    }
' "$2.new" >"$2"
rm "$2.new"
