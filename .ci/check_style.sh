#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: check_style.sh [FILE...] - checks what clang-format leaves alone, in these files or in all:
# the length of lines, blanks at their ends, the last newline, the licence, the shape of comments.
set -eu
export LC_ALL=C
if [ $# -eq 0 ]; then
    cd "$(dirname "$0")/.."
    # The folders are listed, so that builds beside them are left out. Fuzz inputs, pictures
    # and lists that quote lines are not checked.
    # shellcheck disable=SC2046 # no file of the project has a blank in its name
    set -- *.md CMakeLists.txt CMakePresets.json LICENSE dev $(
        find .ci bench cmake docs examples fuzz prove tests tools veklib -type f \
            ! -name '*.svg' ! -name '*.png' ! -name '*.pyc' \
            ! -path 'fuzz/corpus/*' ! -path 'prove/*.txt'
    )
fi

status=0
for file; do
    if [ -n "$(tail -c 1 "$file")" ]; then
        echo "$file:$(($(wc -l <"$file") + 1)): no newline at the end of the file"
        status=1
    fi
done

awk '
function fault(text) {
    printf "%s:%d: %s\n", FILENAME, FNR, text
    found = 1
}

# The kind of the comment that a line of code leaves open, "" if none; sets `column` to where it
# begins. Skips strings, characters and complete comments.
function open_comment(line) {
    gsub(/\\./, "__", line)
    while (match(line, /"[^"]*"|'\''"'\''|\/\/.*|\/\*([^*]|\*+[^*\/])*\*+\/|\/\*/)) {
        if (substr(line, RSTART, RLENGTH) == "/*") {
            column = RSTART
            return substr(line, RSTART, 3) == "/**" ? "documentation" : "plain"
        }
        line = substr(line, 1, RSTART - 1) blanks(RLENGTH) substr(line, RSTART + RLENGTH)
    }
    return ""
}

function blanks(count) {
    return sprintf("%" count "s", "")
}

# A line in a comment has a star below the first one, then two blanks in documentation, else one.
function check_comment(line, rest) {
    rest = substr(line, column + 2)
    if (substr(line, 1, column + 1) != blanks(column) "*") {
        fault("the comment'\''s star is not below the one in its first line")
    } else if (rest ~ /^\// || rest == "") {
        return
    } else if (comment == "documentation" && rest !~ /^  /) {
        fault("two blanks follow the star in a comment that begins with /**")
    } else if (comment == "plain" && (rest !~ /^ / || (is_second && rest ~ /^  /))) {
        fault("one blank follows the star in a comment that begins with /*")
    }
}

function finish_file() {
    if (file != "" && needs_licence && !has_licence) {
        printf "%s:1: no line with SPDX-License-Identifier\n", file
        found = 1
    }
}

FNR == 1 {
    finish_file()
    file = FILENAME
    comment = ""
    is_markdown = file ~ /\.md$/
    is_output = file ~ /(^|\/)docs\/performance-run\.md$/
    is_json = file ~ /\.json$/
    is_c = file ~ /\.(c|h|cpp)$/
    needs_licence = is_c || file ~ /\.(sh|py|gp|cmake)$|(^|\/)(dev|run|CMakeLists\.txt)$/
    has_licence = 0
}

{ width = $0; gsub(/[\200-\277]/, "", width); width = length(width) }

# Rows of tables, headings, texts in JSON and lines with web addresses cannot be broken.
width > 100 && !is_output && !is_json && !(is_markdown && /^(\||#)/) && !/https?:\/\// {
    fault("a line of " width " columns; the most is 100")
}

/[ \t\r]$/ { fault("a blank at the end of the line") }

FNR < 4 && /SPDX-License-Identifier: / { has_licence = 1 }

is_c && /(^|[^A-Za-z])Fails:/ && !/^ *\* +Fails:/ { fault("\"Fails:\" does not start its line") }

is_c && comment != "" {
    check_comment($0)
    is_second = 0
    if (/\*\//) {
        comment = ""
    }
    next
}

is_c {
    comment = open_comment($0)
    is_second = 1
}

END {
    finish_file()
    exit found
}' "$@" || status=1
exit "$status"
